#!/usr/bin/env bash
# Flashing speed against the simulator; prints figures, asserts nothing.
# A 200 KiB program + 8 KiB resource image is flashed with `qmload-cli flash`
#   1. into one device with --framing fast,
#   2. into one device with --framing gap,
#   3. into four devices at once with --framing fast.
# For each run it prints the seconds of the flash proper (start to finish, as the
# command reports them), the wire-time floor and their ratio. The floor is the
# time the bytes of every frame need on the line both ways (start at the device's
# own baud rate, everything after it at 921600) plus the simulator's write time
# for each block.
#   bench/flash_bench.sh [BUILD_DIR]      (default build/linux)
# QMLOAD_BENCH_GAP=0 leaves out the gap run, which takes about three minutes.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/linux}
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim
if [ ! -x "$cli" ] || [ ! -x "$sim" ]; then
  (cd "$root" && cmake --preset linux >/dev/null &&
    cmake --build --preset linux --target qmload-cli qmload-sim >/dev/null)
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-flash-bench.XXXXXX")
sims=()
cleanup() {
  for pid in "${sims[@]}"; do kill -TERM "$pid" 2>/dev/null || true; done
  wait 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT

simBaud=115200
writeMs=1
fastBaud=921600
program=$((200 * 1024))
resources=$((8 * 1024))

# The image: the program at 0x08004000 from a random flat flash image, the
# resources at the template's resAddr (0x08036000), the header block.
cat >"$work/bench.map" <<MAP
.text           0x08004000      0x$(printf %x $program)
                0x08004000      __entryPoint__
                0x08004101      loop
                0x08004200      ModbusHGroups_Table
                0x08004240      ModbusIGroups_Table
                0x08004280      ModbusRemoteRegTables
                0x$(printf %08x $((0x08004000 + program)))      _etext
.bss            0x20000000      0x100
MAP
head -c $((0x4000 + program)) /dev/urandom >"$work/flash.o"
head -c "$resources" /dev/urandom >"$work/res.bin"
"$cli" build-aelf --map "$work/bench.map" --cfg "$root/examples/test.cpp_CFG.bin" --object "$work/flash.o" \
  --res "$work/res.bin" -o "$work/bench.alf" >/dev/null

blocks=$(( (program + 255) / 256 + (resources + 255) / 256 + 1 ))
floor=$(awk -v blocks="$blocks" -v sb="$simBaud" -v fb="$fastBaud" -v w="$writeMs" 'BEGIN {
  start = 48 * 10 / sb                      # start request and reply, 24 bytes each
  perBlock = (24 + 24 + 280 + 24) * 10 / fb  # check-block and write-block, both ways
  finish = 48 * 10 / fb
  printf "%.3f", start + blocks * (perBlock + w / 1000) + finish }')
echo "image: $(stat -c %s "$work/bench.alf") bytes, $blocks blocks of 256; floor ${floor} s per device"

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

# run NAME DEVICES FRAMING: flashes, then prints one line per device.
run() {
  local name=$1 n=$2 framing=$3 ports=()
  startSims "$n"
  for i in $(seq 0 $((n - 1))); do ports+=(--port "$work/dev$i"); done
  if ! "$cli" flash "${ports[@]}" --framing "$framing" --json "$work/bench.alf" >"$work/$name.json" 2>"$work/$name.err"; then
    echo "$name: flash failed"; cat "$work/$name.err"; stopSims; return
  fi
  stopSims
  grep '"done"' "$work/$name.json" | while read -r line; do
    local port secs
    port=$(grep -o '"port": *"[^"]*"' <<<"$line" | sed 's/.*"\([^"]*\)"$/\1/')
    secs=$(grep -o '"seconds": *[0-9.]*' <<<"$line" | grep -o '[0-9.]*$')
    printf '%-12s %-6s %8.2f s  floor %6.2f s  ratio %5.2f\n' "$name" "$(basename "$port")" "$secs" "$floor" \
      "$(awk -v s="$secs" -v f="$floor" 'BEGIN { print s / f }')"
  done
}

run fast 1 fast
[ "${QMLOAD_BENCH_GAP:-1}" = 1 ] && run gap 1 gap
run fast-x4 4 fast
