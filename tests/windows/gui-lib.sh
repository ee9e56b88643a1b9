# Sourced by the GUI test scripts of the Windows build: qmload.exe under Wine on a
# private Xvfb display, looked at with xdotool and screenshots.
#
# The sourcing script sets root (the repository), work (its work folder) and
# failLogs (names of files in work whose tails a failure shows).
. "$root/tests/prereq.sh"
wineRun=$root/scripts/wine-run.sh
window=
xvfbPid=

fail() {
  echo "FAIL: $*"
  local f
  for f in "${failLogs[@]}"; do
    [ -s "$work/$f" ] && { echo "--- $f"; tail -n 20 "$work/$f"; }
  done
  exit 1
}

# What every GUI test needs: Wine, an X server, xdotool and the screenshot tools.
guiNeedTools() {
  need_tools wine wineserver wineboot Xvfb xdotool xwd /usr/bin/convert
}

# The Wine prefix (made on first use), with a warm wineserver. A prefix that
# cannot be made is a missing prerequisite, reported in one line.
guiWineReady() {
  "$wineRun" --warm-up >"$work/wine-ready.log" 2>&1 ||
    missing_prereq "a working Wine prefix: $(tail -n 1 "$work/wine-ready.log")"
}

# startXvfb FIRST LAST SIZE: an Xvfb screen of SIZE (WIDTHxHEIGHT) on the first
# free display number from FIRST to LAST; exports DISPLAY, sets xvfbPid.
startXvfb() {
  local n display=
  for n in $(seq "$1" "$2"); do
    if [ ! -e "/tmp/.X$n-lock" ] && [ ! -e "/tmp/.X11-unix/X$n" ]; then display=:$n; break; fi
  done
  [ -n "$display" ] || fail "no free X display number from :$1 to :$2"
  Xvfb "$display" -screen 0 "${3}x24" -nolisten tcp >"$work/xvfb.log" 2>&1 &
  xvfbPid=$!
  export DISPLAY=$display
  for _ in $(seq 50); do xdotool getdisplaygeometry >/dev/null 2>&1 && return 0; sleep 0.1; done
  fail "Xvfb did not start on $display"
}

waitFor() { # SECONDS DESCRIPTION COMMAND...: polls COMMAND every 0.1 s
  local limit=$(($1 * 10)) what=$2
  shift 2
  for _ in $(seq "$limit"); do "$@" && return 0; sleep 0.1; done
  fail "timed out waiting for $what"
}

# Sets window to qmload's main window; false while there is none.
findWindow() {
  window=$(xdotool search --name 'qmload \.::Vantorix' 2>/dev/null | head -n 1)
  [ -n "$window" ]
}
shot() { # NAME: the window's client area as WORKDIR/shot-NAME.png
  xwd -silent -id "$window" | /usr/bin/convert xwd:- "$work/shot-$1.png" 2>/dev/null ||
    fail "no screenshot $1"
}
pixel() { # NAME X Y: the colour of a pixel of a screenshot, as srgb(r,g,b)
  /usr/bin/convert "$work/shot-$1.png" -format "%[pixel:p{$2,$3}]" info:
}
expectPixel() { # NAME X Y COLOUR WHAT
  local got
  got=$(pixel "$1" "$2" "$3")
  [ "$got" = "$4" ] || fail "$5: pixel $2,$3 of shot $1 is $got, expected $4"
}
countColour() { # NAME GEOMETRY HEX: how many pixels of the area (WxH+X+Y) have the colour
  /usr/bin/convert "$work/shot-$1.png" -crop "$2" txt:- | grep -c "$3"
}

# closeWindow PID: closes the window (Alt+F4, handled by Windows' default
# procedure) and checks that the program PID then ends with exit code 0.
closeWindow() {
  local status
  xdotool windowfocus --sync "$window" 2>/dev/null
  xdotool key alt+F4
  for _ in $(seq 100); do kill -0 "$1" 2>/dev/null || break; sleep 0.1; done
  kill -0 "$1" 2>/dev/null && fail "qmload.exe did not end when its window was closed"
  wait "$1"
  status=$?
  [ "$status" -eq 0 ] || fail "qmload.exe ended with exit code $status"
}
