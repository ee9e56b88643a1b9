#!/usr/bin/env bash
# End-to-end cases of qmload-cli against qmload-sim on pseudo-terminals.
# Usage: e2e.sh CASE   with QMLOAD_CLI, QMLOAD_SIM and QMLOAD_E2E_IMAGE set to the
# three programs. Each case prints what it checks and exits non-zero on a mismatch.
set -uo pipefail

cli=${QMLOAD_CLI:?}
sim=${QMLOAD_SIM:?}
tool=${QMLOAD_E2E_IMAGE:?}
case_name=${1:?case}

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-e2e.XXXXXX")
declare -A simPid=()

cleanup() {
  for name in "${!simPid[@]}"; do kill -TERM "${simPid[$name]}" 2>/dev/null; done
  wait 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

fail() {
  echo "FAIL: $*"
  for f in "$work"/*.out "$work"/*.err; do
    [ -s "$f" ] && { echo "--- $f"; tail -n 20 "$f"; }
  done
  exit 1
}

# start_sim NAME [sim options...]: a simulated device whose port is $work/NAME and
# whose flash is dumped to $work/NAME.dump.
start_sim() {
  local name=$1; shift
  "$sim" --link "$work/$name" --dump "$work/$name.dump" "$@" >"$work/$name.sim.out" 2>"$work/$name.sim.err" &
  simPid[$name]=$!
  for _ in $(seq 100); do
    grep -q '^READY ' "$work/$name.sim.out" 2>/dev/null && return 0
    sleep 0.05
  done
  fail "simulator $name did not start"
}

# stop_sim NAME: ends it; it writes its flash on the way out.
stop_sim() {
  local pid=${simPid[$1]}
  kill -TERM "$pid" 2>/dev/null
  wait "$pid" 2>/dev/null
  unset "simPid[$1]"
}

# run_cli NAME ARGS...: qmload-cli bounded in time; stdout/stderr in $work/NAME.out/.err, exit code in $rc.
run_cli() {
  local name=$1; shift
  local started=$SECONDS
  timeout -s INT 120 "$cli" "$@" >"$work/$name.out" 2>"$work/$name.err"
  rc=$?
  elapsed=$((SECONDS - started))
}

# check_dump SIM IMAGE: the device's flash equals, byte for byte, what flashing IMAGE must leave.
check_dump() {
  "$tool" expect "$2" "$work/expected.bin" || fail "cannot compute the expected flash of $2"
  [ -f "$work/$1.dump" ] || fail "simulator $1 wrote no dump"
  cmp "$work/expected.bin" "$work/$1.dump" || fail "flash of $1 differs from $2"
  echo "flash of $1 matches $2"
}

# An image whose segments are all odd sizes: 3 blocks + 17 bytes of program,
# 1 block + 200 bytes of resources, and the 64-byte header block.
odd_image() {
  "$tool" make "$work/odd.alf" 0x08004000 $((3 * 256 + 17)) 0x08030000 $((256 + 200)) "${1:-7}" || fail "make image"
}

expect_rc() {
  [ "$rc" -eq "$1" ] || fail "exit code $rc, expected $1"
}

# expect_json_lines NAME: every line of NAME's stdout is one JSON object, each ended by a line end.
expect_json_lines() {
  [ -s "$work/$1.out" ] || fail "$1 printed nothing"
  [ -z "$(tail -c 1 "$work/$1.out")" ] || fail "the last line of $1 has no line end"
  python3 -c 'import json, sys
for n, line in enumerate(open(sys.argv[1], encoding="utf-8"), 1):
    try: ok = isinstance(json.loads(line), dict)
    except ValueError: ok = False
    if not ok: sys.exit("line %d is not a JSON object: %s" % (n, line.rstrip()))' "$work/$1.out" ||
    fail "a line of $1 is not a JSON object"
}

expect_text() {
  grep -qF -- "$2" "$work/$1.out" "$work/$1.err" || fail "\"$2\" not printed"
}

flash_ok() { # SIM ARGS...: flashes odd.alf into SIM with extra args and checks the result
  local name=$1; shift
  odd_image
  run_cli flash flash --port "$work/$name" "$@" --quiet "$work/odd.alf"
  expect_rc 0
  stop_sim "$name"
  check_dump "$name" "$work/odd.alf"
}

case "$case_name" in
identify-*)
  baud=${case_name#identify-}
  start_sim dev --baud "$baud" --id 0x01020304-a0b0c0d0-deadbeef
  run_cli id identify --port "$work/dev" --baud auto --json
  expect_rc 0
  grep -qF "\"id\":\"0x01020304-a0b0c0d0-deadbeef\"" "$work/id.out" || fail "identity not reported"
  grep -qF "\"baud\":$baud" "$work/id.out" || fail "baud $baud not reported"
  echo "identified at $baud in ${elapsed}s"
  ;;
flash)
  start_sim dev
  odd_image
  run_cli flash flash --port "$work/dev" --json "$work/odd.alf"
  expect_rc 0
  grep -q '"event":"found"' "$work/flash.out" || fail "no found event"
  grep -q '"event":"progress"' "$work/flash.out" || fail "no progress event"
  grep -qE '"event":"done","port":"[^"]*","seconds":[0-9.]+,"bytes":1305' "$work/flash.out" || fail "no done event"
  stop_sim dev
  check_dump dev "$work/odd.alf"
  ;;
flash-gap)
  start_sim dev --baud 921600
  flash_ok dev --baud 921600 --framing gap
  ;;
flash-id)
  start_sim dev --baud 38400 --id 0x00000001-00000002-00000003
  flash_ok dev --baud 38400 --id 0x00000001-00000002-00000003
  ;;
fault-drop)
  start_sim dev --drop-reply 5
  flash_ok dev
  ;;
fault-drop-every)
  start_sim dev --drop-every 4
  flash_ok dev
  ;;
fault-corrupt)
  start_sim dev --corrupt-reply 6
  flash_ok dev
  ;;
fault-corrupt-finish)
  # Reply 17 answers finish (identify, start, then seven blocks of two requests each):
  # the device has gone back to its own baud rate and the repeated finish must find it.
  start_sim dev --corrupt-reply 17
  flash_ok dev
  ;;
fault-late)
  # The 5th reply (a check-block) comes after its request has timed out and been repeated.
  start_sim dev --late-reply 5:300
  flash_ok dev
  ;;
fault-garbage)
  # Garbage and a corrupted reply on one port, a port that cannot be opened beside it:
  # with --json the device's and the port's messages are events too.
  start_sim dev --garbage 5:7 --corrupt-reply 4
  odd_image
  run_cli garbage flash --port "$work/dev" --port "$work/missing" --json "$work/odd.alf"
  expect_rc 1
  expect_json_lines garbage
  grep -qF '{"event":"log","port":"'"$work"'/missing","text":"Error opening port"}' "$work/garbage.out" ||
    fail "no log event for the port that cannot be opened"
  grep -qF '"text":"CRC error!"' "$work/garbage.out" || fail "no log event for the corrupted reply"
  grep -qF '{"event":"done","port":"'"$work"'/dev"' "$work/garbage.out" || fail "no done event"
  stop_sim dev
  check_dump dev "$work/odd.alf"
  ;;
silent)
  start_sim dev --silent-after-writes 2
  odd_image
  run_cli silent flash --port "$work/dev" --quiet "$work/odd.alf"
  expect_rc 1
  expect_text silent "Device not response"
  echo "ended after ${elapsed}s"
  ;;
protected)
  start_sim dev
  "$tool" make "$work/boot.alf" 0x08001000 600 0x08030000 100 || fail "make image"
  run_cli refused flash --port "$work/dev" --quiet "$work/boot.alf"
  expect_rc 1
  expect_text refused "0x08001000"
  expect_text refused "refused"
  ;;
killed)
  start_sim dev --write-ms 20
  "$tool" make "$work/big.alf" 0x08004000 $((200 * 256)) 0x08030000 100 || fail "make image"
  timeout -s INT 120 "$cli" flash --port "$work/dev" --json "$work/big.alf" >"$work/killed.out" 2>"$work/killed.err" &
  cliPid=$!
  for _ in $(seq 200); do grep -q '"event":"progress"' "$work/killed.out" && break; sleep 0.05; done
  kill -KILL "${simPid[dev]}"
  unset "simPid[dev]"
  wait "$cliPid"
  rc=$?
  expect_rc 1
  grep -q '"event":"error"' "$work/killed.out" || fail "no error event"
  grep -q '"event":"done"' "$work/killed.out" && fail "done reported for a lost device"
  echo "error: $(grep -o '"message":"[^"]*"' "$work/killed.out")"
  ;;
four)
  for i in 1 2 3 4; do start_sim "dev$i" --id "0x0000000$i-00000000-00000000" --baud 115200; done
  odd_image
  run_cli four flash --port "$work/dev1" --port "$work/dev2" --port "$work/dev3" --port "$work/dev4" "$work/odd.alf"
  expect_rc 0
  [ "$(grep -c ': ok ' "$work/four.out")" -eq 4 ] || fail "not four result lines"
  for i in 1 2 3 4; do
    expect_text four "0x0000000$i-00000000-00000000"
    stop_sim "dev$i"
    check_dump "dev$i" "$work/odd.alf"
  done
  ;;
interrupt)
  start_sim dev --write-ms 20
  "$tool" make "$work/big.alf" 0x08004000 $((200 * 256)) 0x08030000 100 || fail "make image"
  "$cli" flash --port "$work/dev" --json "$work/big.alf" >"$work/int.out" 2>"$work/int.err" &
  cliPid=$!
  for _ in $(seq 200); do grep -q '"event":"progress"' "$work/int.out" && break; sleep 0.05; done
  kill -INT "$cliPid"
  started=$SECONDS
  wait "$cliPid"
  rc=$?
  expect_rc 130
  [ $((SECONDS - started)) -le 5 ] || fail "took too long to stop"
  ;;
ports)
  mkdir -p "$work/simdir"
  "$sim" --link "$work/simdir/qm-e2e" >"$work/ports.sim.out" 2>&1 &
  simPid[ports]=$!
  for _ in $(seq 100); do grep -q '^READY ' "$work/ports.sim.out" && break; sleep 0.05; done
  QMLOAD_SIM_DIR=$work/simdir run_cli ports ports --json
  expect_rc 0
  grep -qF "\"port\":\"$work/simdir/qm-e2e\"" "$work/ports.out" || fail "the simulator's port is not listed"
  grep -qF "pseudo-terminal /dev/pts/" "$work/ports.out" || fail "the port is not described"
  QMLOAD_SIM_DIR=$work/simdir run_cli ports-text ports
  expect_rc 0
  expect_text ports-text "$work/simdir/qm-e2e"
  ;;
exit-codes)
  start_sim dev --baud 57600 # a rate outside the ladder: nobody answers
  odd_image
  run_cli notfound flash --port "$work/dev" --quiet "$work/odd.alf"
  expect_rc 1
  expect_text notfound "Devices are not found"
  run_cli noid identify --port "$work/dev" --baud 115200
  expect_rc 1
  expect_text noid "Devices are not found"
  echo nonsense >"$work/bad.alf"
  run_cli badimage flash --port "$work/dev" "$work/bad.alf"
  expect_rc 3
  expect_text badimage "is not AELF file"
  run_cli noimage flash --port "$work/dev" --json "$work/missing.alf"
  expect_rc 3
  expect_json_lines noimage
  expect_text noimage "Can't open aelf file"
  run_cli usage flash --port "$work/dev" --baud 12345 "$work/odd.alf"
  expect_rc 2
  run_cli usage2 flash "$work/odd.alf"
  expect_rc 2
  run_cli usage3 flash --port "$work/dev" --framing slow "$work/odd.alf"
  expect_rc 2
  ;;
*)
  fail "unknown case $case_name"
  ;;
esac
echo "PASS: $case_name"
