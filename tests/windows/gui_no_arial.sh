#!/usr/bin/env bash
# qmload.exe under Wine on an Xvfb display, in a Wine prefix where "Arial" is not
# mapped to any font (scripts/wine-env.sh, QMLOAD_WINE_NO_ARIAL=1): the window must
# come up with another installed font, draw its labels, say in one line on stdout
# which font it uses, and close normally.
#
#   gui_no_arial.sh QMLOAD_EXE WORKDIR
#
# A missing prerequisite (Wine, Xvfb, the tools, a Wine prefix that cannot be
# made) skips the test in a developer's run and fails it under CI
# (tests/prereq.sh). The screenshot is WORKDIR/shot-1-start.png.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
qmload=${1:?qmload.exe}
work=${2:?work dir}
export QMLOAD_WINE_NO_ARIAL=1

failLogs=(gui.out gui.err)
. "$here/gui-lib.sh"
guiNeedTools

rm -rf "$work"
mkdir -p "$work"
guiPid=
cleanup() {
  [ -n "$guiPid" ] && kill "$guiPid" 2>/dev/null
  # Wine's desktop is tied to our display: stop the server before the display goes.
  "$root/scripts/wine-stop.sh"
  [ -n "$xvfbPid" ] && kill "$xvfbPid" 2>/dev/null
  wait 2>/dev/null
}
trap cleanup EXIT

startXvfb 61 90 640x480
# The server of this prefix is started afresh, on our display.
"$root/scripts/wine-stop.sh"
guiWineReady

"$wineRun" "$qmload" >"$work/gui.out" 2>"$work/gui.err" &
guiPid=$!
waitFor 60 "the qmload window" findWindow
sleep 1
shot 1-start
kill -0 "$guiPid" 2>/dev/null || fail "qmload.exe ended by itself"

lines=$(wc -l <"$work/gui.out")
[ "$lines" -eq 1 ] && grep -Eq $'^font "Arial" not found, using "[^"]+"\r?$' "$work/gui.out" ||
  fail "expected one line on stdout naming the font used instead of Arial"
echo "qmload.exe said: $(tr -d "\r" <"$work/gui.out")"

expectPixel 1-start 40 60 "srgb(181,45,69)" "the Open button"
# The label "Open" in the middle of the button: pixels other than the button's.
area=60x12+110+56
glyphs=$(/usr/bin/convert "$work/shot-1-start.png" -crop "$area" txt:- | grep -v '^#' | grep -vc '#B52D45')
echo "the button's label area has $glyphs pixels of text"
[ "$glyphs" -gt 20 ] || fail "the Open button has no label ($glyphs text pixels)"

closeWindow "$guiPid"
guiPid=
echo "qmload.exe drew its window and labels without Arial and ended with 0 when closed"
exit 0
