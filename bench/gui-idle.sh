#!/usr/bin/env bash
# Measures the Linux GUI under a private Xvfb; prints figures, asserts nothing.
#   1. idle: frames drawn and CPU seconds used by qmload during 10 s without input;
#   2. flashing the ~200 KiB sample through the GUI (click "Open", "Flush", wait
#      for the start screen) against `qmload-cli flash --framing gap` and
#      `--framing fast`, each on a fresh qmload-sim at 921600 baud.
# Usage: bench/gui-idle.sh [BUILD_DIR]   (default build/linux)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-$root/build/linux}" && pwd)
export QMLOAD_GUI=$build/app/glfw/qmload QMLOAD_CLI=$build/cli/qmload-cli QMLOAD_SIM=$build/sim/qmload-sim
examples=$root/examples
source "$root/tests/e2e/gui_common.sh"

guiWork=$(mktemp -d "${TMPDIR:-/tmp}/qmload-bench.XXXXXX")
trap guiCleanup EXIT
guiArtifacts=$guiWork/shots
mkdir -p "$guiArtifacts"
export QMLOAD_SIM_DIR=$guiWork/ports
ticks=$(getconf CLK_TCK)

cpuSeconds() { # PID: user+system CPU time so far
  awk -v t="$ticks" '{ printf "%.2f", ($14 + $15) / t }' "/proc/$1/stat"
}
frames() { grep -c '^frame' "$guiWork/app.log" || true; }
now() { date +%s.%N; }
elapsed() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.1f", b - a }'; }
pixelIs() { [ "$(guiPixel "$1" "$2")" = "$3" ]; }

image=$guiWork/sample.alf
"$QMLOAD_CLI" build-aelf --map "$examples/__output__.map" --cfg "$examples/test.cpp_CFG.bin" \
  --object "$examples/__target_out__.o" --res "$examples/test.cpp_RES.bin" -o "$image" >/dev/null
echo "image: $(stat -c %s "$image") bytes"

guiStartX
mkdir -p "$guiWork/run"

# 1. Idle.
guiStartApp "$guiWork/run" "$image"
sleep 1
f0=$(frames) c0=$(cpuSeconds "$guiAppPid")
sleep 10
f1=$(frames) c1=$(cpuSeconds "$guiAppPid")
echo "idle: $f0 frames at start-up (CPU ${c0} s), then $((f1 - f0)) frames and $(awk -v a="$c0" -v b="$c1" 'BEGIN{printf "%.2f", b-a}') CPU s in 10 s without input"
kill "$guiAppPid"
wait "$guiAppPid" 2>/dev/null || true

# 2. Flashing through the GUI.
guiStartSim "$QMLOAD_SIM_DIR/dev0" "$guiWork/gui-flash.bin" --baud 921600
index=$(guiIndexOfPort "$QMLOAD_SIM_DIR/dev0")
guiStartApp "$guiWork/run" "$image"
if [ "$index" -gt 0 ]; then
  guiClick 140 33
  guiClick 150 $((63 + 29 * index))
fi
guiClick 140 63
guiWaitFor 60 grep -q '^0x' "$guiWork/app.out" || guiFail "no device found"
sleep 0.3
fStart=$(frames) cStart=$(cpuSeconds "$guiAppPid") t0=$(now)
guiClick 140 77
guiWaitFor 5 pixelIs 30 40 181,45,69 || guiFail "flash did not start"
guiWaitFor 900 pixelIs 140 70 181,45,69 || guiFail "flash did not end"
t1=$(now)
sleep 0.5
matches() { if guiSegmentsMatch "$image" "$1"; then echo "device flash matches the image"; else echo "DEVICE FLASH DIFFERS"; fi; }
echo "gui flash: $(elapsed "$t0" "$t1") s, $(($(frames) - fStart)) frames, $(awk -v a="$cStart" -v b="$(cpuSeconds "$guiAppPid")" 'BEGIN{printf "%.2f", b-a}') CPU s (gap framing, as the GUI uses); $(matches "$guiWork/gui-flash.bin")"
kill "$guiAppPid"
wait "$guiAppPid" 2>/dev/null || true
kill "${guiPids[-1]}" 2>/dev/null || true
sleep 0.5

# 3. The command line on the same device model.
for framing in gap fast; do
  guiStartSim "$QMLOAD_SIM_DIR/cli-$framing" "$guiWork/cli-$framing.bin" --baud 921600
  t0=$(now)
  "$QMLOAD_CLI" flash --quiet --framing "$framing" --port "$QMLOAD_SIM_DIR/cli-$framing" "$image" >"$guiWork/cli.log" 2>&1 ||
    { cat "$guiWork/cli.log"; guiFail "qmload-cli flash failed"; }
  t1=$(now)
  sleep 0.5
  echo "cli flash --framing $framing: $(elapsed "$t0" "$t1") s; $(matches "$guiWork/cli-$framing.bin")"
  kill "${guiPids[-1]}" 2>/dev/null || true
  sleep 0.5
done
