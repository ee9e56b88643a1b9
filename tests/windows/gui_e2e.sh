#!/usr/bin/env bash
# The Windows GUI end to end: qmload.exe under Wine on an Xvfb display flashes an
# image into the Linux simulator, whose pty is mapped to COM7 in the Wine prefix.
#
#   gui_e2e.sh QMLOAD_EXE IMAGE_TOOL_EXE WORKDIR
#
# The simulator is $QMLOAD_SIM, or the newest build/*/sim/qmload-sim of this
# repository. A missing prerequisite (the simulator, Wine, Xvfb, the tools, a Wine
# prefix that cannot be made) skips the test in a developer's run and fails it
# under CI (tests/prereq.sh). Screenshots of every stage are written to
# WORKDIR/shot-*.png.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
qmload=${1:?qmload.exe}
imageTool=${2:?image tool}
work=${3:?work dir}
comLink=/tmp/qmload-wine-com7 # the fixed path COM7 points at
com=COM7

failLogs=(gui.out sim.err)
. "$here/gui-lib.sh"

sim=${QMLOAD_SIM:-}
if [ -z "$sim" ]; then
  sim=$(ls -t "$root"/build/*/sim/qmload-sim 2>/dev/null | head -n 1)
fi
[ -n "$sim" ] && [ -x "$sim" ] ||
  missing_prereq "the Linux qmload-sim (build it: cmake --preset linux && cmake --build build/linux --target qmload-sim; or set QMLOAD_SIM)"
guiNeedTools

rm -rf "$work"
mkdir -p "$work"
pids=()
mapped=0
cleanup() {
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null; done
  # Other Windows tests must not see a COM7 they did not ask for.
  [ "$mapped" -eq 1 ] && "$root/scripts/wine-map-com.sh" --remove "$com" >/dev/null 2>&1
  # Wine's desktop is tied to our display: stop the server before the display goes.
  "$root/scripts/wine-stop.sh"
  [ -n "$xvfbPid" ] && kill "$xvfbPid" 2>/dev/null
  # A warm server without a display again, for the programs that come next.
  env -u DISPLAY "$wineRun" --warm-up
  wait 2>/dev/null
  rm -f "$comLink"
}
trap cleanup EXIT

guiWineReady

# The image, and the flash the device must hold afterwards. 41 program blocks,
# 2 resource blocks and the header block: long enough to see the bar move.
"$wineRun" "$imageTool" make "$work/image.alf" 0x08004000 $((40 * 256 + 17)) 0x08030000 $((256 + 200)) 11 \
  >"$work/image.log" 2>&1 || fail "could not make the image"
"$wineRun" "$imageTool" expect "$work/image.alf" "$work/expected.bin" >>"$work/image.log" 2>&1 ||
  fail "could not compute the expected flash"

# A display of our own.
startXvfb 91 120 1024x768

# The device on a fixed link, mapped to COM7. This restarts the wineserver, now
# with our display set, so Wine's desktop lives on it.
rm -f "$comLink"
"$sim" --link "$comLink" --dump "$work/dump.bin" --verbose >"$work/sim.out" 2>"$work/sim.err" &
pids+=($!)
for _ in $(seq 100); do grep -q '^READY ' "$work/sim.out" 2>/dev/null && break; sleep 0.05; done
grep -q '^READY ' "$work/sim.out" || fail "the simulator did not start"
# The simulator sets its pty's speed as a free number (BOTHER), which Wine's
# GetCommState cannot report; give the line the same speed as a standard rate.
stty -F "$comLink" 115200 || fail "could not set the pty's speed"
mapped=1
"$root/scripts/wine-map-com.sh" "$com" "$comLink" || fail "could not map $com"

redRun() { # NAME Y: how many pixels of row Y have the button colour
  countColour "$1" "280x1+0+$2" '#B52D45'
}
click() { # X Y in client coordinates
  xdotool mousemove --window "$window" "$1" "$2" sleep 0.1 click 1
}

# stdout goes to a file: the identity is read from it.
"$wineRun" "$qmload" "$work/image.alf" >"$work/gui.out" 2>&1 &
pids+=($!)
guiPid=$!
waitFor 60 "the qmload window" findWindow
sleep 1
geometry=$(xdotool getwindowgeometry "$window" | sed -n 's/.*Geometry: //p')
echo "window $window, client area $geometry"
[ "$geometry" = "280x160" ] || fail "client area is $geometry, expected 280x160"
shot 1-start
# This prefix maps "Arial", so the window has its font and says nothing about it.
grep -q '^font ' "$work/gui.out" && fail "qmload.exe did not find Arial: $(grep '^font ' "$work/gui.out")"
expectPixel 1-start 3 3 "srgb(30,30,30)" "clear colour"
expectPixel 1-start 40 60 "srgb(181,45,69)" "the Open button"
# The panel: window colour (alpha 215) over the clear colour.
expectPixel 1-start 20 130 "srgb(30,32,38)" "the panel"

# With no input the loop blocks in GetMessageW: over 3 s the idle program uses
# far less than the 300 ticks (1/100 s) a spinning loop would.
cpuTicks() { awk '{print $14 + $15}' "/proc/$guiPid/stat"; }
before=$(cpuTicks)
sleep 3
idle=$(($(cpuTicks) - before))
echo "CPU while idle for 3 s: $idle ticks of 1/100 s ($(cat /proc/$guiPid/comm))"
[ "$idle" -lt 100 ] || fail "the frame loop spins while idle ($idle ticks in 3 s)"

# The combo shows the mapped port; open it.
click 140 60
sleep 1
shot 2-opened
waitFor 60 "the identity on stdout" grep -q '0x00c0ffee-12345678-9abcdef0' "$work/gui.out"
sleep 0.5
shot 3-device-ready

# Press "Flush", look at the bar once while it moves, then wait for the finish.
click 140 78
sleep 3
shot 4-flashing
filled=$(redRun 4-flashing 60)
echo "progress bar after 3 s: $filled pixels filled"
[ "$filled" -gt 0 ] || fail "the progress bar shows nothing"
finished() { [ -f "$work/dump.bin" ] && grep -q 'dump' "$work/sim.err"; }
waitFor 120 "the end of the flash (the simulator's dump)" finished
sleep 1
shot 5-start-again
expectPixel 5-start-again 40 60 "srgb(181,45,69)" "the Open button after the flash"

cmp "$work/dump.bin" "$work/expected.bin" || fail "the device's flash differs from the image"
kill -0 "$guiPid" 2>/dev/null || fail "qmload.exe ended by itself"

# Closing the window ends the program with exit code 0.
closeWindow "$guiPid"
echo "the device holds the image, qmload.exe ended with 0 when closed; screenshots in $work"
exit 0
