#!/usr/bin/env bash
# qmload (Linux GUI) end to end under a private Xvfb, against qmload-sim on a
# pseudo-terminal. Cases:
#   flash               choose the simulator's port in the combo box, "Open", wait
#                       for the identity on stdout, "Flush", wait for the start
#                       screen, then the device's flash holds every segment.
#   close-during-flash  close the window while the 200 KiB sample is being written:
#                       qmload ends at once and cleanly.
#   drop                two files dropped on the window: the toolchain row goes
#                       away and "Flush" reads the second (last) file.
#   idle                without input the frame loop blocks: no frame is drawn
#                       while nothing happens, one or more per click.
#   lost-port           the simulator hangs up in the middle of the flash: "Port
#                       lost" on stdout, the "Device not response" pop-up, "Close"
#                       back to the start screen; "Open" again on the port, which
#                       no longer exists, ends in "Devices are not found".
# Needs QMLOAD_GUI, QMLOAD_CLI, QMLOAD_SIM, QMLOAD_CLOSE_WINDOW, QMLOAD_EXAMPLES;
# screenshots go to QMLOAD_GUI_ARTIFACTS.
#
# The simulator listens at 921600 baud: the identify request waits one worker tick,
# which only a device answering at that rate beats, so discovery walks the whole
# baud ladder and finds the device at its last step.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../prereq.sh"
source "$here/gui_common.sh"
case_name=${1:?case}
: "${QMLOAD_GUI:?}" "${QMLOAD_CLI:?}" "${QMLOAD_SIM:?}" "${QMLOAD_CLOSE_WINDOW:?}" "${QMLOAD_EXAMPLES:?}"

