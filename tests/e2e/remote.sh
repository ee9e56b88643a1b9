#!/usr/bin/env bash
# End-to-end cases of qmload-cli on remote ports (rfc2217://) against real RFC 2217
# servers on 127.0.0.1: Debian's ser2net and the server example of python3-serial,
# each serving a qmload-sim pty. The servers run on ports found free at run time and
# are stopped at the end.
# Usage: remote.sh CASE   with QMLOAD_CLI, QMLOAD_SIM and QMLOAD_E2E_IMAGE set;
# QMLOAD_WRAP (for example scripts/wine-run.sh) runs the CLI and the image tool, so
# that qmload-cli.exe is tested under Wine the same way.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../prereq.sh"

cli=${QMLOAD_CLI:?}
sim=${QMLOAD_SIM:-$(ls -t "$here"/../../build/*/sim/qmload-sim 2>/dev/null | head -n 1)}
[ -n "$sim" ] && [ -x "$sim" ] || missing_prereq "the Linux qmload-sim (build it, or set QMLOAD_SIM)"
tool=${QMLOAD_E2E_IMAGE:?}
wrap=${QMLOAD_WRAP:-}
case_name=${1:?case}
python=/usr/bin/python3 # Debian's, which has python3-serial
need_tools ser2net "$python"
"$python" -c 'import serial.rfc2217' 2>/dev/null || missing_prereq python3-serial

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-remote.XXXXXX")
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*"
  for f in "$work"/*.out "$work"/*.err "$work"/*.log; do [ -s "$f" ] && { echo "--- $f"; tail -n 20 "$f"; }; done
  exit 1
}

# A TCP port of 127.0.0.1 that nothing listens on now.
free_port() { "$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }

# start_sim NAME [options]: a device at 115200 baud on $work/NAME; its flash goes to $work/NAME.dump.
declare -A simPid=()
start_sim() {
  local name=$1; shift
  "$sim" --link "$work/$name" --baud 115200 --dump "$work/$name.dump" "$@" >"$work/$name.sim.log" 2>&1 &
  simPid[$name]=$!
  pids+=($!)
  for _ in $(seq 100); do grep -q '^READY ' "$work/$name.sim.log" && return 0; sleep 0.05; done
  fail "simulator $name did not start"
}
stop_sim() { kill -TERM "${simPid[$1]}"; wait "${simPid[$1]}" 2>/dev/null; }

# wait_listening PORT: until a TCP connection to it succeeds (it is closed at once).
wait_listening() {
  for _ in $(seq 100); do (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return 0; sleep 0.05; done
  fail "no server on port $1"
}

# start_ser2net NAME...: one ser2net serving each simulator NAME on a port of its own,
# with the README's configuration; the URLs in url[NAME].
declare -A url=()
start_ser2net() {
  local name port
  : >"$work/ser2net.yaml"
  for name in "$@"; do
    port=$(free_port)
    url[$name]=rfc2217://127.0.0.1:$port
    cat >>"$work/ser2net.yaml" <<YAML
connection: &$name
  accepter: telnet(rfc2217),tcp,127.0.0.1,$port
  connector: serialdev,$(readlink -f "$work/$name"),115200n81,local
  options:
    kickolduser: true
    chardelay: false
YAML
  done
  ser2net -n -d -u -P "$work/ser2net.pid" -c "$work/ser2net.yaml" >"$work/ser2net.log" 2>&1 &
  serverPid=$!
  pids+=($!)
  for name in "$@"; do wait_listening "${url[$name]##*:}"; done
}

# start_pyserial NAME: python3-serial's example server for simulator NAME.
start_pyserial() {
  local port
  port=$(free_port)
  url[$1]=rfc2217://127.0.0.1:$port
  "$python" "$here/remote_pyserial_server.py" "$port" "$(readlink -f "$work/$1")" >"$work/pyserial.log" 2>&1 &
  serverPid=$!
  pids+=($!)
  wait_listening "$port"
}

# run_cli NAME ARGS...: bounded in time; output in $work/NAME.out/.err, exit code in rc, seconds in elapsed.
run_cli() {
  local name=$1; shift
  local started=$SECONDS
  timeout -s INT 120 $wrap "$cli" "$@" >"$work/$name.out" 2>"$work/$name.err"
  rc=$?
  elapsed=$((SECONDS - started))
}
# The image's path as qmload-cli takes it: under Wine a drive path (a leading "/" is an option there).
image_arg() { if [ -n "$wrap" ]; then echo "Z:${work//\//\\}\\image.alf"; else echo "$work/image.alf"; fi; }
expect_rc() { [ "$rc" -eq "$1" ] || fail "exit code $rc, expected $1"; }
expect_text() { grep -qF -- "$2" "$work/$1.out" "$work/$1.err" || fail "$1: no \"$2\""; }

# An image with odd sizes whose random bytes include 0xFF, which Telnet escapes.
make_image() { $wrap "$tool" make "$work/image.alf" 0x08004000 $((40 * 256 + 17)) 0x08030000 $((256 + 200)) 11 ||
  fail "make image"; }
check_dump() {
  stop_sim "$1"
  $wrap "$tool" expect "$work/image.alf" "$work/expected.bin" || fail "expected flash"
  cmp "$work/expected.bin" "$work/$1.dump" || fail "flash of $1 differs from the image"
  echo "flash of $1 matches the image"
}

case $case_name in
identify) # the ladder from 9600 up: each step is a SET-BAUDRATE through ser2net
  start_sim dev
  start_ser2net dev
  run_cli identify identify --port "${url[dev]}"
  expect_rc 0
  expect_text identify "0x00c0ffee-12345678-9abcdef0 at 115200 baud"
  ;;
flash) # then the switch to 921600 after start; every data byte through Telnet
  start_sim dev
  start_ser2net dev
  make_image
  run_cli flash flash --port "${url[dev]}" "$(image_arg)"
  expect_rc 0
  expect_text flash "${url[dev]}: ok 0x00c0ffee"
  check_dump dev
  ;;
pyserial)
  start_sim dev
  start_pyserial dev
  make_image
  run_cli identify identify --port "${url[dev]}"
  expect_rc 0
  expect_text identify "at 115200 baud"
  run_cli flash flash --port "${url[dev]}" "$(image_arg)"
  expect_rc 0
  check_dump dev
  ;;
mixed) # two remote devices and a local one at once
  for i in 1 2 3; do start_sim "dev$i" --id "0x0000000$i-00000000-00000000"; done
  start_ser2net dev1 dev2
  make_image
  run_cli mixed flash --port "${url[dev1]}" --port "$work/dev3" --port "${url[dev2]}" "$work/image.alf"
  expect_rc 0
  for i in 1 2 3; do
    expect_text mixed "0x0000000$i-00000000-00000000"
    check_dump "dev$i"
  done
  ;;
killed) # the server dies mid-flash: a bounded, clear end; then a refused connection
  start_sim dev --write-ms 20
  start_ser2net dev
  make_image
  timeout -s INT 120 $wrap "$cli" flash --port "${url[dev]}" --json "$work/image.alf" >"$work/killed.out" \
    2>"$work/killed.err" &
  cliPid=$!
  for _ in $(seq 200); do grep -q '"event":"progress"' "$work/killed.out" && break; sleep 0.05; done
  grep -q '"event":"progress"' "$work/killed.out" || fail "the flash did not start"
  started=$SECONDS
  kill -KILL "$serverPid"
  wait "$cliPid"
  rc=$?
  elapsed=$((SECONDS - started))
  expect_rc 1
  [ "$elapsed" -le 20 ] || fail "the flash took $elapsed s to end after the server died"
  expect_text killed "${url[dev]}: the server closed the connection"
  grep -q '"event":"error"' "$work/killed.out" || fail "no error event"
  run_cli refused identify --port "${url[dev]}"
  expect_rc 1
  expect_text refused "Error opening port: ${url[dev]}: connection refused"
  echo "ended $elapsed s after the kill: $(grep -o '"message":"[^"]*"' "$work/killed.out")"
  ;;
*)
  fail "unknown case $case_name"
  ;;
esac
echo "PASS: remote $case_name"
