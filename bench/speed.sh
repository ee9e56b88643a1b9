#!/usr/bin/env bash
# Flashing speed against the simulator, side by side in one run; prints figures,
# asserts nothing. The 208 KiB image (a 200 KiB random program and 8 KiB of random
# resources, built with build-aelf) goes into qmload-sim devices listening at
# 115200 baud:
#   identify      `qmload-cli identify` up the baud ladder from 9600: the whole
#                 command, median of three runs;
#   flash x1      `qmload-cli flash --baud 115200` into one device;
#   flash x8      the same into eight devices at once (eight --port options);
#   round trip    build/.../bench/session_latency: a check-block request and its
#                 reply at 921600 baud, the median over the wire time of the two frames.
# For each flash: the whole command (process start to exit) and the flash proper
# (start to finish answered, as the command reports it) against the wire floor,
# and what each request costs over its wire time. The floor is the time the bytes
# of every frame need on the line both ways (identify and start at the device's own
# baud rate, everything after start at 921600) plus the simulator's write time per
# block; the whole command's floor adds nothing else.
#   bench/speed.sh [BUILD_DIR]      (default build/linux)
# QMLOAD_BENCH_GAP=1 adds one device with --framing gap (about three minutes).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/linux}
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim
latency=$build/bench/session_latency
for tool in "$cli" "$sim" "$latency"; do
  [ -x "$tool" ] || { echo "build qmload-cli, qmload-sim and session_latency in $build first"; exit 1; }
done

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-speed.XXXXXX")
sims=()
cleanup() {
  for pid in "${sims[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

source "$root/bench/sample.sh"
floors="$floor $(awk -v f="$floor" -v sb="$simBaud" 'BEGIN { printf "%.4f", f + 48 * 10 / sb }')"
read -r floor wholeFloor <<<"$floors"
echo "image: $(stat -c %s "$work/bench.alf") bytes, $blocks blocks, $requests requests;" \
  "floor: flash proper $floor s, whole command $wholeFloor s"

# startSims N: N simulators with links dev0..; their pids in sims.
startSims() {
  sims=()
  for i in $(seq 0 $(($1 - 1))); do
    rm -f "$work/sim$i.log"
    "$sim" --link "$work/dev$i" --baud "$simBaud" --write-ms "$writeMs" >"$work/sim$i.log" 2>&1 &
    sims+=($!)
  done
  for i in $(seq 0 $(($1 - 1))); do
    for _ in $(seq 100); do grep -q '^READY ' "$work/sim$i.log" && break; sleep 0.05; done
  done
}
stopSims() {
  for pid in "${sims[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  for pid in "${sims[@]}"; do wait "$pid" 2>/dev/null || true; done
  sims=()
}
nowNs() { date +%s%N; }
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }

printf '%-10s %-6s %12s %8s %8s %12s %8s %8s %14s\n' run port "whole s" floor ratio "flash s" floor ratio "us/request"

# Identify: the ladder from 9600 to the device's 115200.
startSims 1
times=()
for _ in 1 2 3; do
  t0=$(nowNs)
  "$cli" identify --port "$work/dev0" >"$work/identify.out" 2>&1 || { echo "identify failed"; cat "$work/identify.out"; }
  times+=($(( $(nowNs) - t0 )))
done
stopSims
identifyMs=$(printf '%s\n' "${times[@]}" | sort -n | sed -n 2p | awk '{ printf "%.0f", $1 / 1e6 }')
printf '%-10s %-6s %12s   (the ladder 9600 -> 115200, median of three: %s)\n' identify dev0 "$identifyMs ms" \
  "$(tail -n 1 "$work/identify.out")"

# run NAME DEVICES FRAMING: flashes, then prints one line per device.
run() {
  local name=$1 n=$2 framing=$3 ports=() t0 whole
  startSims "$n"
  for i in $(seq 0 $((n - 1))); do ports+=(--port "$work/dev$i"); done
  t0=$(nowNs)
  if ! "$cli" flash "${ports[@]}" --baud "$simBaud" --framing "$framing" --json "$work/bench.alf" \
    >"$work/$name.json" 2>"$work/$name.err"; then
    echo "$name: flash failed"; cat "$work/$name.err"; stopSims; return
  fi
  whole=$(awk -v ns=$(( $(nowNs) - t0 )) 'BEGIN { printf "%.3f", ns / 1e9 }')
  stopSims
  grep '"done"' "$work/$name.json" | while read -r line; do
    local port secs
    port=$(grep -o '"port": *"[^"]*"' <<<"$line" | sed 's/.*"\([^"]*\)"$/\1/')
    secs=$(grep -o '"seconds": *[0-9.]*' <<<"$line" | grep -o '[0-9.]*$')
    printf '%-10s %-6s %12.3f %8.3f %8s %12.3f %8.3f %8s %14.0f\n' "$name" "$(basename "$port")" "$whole" \
      "$wholeFloor" "$(ratio "$whole" "$wholeFloor")" "$secs" "$floor" "$(ratio "$secs" "$floor")" \
      "$(awk -v s="$secs" -v f="$floor" -v r="$requests" 'BEGIN { print (s - f) * 1e6 / r }')"
  done
}

run "flash x1" 1 fast
run "flash x8" 8 fast
[ "${QMLOAD_BENCH_GAP:-0}" = 1 ] && run "gap x1" 1 gap

echo
"$latency" 500
