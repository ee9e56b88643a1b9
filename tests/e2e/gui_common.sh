# Helpers for the Linux GUI end-to-end scripts (sourced). They start a private Xvfb,
# the simulator on a pseudo-terminal and qmload, click through the window with
# xdotool and save screenshots. Only processes started here are stopped, by pid.

guiPids=()
guiWork=""

guiCleanup() {
  local pid
  for pid in "${guiPids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${guiPids[@]}"; do wait "$pid" 2>/dev/null || true; done
  if [ -n "$guiWork" ] && [ -z "${QMLOAD_KEEP_WORK:-}" ]; then rm -rf "$guiWork"; fi
}

guiFail() {
  echo "FAIL: $*" >&2
  if [ -n "$guiWork" ]; then
    for f in "$guiWork"/*.log; do
      [ -f "$f" ] || continue
      echo "--- $(basename "$f") (last lines)" >&2
      tail -n 8 "$f" >&2
    done
  fi
  exit 1
}

# Stops the simulator and qmload started last (Xvfb keeps running).
guiStopAppAndSim() {
  local pid
  for pid in "${guiAppPid:-}" "${guiSimPid:-}"; do
    [ -n "$pid" ] || continue
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
}

# Starts Xvfb on a free display; sets DISPLAY.
guiStartX() {
  need_tools Xvfb xdotool
  local fdFile="$guiWork/display"
  : >"$fdFile"
  Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp 3>"$fdFile" 2>"$guiWork/xvfb.log" &
  guiPids+=($!)
  local i
  for i in $(seq 100); do [ -s "$fdFile" ] && break; sleep 0.1; done
  [ -s "$fdFile" ] || guiFail "Xvfb did not start"
  export DISPLAY=":$(head -n 1 "$fdFile")"
}

# guiStartSim LINK DUMP [extra simulator options...]
guiStartSim() {
  local link=$1 dump=$2
  shift 2
  "$QMLOAD_SIM" --link "$link" --dump "$dump" "$@" >"$guiWork/sim.out" 2>"$guiWork/sim.log" &
  guiPids+=($!)
  guiSimPid=$!
  local i
  for i in $(seq 100); do grep -q '^READY' "$guiWork/sim.out" 2>/dev/null && return 0; sleep 0.1; done
  guiFail "qmload-sim did not become ready"
}

# guiStartApp DIR [image]: qmload started in DIR, its stdout in app.out and one
# line per frame in app.log; sets guiAppPid and guiWindow.
guiStartApp() {
  local dir=$1
  shift
  # QMLOAD_GUI_PRELOAD: libraries preloaded into the GUI alone (see gui_tests.cmake).
  (cd "$dir" && QMLOAD_FRAME_LOG=1 LD_PRELOAD="${QMLOAD_GUI_PRELOAD:-}" exec "$QMLOAD_GUI" "$@") \
    >"$guiWork/app.out" 2>"$guiWork/app.log" &
  guiPids+=($!)
  guiAppPid=$!
  guiWindow=""
  local i
  for i in $(seq 100); do
    guiWindow=$(xdotool search --name '^qmload \.::Vantorix' 2>/dev/null | head -n 1 || true)
    [ -n "$guiWindow" ] && break
    sleep 0.1
  done
  [ -n "$guiWindow" ] || guiFail "the qmload window did not appear"
  # Let the first frames settle before clicking.
  sleep 0.3
}

# guiClick X Y: a click at client coordinates, preceded by a move elsewhere (a click
# on a window that the pointer has not entered yet can be lost without a window manager).
guiClick() {
  xdotool mousemove --window "$guiWindow" 2 150 sleep 0.05 mousemove --window "$guiWindow" "$1" "$2" sleep 0.05 click 1
  sleep 0.15
}

# guiShot NAME: the window's part of the screen as NAME.png in the artifact folder.
guiShot() {
  xwd -root -silent | /usr/bin/convert xwd:- -crop 280x160+0+0 +repage "png:$guiArtifacts/$1.png" ||
    echo "warning: screenshot $1 failed" >&2
}

# guiPixel X Y: the colour at client coordinates, as "r,g,b".
guiPixel() {
  xwd -root -silent | /usr/bin/convert xwd:- -format "%[fx:int(255*p{$1,$2}.r)],%[fx:int(255*p{$1,$2}.g)],%[fx:int(255*p{$1,$2}.b)]" info:
}

# guiWaitFor SECONDS COMMAND...: polls COMMAND every 0.1 s.
guiWaitFor() {
  local limit=$1
  shift
  local end=$((SECONDS + limit))
  while [ "$SECONDS" -le "$end" ]; do
    "$@" && return 0
    sleep 0.1
  done
  return 1
}

# guiIndexOfPort NAME: position of NAME in the port list qmload will show.
guiIndexOfPort() {
  "$QMLOAD_CLI" ports | awk -v want="$1" '$1 == want { print NR - 1; found = 1 } END { if (!found) print -1 }'
}

# guiSegmentsMatch IMAGE DUMP: every segment of the AELF image stands at its address
# in the simulator's flash dump (256 KiB from 0x08000000).
guiSegmentsMatch() {
  local image=$1 dump=$2
  local exeAddr exeSize resAddr resSize
  exeAddr=$(od -An -t u4 -j $((4 + 28)) -N 4 "$image" | tr -d ' ')
  exeSize=$(od -An -t u4 -j $((4 + 32)) -N 4 "$image" | tr -d ' ')
  resAddr=$(od -An -t u4 -j $((4 + 40)) -N 4 "$image" | tr -d ' ')
  resSize=$(od -An -t u4 -j $((4 + 44)) -N 4 "$image" | tr -d ' ')
  local flash=$((0x08000000))
  cmp <(tail -c +5 "$image" | head -c 64) <(tail -c +$((0x3FE00 + 1)) "$dump" | head -c 64) || return 1
  cmp <(tail -c +$((68 + 1)) "$image" | head -c "$exeSize") \
      <(tail -c +$((exeAddr - flash + 1)) "$dump" | head -c "$exeSize") || return 1
  cmp <(tail -c +$((68 + exeSize + 1)) "$image" | head -c "$resSize") \
      <(tail -c +$((resAddr - flash + 1)) "$dump" | head -c "$resSize") || return 1
}
