#!/usr/bin/env bash
# Flashing through an RFC 2217 server against flashing the same device directly;
# prints figures, asserts nothing. The 208 KiB image of bench/speed.sh (200 KiB
# program + 8 KiB resources) goes into a qmload-sim device at 115200 baud:
#   direct        its pty,
#   ser2net       ser2net on 127.0.0.1 with the README's configuration (chardelay off),
#   ser2net-cd    the same with ser2net's default character delay,
#   pyserial      python3-serial's example server (tests/e2e/remote_pyserial_server.py).
# For each: the seconds of the flash proper (as the command reports them), the
# ratio to the wire floor, and the cost each request adds over the direct run.
#   bench/remote_bench.sh [BUILD_DIR]      (default build/linux)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/linux}
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim
python=/usr/bin/python3
for tool in "$cli" "$sim"; do [ -x "$tool" ] || { echo "build $tool first"; exit 1; }; done
command -v ser2net >/dev/null || { echo "ser2net is missing (bash scripts/setup.sh)"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-remote-bench.XXXXXX")
pids=()
cleanup() {
  for pid in "${pids[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

source "$root/bench/sample.sh"
echo "image: $(stat -c %s "$work/bench.alf") bytes, $blocks blocks, $requests requests; floor $floor s"

"$sim" --link "$work/dev" --baud "$simBaud" --write-ms "$writeMs" >"$work/sim.log" 2>&1 &
pids+=($!)
for _ in $(seq 100); do grep -q '^READY ' "$work/sim.log" && break; sleep 0.05; done
pty=$(readlink -f "$work/dev")
freePort() { "$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'; }
waitListening() { for _ in $(seq 100); do (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null && return; sleep 0.05; done; }

# flash NAME PORT: prints a row; the direct run's seconds are kept in direct.
direct=
flash() {
  local secs
  "$cli" flash --port "$2" --json "$work/bench.alf" >"$work/$1.json" 2>"$work/$1.err" ||
    { echo "$1: flash failed: $(tail -n 3 "$work/$1.err")"; return; }
  secs=$(grep '"done"' "$work/$1.json" | grep -o '"seconds": *[0-9.]*' | grep -o '[0-9.]*$')
  [ -z "$direct" ] && direct=$secs
  awk -v n="$1" -v s="$secs" -v f="$floor" -v d="$direct" -v r="$requests" \
    'BEGIN { printf "%-11s %7.2f s  ratio to floor %5.2f  added per request %6.2f ms\n", n, s, s / f, (s - d) * 1000 / r }'
}

# ser2netRun NAME OPTION: a ser2net with the given extra option line for this run.
ser2netRun() {
  local port pid
  port=$(freePort)
  cat >"$work/$1.yaml" <<YAML
connection: &dev
  accepter: telnet(rfc2217),tcp,127.0.0.1,$port
  connector: serialdev,$pty,115200n81,local
  options:
    kickolduser: true
$2
YAML
  ser2net -n -d -u -P "$work/$1.pid" -c "$work/$1.yaml" >"$work/$1.log" 2>&1 &
  pid=$!
  waitListening "$port"
  flash "$1" "rfc2217://127.0.0.1:$port"
  kill -TERM "$pid"
  wait "$pid" 2>/dev/null || true
}

flash direct "$work/dev"
ser2netRun ser2net "    chardelay: false"
ser2netRun ser2net-cd ""
if "$python" -c 'import serial.rfc2217' 2>/dev/null; then
  port=$(freePort)
  "$python" "$root/tests/e2e/remote_pyserial_server.py" "$port" "$pty" >"$work/pyserial.log" 2>&1 &
  pyPid=$!
  waitListening "$port"
  sleep 3.5 # the example serves the next client only once its reader gives up on the probe's line (3 s)
  flash pyserial "rfc2217://127.0.0.1:$port"
  kill -TERM "$pyPid"
fi