guiWork=$(mktemp -d "${TMPDIR:-/tmp}/qmload-gui.XXXXXX")
trap guiCleanup EXIT
guiArtifacts=${QMLOAD_GUI_ARTIFACTS:-$guiWork/shots}
mkdir -p "$guiArtifacts"
rm -f "$guiArtifacts"/*.png
export QMLOAD_SIM_DIR=$guiWork/ports
simLink=$QMLOAD_SIM_DIR/dev0
dump=$guiWork/flash.bin
identity=0x00c0ffee-12345678-9abcdef0
red=181,45,69 # button and progress colour

# Client coordinates of the widgets: window at 15,15, 4 px padding and spacing.
comboX=140 comboY=33 itemX=150 itemY0=63 itemStep=29
openX=140 openY=63 openProbeY=70
flushX=140 flushY=77
barX=30 barY=40
popupCloseX=135 popupCloseY=101 # "Close" of a "Flush error!" pop-up

buildSmallImage() {
  # A 4 KiB program and 300 bytes of resources: 19 blocks with the header.
  cat >"$guiWork/small.map" <<'MAP'
.text           0x08004000      0x1000
                0x08004000      __entryPoint__
                0x08004101      loop
                0x08004200      ModbusHGroups_Table
                0x08004240      ModbusIGroups_Table
                0x08004280      ModbusRemoteRegTables
                0x08005000      _etext
.bss            0x20000000      0x100
MAP
  head -c 300 "$QMLOAD_EXAMPLES/test.cpp_RES.bin" >"$guiWork/small-res.bin"
  "$QMLOAD_CLI" build-aelf --map "$guiWork/small.map" --cfg "$QMLOAD_EXAMPLES/test.cpp_CFG.bin" \
    --object "$QMLOAD_EXAMPLES/__target_out__.o" --res "$guiWork/small-res.bin" -o "$1" >"$guiWork/build.log"
}

buildSampleImage() {
  "$QMLOAD_CLI" build-aelf --map "$QMLOAD_EXAMPLES/__output__.map" --cfg "$QMLOAD_EXAMPLES/test.cpp_CFG.bin" \
    --object "$QMLOAD_EXAMPLES/__target_out__.o" --res "$QMLOAD_EXAMPLES/test.cpp_RES.bin" -o "$1" >"$guiWork/build.log"
}

pixelIs() { [ "$(guiPixel "$1" "$2")" = "$3" ]; }
pixelIsNot() { ! pixelIs "$@"; }
identityPrinted() { grep -qx "$identity" "$guiWork/app.out"; }
appEnded() { ! kill -0 "$guiAppPid" 2>/dev/null; }

# startAll [image]: Xvfb (once), the simulator and qmload (two folders below the
# work folder, so its default paths stay inside it).
startAll() {
  [ -n "${DISPLAY:-}" ] && [ -s "$guiWork/display" ] || guiStartX
  rm -f "$dump"
  # shellcheck disable=SC2086
  guiStartSim "$simLink" "$dump" --baud 921600 --verbose ${QMLOAD_GUI_SIM_OPTIONS:-}
  mkdir -p "$guiWork/run/a/b"
  guiStartApp "$guiWork/run/a/b" "$@"
  guiWaitFor 5 pixelIs $openX $openProbeY $red || guiFail "no red \"Open\" button on the start screen"
}

# Chooses the simulator's port in the combo box, presses "Open" and waits until
# the device has answered.
openDevice() {
  local index
  index=$(guiIndexOfPort "$simLink")
  [ "$index" -ge 0 ] || guiFail "the simulator's port is not listed"
  [ "$index" -le 2 ] || guiFail "the simulator's port is entry $index; the drop-down shows three"
  if [ "$index" -gt 0 ]; then
    guiClick $comboX $comboY
    guiShot 2-port-list
    guiClick $itemX $((itemY0 + itemStep * index))
  fi
  guiClick $openX $openY
  guiShot 3-waiting
  guiWaitFor 60 identityPrinted || guiFail "no identity on stdout"
  [ "$(grep -c '^0x' "$guiWork/app.out")" = 1 ] || guiFail "more than one identity printed"
  sleep 0.2
  guiShot 4-device
}

# True when the device was found by a reply that arrived late: the identify
# request at 921600 baud timed out after its one tick, discovery moved the line
# back to 9600 baud, and the reply, which a pseudo-terminal delivers at any line
# speed, was taken as the answer there. Every later request then reaches the
# device as noise; the simulator logs the requests it could not read.
foundAtWrongBaud() {
  awk '/request cmd 0 / { answered = NR } /noise/ { if (answered) late = 1 } END { exit !late }' "$guiWork/sim.log"
}

# openAndFlush IMAGE: start, choose the port, "Open", "Flush", until the progress
# bar fills. A discovery that ended on a late reply (see foundAtWrongBaud) is
# started over, at most three times in all.
openAndFlush() {
  local attempt
  for attempt in 1 2 3; do
    startAll "$1"
    guiShot 1-start
    openDevice
    guiClick $flushX $flushY
    if guiWaitFor 15 pixelIs $barX $barY $red; then return 0; fi
    if foundAtWrongBaud; then
      echo "note: attempt $attempt found the device through a late identify reply while at another baud rate; starting over"
      cp "$guiWork/sim.log" "$guiWork/sim-attempt$attempt.log"
      guiStopAppAndSim
      continue
    fi
    guiFail "the progress bar did not start filling"
  done
  guiFail "three discoveries in a row ended on a late reply"
}

closeWindow() {
  "$QMLOAD_CLOSE_WINDOW" "$guiWindow" || guiFail "could not ask the window to close"
  guiWaitFor 10 appEnded || guiFail "qmload did not end after its window was closed"
  local status=0
  wait "$guiAppPid" || status=$?
  [ "$status" = 0 ] || guiFail "qmload ended with status $status"
  if grep -qE 'AddressSanitizer|runtime error|LeakSanitizer' "$guiWork/app.log"; then
    guiFail "sanitizer report in qmload's output"
  fi
}

case $case_name in
flash)
  image=$guiWork/small.alf
  buildSmallImage "$image"
  openAndFlush "$image"
  guiShot 5-flushing
  guiWaitFor 120 pixelIs $openX $openProbeY $red || guiFail "the start screen did not come back"
  guiShot 6-done
  guiWaitFor 10 test -s "$dump" || guiFail "the simulator wrote no flash dump"
  sleep 0.5 # the dump is written right after the finish reply
  guiSegmentsMatch "$image" "$dump" || guiFail "the device's flash differs from the image"
  closeWindow
  echo "gui flash: identity $identity, $(grep -c '^frame' "$guiWork/app.log") frames drawn, flash matches the image"
  ;;
close-during-flash)
  image=$guiWork/sample.alf
  buildSampleImage "$image"
  openAndFlush "$image"
  guiShot 5-flushing
  closeWindow
  kill -0 "$guiSimPid" || guiFail "the simulator died with the GUI"
  echo "gui close-during-flash: qmload ended cleanly while flashing"
  ;;
drop)
  : "${QMLOAD_DROP_FILES:?}"
  startAll
  toolchainX=80 toolchainY=92 # "parse map1"
  pixelIs $toolchainX $toolchainY $red || guiFail "no toolchain row without a program path"
  guiShot 1-start
  "$QMLOAD_DROP_FILES" "$guiWindow" 140 80 "$guiWork/first.alf" "$guiWork/second.alf" || guiFail "the drop failed"
  guiWaitFor 5 pixelIsNot $toolchainX $toolchainY $red || guiFail "the toolchain row is still shown after the drop"
  guiShot 1b-dropped
  openDevice
  guiClick $flushX $flushY
  guiWaitFor 5 grep -q "^Can't open aelf file" "$guiWork/app.out" || guiFail "\"Flush\" did not try to read the image"
  grep -qx "Can't open aelf file '$guiWork/second.alf'" "$guiWork/app.out" || guiFail "\"Flush\" did not read the last dropped file"
  pixelIs 40 $flushY $red || guiFail "the device screen did not stay" # the left "Close"
  closeWindow
  echo "gui drop: toolchain row hidden, the last dropped file is the program path"
  ;;
idle)
  guiStartX
  mkdir -p "$guiWork/run/a/b"
  guiStartApp "$guiWork/run/a/b"
  guiWaitFor 5 pixelIs $openX $openProbeY $red 2>/dev/null || true
  guiShot 1-start
  startFrames=$(grep -c '^frame' "$guiWork/app.log")
  [ "$startFrames" -ge 1 ] || guiFail "no frame drawn at start-up"
  sleep 2
  idleFrames=$(( $(grep -c '^frame' "$guiWork/app.log") - startFrames ))
  [ "$idleFrames" = 0 ] || guiFail "$idleFrames frames drawn without input"
  guiClick 222 33 # "Refresh"
  clickFrames=$(( $(grep -c '^frame' "$guiWork/app.log") - startFrames ))
  [ "$clickFrames" -ge 2 ] || guiFail "a click drew $clickFrames frames"
  sleep 1
  afterFrames=$(( $(grep -c '^frame' "$guiWork/app.log") - startFrames ))
  [ "$afterFrames" = "$clickFrames" ] || guiFail "frames went on after the click: $clickFrames, then $afterFrames"
  closeWindow
  echo "gui idle: $startFrames frames at start-up, none while idle, $clickFrames for a click"
  ;;
lost-port)
  image=$guiWork/small.alf
  buildSmallImage "$image"
  # Reply 20 is the answer to a write-block in the middle of the flash.
  QMLOAD_GUI_SIM_OPTIONS="--hangup-after 20" openAndFlush "$image"
  guiWaitFor 30 grep -q "hung up" "$guiWork/sim.log" || guiFail "the simulator did not hang up"
  hungUp=$(date +%s.%N)
  guiWaitFor 30 pixelIs $popupCloseX $popupCloseY $red || guiFail "no \"Device not response\" pop-up"
  popup=$(date +%s.%N)
  guiShot 5-device-not-response
  [ "$(grep -c "^Port lost: $simLink" "$guiWork/app.out")" = 1 ] || guiFail "\"Port lost: $simLink\" not printed once"
  guiClick $popupCloseX $popupCloseY
  guiWaitFor 5 pixelIs $openX $openProbeY $red || guiFail "\"Close\" did not return to the start screen"
  guiShot 6-start-again
  guiClick $openX $openY # the lost port is still chosen; its device node is gone
  guiWaitFor 30 pixelIs $popupCloseX $popupCloseY $red || guiFail "no \"Devices are not found\" pop-up"
  guiShot 7-devices-not-found
  grep -q "^Error opening port" "$guiWork/app.out" || guiFail "opening the lost port was not reported"
  guiClick $popupCloseX $popupCloseY
  guiWaitFor 5 pixelIs $openX $openProbeY $red || guiFail "\"Close\" did not return to the start screen"
  closeWindow
  echo "gui lost-port: pop-up $(awk -v a="$hungUp" -v b="$popup" 'BEGIN{printf "%.1f", b - a}') s after the hang-up (0.1 s polling), then \"Devices are not found\" on the missing port"
  ;;
*)
  echo "unknown case $case_name" >&2
  exit 2
  ;;
esac
