#!/usr/bin/env bash
# Runs a Windows program that opens windows under Wine on a private Xvfb display:
#   on-xvfb.sh PROGRAM.exe [ARGS...]
# Wine's desktop follows the display of the first program after the wineserver
# started, so the server is restarted on our display first and stopped again
# before the display goes away. Exits with the program's exit code. A missing
# prerequisite (Wine, Xvfb, xdotool) skips in a developer's run and fails under CI
# (tests/prereq.sh).
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
. "$root/tests/prereq.sh"
need_tools wine wineserver wineboot Xvfb xdotool
display=
for n in $(seq 121 150); do
  if [ ! -e "/tmp/.X$n-lock" ] && [ ! -e "/tmp/.X11-unix/X$n" ]; then display=:$n; break; fi
done
[ -n "$display" ] || { echo "no free X display number"; exit 1; }
Xvfb "$display" -screen 0 640x480x24 -nolisten tcp >/dev/null 2>&1 &
xvfb=$!
export DISPLAY=$display
for _ in $(seq 50); do xdotool getdisplaygeometry >/dev/null 2>&1 && break; sleep 0.1; done
xdotool getdisplaygeometry >/dev/null 2>&1 || { echo "FAIL: Xvfb did not start on $display"; kill "$xvfb"; exit 1; }
"$root/scripts/wine-stop.sh"
"$root/scripts/wine-run.sh" "$@"
status=$?
"$root/scripts/wine-stop.sh"
kill "$xvfb" 2>/dev/null
wait "$xvfb" 2>/dev/null
# A warm server without a display again, for the programs that come next.
env -u DISPLAY "$root/scripts/wine-run.sh" --warm-up
exit "$status"
