#!/usr/bin/env bash
# The port-loss rows of the fault matrix for qmload-cli.exe under Wine. The Linux
# simulator's pty is mapped to COM23; every row must end with "COM23: Port lost"
# and exit 1. Wine sees the hung-up pty as ERROR_NOT_READY on the next call.
#   wine-port-lost.sh QMLOAD_CLI_EXE
# The simulator and the Linux qmload-cli (for the image) are $QMLOAD_SIM and
# $QMLOAD_LINUX_CLI, or the newest build/*/ ones of this repository.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
source "$here/../prereq.sh"
exe=${1:?qmload-cli.exe}
wineRun=$root/scripts/wine-run.sh
com=COM23
newest() { ls -t "$root"/build/*/"$1" 2>/dev/null | head -n 1; }
sim=${QMLOAD_SIM:-$(newest sim/qmload-sim)}
cli=${QMLOAD_LINUX_CLI:-$(newest cli/qmload-cli)}
[ -x "$sim" ] && [ -x "$cli" ] || missing_prereq "the Linux qmload-sim and qmload-cli (cmake --preset linux && cmake --build build/linux)"
"$wineRun" --warm-up >/dev/null 2>&1 || missing_prereq "a working Wine prefix"

work=$(mktemp -d /tmp/qmload-wine-lost.XXXXXX)
link=$work/port
simPid=
mapped=0
cleanup() {
  [ -n "$simPid" ] && kill "$simPid" 2>/dev/null && wait "$simPid" 2>/dev/null
  [ "$mapped" -eq 1 ] && "$root/scripts/wine-map-com.sh" --remove "$com" >/dev/null 2>&1
  rm -rf "$work"
}
trap cleanup EXIT
bash "$here/make-image.sh" "$cli" "$root/examples" "$work/image" >/dev/null 2>&1 || { echo "FAIL: no image"; exit 1; }
"$root/scripts/wine-map-com.sh" "$com" "$link" >/dev/null 2>&1 || { echo "FAIL: could not map $com"; exit 1; }
mapped=1

# name | simulator options | signal to the simulator once it logged "reply #8"
failures=0
while IFS='|' read -r name simArgs signal; do
  # shellcheck disable=SC2086
  "$sim" --link "$link" --verbose $simArgs >"$work/sim.out" 2>"$work/sim.err" &
  simPid=$!
  for _ in $(seq 100); do grep -q '^READY' "$work/sim.out" 2>/dev/null && break; sleep 0.05; done
  # The simulator sets its speed as a free number (BOTHER), which Wine cannot report.
  stty -F "$link" 115200
  if [ -n "$signal" ]; then
    (for _ in $(seq 2000); do grep -q 'reply #8' "$work/sim.err" && exec kill -s "$signal" "$simPid"; sleep 0.005; done) &
  fi
  start=$(date +%s%N)
  timeout -s KILL 60 "$wineRun" "$exe" flash --port "$com" --baud 115200 "Z:${work//\//\\}\\image\\small.alf" >"$work/cli.out" 2>&1
  rc=$?
  secs=$(( ($(date +%s%N) - start) / 1000000 ))
  kill "$simPid" 2>/dev/null; wait "$simPid" 2>/dev/null; simPid=
  wait 2>/dev/null
  last=$(tail -n 1 "$work/cli.out" | tr -d '\r')
  if [ "$rc" = 1 ] && [ "$last" = "$com: Port lost" ] && [ "$(grep -c "^Port lost: $com" "$work/cli.out")" = 1 ]; then
    echo "$name: Port lost, exit 1 (${secs} ms)"
  else
    echo "FAIL $name: exit $rc: $last"; sed 's/^/    /' "$work/cli.out"; failures=$((failures + 1))
  fi
done <<'ROWS'
hangup-middle-write|--write-ms 100 --hangup-after 8|
vanish-middle-write|--write-ms 100 --vanish-after 8|
sim-killed-middle-write|--write-ms 100|KILL
ROWS
[ "$failures" -eq 0 ]
