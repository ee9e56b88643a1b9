#!/usr/bin/env bash
# Real lines against the simulator; prints figures, asserts nothing.
#   1. The sample image (examples/, built with build-aelf) flashed with
#      `qmload-cli flash` (fast framing) behind a USB adapter whose latency timer
#      is 0 (none), 1 and 16 ms (`qmload-sim --latency-ms`).
#   2. The time from a hang-up of the line in the middle of a flash
#      (`qmload-sim --hangup-after`) to the end of `qmload-cli flash`.
#   bench/real_lines.sh [BUILD_DIR]      (default build/linux)
# The GUI's time from a hang-up to its pop-up is printed by the GUI end-to-end
# case lost-port (tests/e2e/gui.sh).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/linux}
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim
[ -x "$cli" ] && [ -x "$sim" ] || { echo "build qmload-cli and qmload-sim in $build first"; exit 1; }

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-real-lines.XXXXXX")
simPid=
cleanup() {
  [ -n "$simPid" ] && kill -TERM "$simPid" 2>/dev/null && wait "$simPid" 2>/dev/null
  rm -rf "$work"
}
trap cleanup EXIT

ex=$root/examples
"$cli" build-aelf --map "$ex/__output__.map" --cfg "$ex/test.cpp_CFG.bin" --object "$ex/__target_out__.o" \
  --res "$ex/test.cpp_RES.bin" -o "$work/sample.alf" >/dev/null
echo "sample image: $(stat -c %s "$work/sample.alf") bytes"

startSim() {
  "$sim" --link "$work/dev" --verbose "$@" >"$work/sim.out" 2>"$work/sim.log" &
  simPid=$!
  for _ in $(seq 100); do grep -q '^READY ' "$work/sim.out" 2>/dev/null && return; sleep 0.05; done
  echo "the simulator did not start"; exit 1
}
stopSim() {
  kill -TERM "$simPid" 2>/dev/null || true
  wait "$simPid" 2>/dev/null || true
  simPid=
}

printf '%-16s %10s\n' "adapter latency" "flash (s)"
for latency in 0 1 16; do
  startSim --latency-ms "$latency"
  if "$cli" flash --port "$work/dev" --json "$work/sample.alf" >"$work/flash.json" 2>"$work/flash.err"; then
    secs=$(grep '"done"' "$work/flash.json" | grep -o '"seconds": *[0-9.]*' | grep -o '[0-9.]*$')
    printf '%-16s %10.2f\n' "$latency ms" "$secs"
  else
    printf '%-16s %10s\n' "$latency ms" "failed"
    cat "$work/flash.err"
  fi
  stopSim
done

# Hang-up to exit: the line hangs up once reply 200 (a block in the middle) is out.
# The watcher notes the moment the simulator logs the hang-up; polling every 2 ms.
startSim --hangup-after 200
"$cli" flash --port "$work/dev" "$work/sample.alf" >"$work/hangup.out" 2>&1 &
cliPid=$!
until grep -q 'hung up' "$work/sim.log" 2>/dev/null; do sleep 0.002; done
hungUp=$(date +%s%N)
status=0
wait "$cliPid" || status=$?
ended=$(date +%s%N)
stopSim
echo "hang-up to the end of qmload-cli flash: $(( (ended - hungUp) / 1000000 )) ms (exit $status: $(tail -n 1 "$work/hangup.out"))"
