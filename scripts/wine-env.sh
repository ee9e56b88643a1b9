# Shared set-up for the Wine helper scripts; sourced, not run.
#
# Every Windows program of ours runs in one private, quiet Wine prefix
# (default ~/.cache/qmload/wine, or $QMLOAD_WINEPREFIX). The first use creates it,
# maps the font name "Arial" to Liberation Sans and records that it is ready.
#
# QMLOAD_WINE_NO_ARIAL=1 selects a second prefix, the same path with "-no-arial"
# appended, made without that mapping: there the window must find a font of its
# own, as on a machine without Arial. The two prefixes never share a path, and each
# records which kind it is, so one is never used as the other.
#
# A freshly started wineserver makes the first program launch background
# services that inherit that program's stdout and stderr. Anything reading
# those through a pipe (ctest, $(...), | tee) would then wait for the services
# to end, which they never do. So wine_ready starts a persistent wineserver
# itself and runs one warm-up command with its output going to a log file;
# later programs find the services already running and their pipes close
# when they exit. A lock file serialises this between programs started at
# the same time.
#
# Wine ties its desktop to the X display (DISPLAY) of the first program after the
# server started, and keeps it for the server's life. A window program on another
# display then gets no window. So tests with windows restart the server with their
# own display set (scripts/wine-stop.sh, then run), and stop it again at the end.
#
# The persistent wineserver stays for QMLOAD_WINE_LINGER seconds (default 1800)
# after the last Wine program ended. Stop it at once with scripts/wine-stop.sh
# (or: WINEPREFIX=<prefix> wineserver -k).

export WINEDEBUG=-all
# winedbg off: a crashing program then ends at once instead of waiting in the debugger.
export WINEDLLOVERRIDES="mscoree,mshtml=;winedbg.exe=d"
export WINEARCH=win64
export WINEPREFIX="${QMLOAD_WINEPREFIX:-$HOME/.cache/qmload/wine}"
qmload_wine_kind=arial-mapped
if [ "${QMLOAD_WINE_NO_ARIAL:-}" = "1" ]; then
  WINEPREFIX="$WINEPREFIX-no-arial"
  qmload_wine_kind=no-arial
fi
qmload_wine_linger="${QMLOAD_WINE_LINGER:-1800}"
qmload_wine_log="$WINEPREFIX.log"

# Creates the prefix when it is missing. Call with the lock held.
wine_create_prefix() {
  if [ -f "$WINEPREFIX/.qmload-ready" ]; then
    # Prefixes made before the marker named their kind hold the mapping.
    local kind
    kind=$(cat "$WINEPREFIX/.qmload-ready")
    [ "${kind:-arial-mapped}" = "$qmload_wine_kind" ] && return 0
    echo "wine: the prefix $WINEPREFIX is ${kind:-arial-mapped}, not $qmload_wine_kind; remove it or choose another QMLOAD_WINEPREFIX" >&2
    return 2
  fi
  echo "wine: creating prefix $WINEPREFIX" >&2
  mkdir -p "$WINEPREFIX"
  # A prefix is made in seconds; a wineboot that takes two minutes is stuck.
  timeout 120 wineboot -i >>"$qmload_wine_log" 2>&1 9>&- || return 1
  if [ "$qmload_wine_kind" = arial-mapped ]; then
    # Our window asks for "Arial"; Wine finds the metric-compatible Liberation
    # Sans through fontconfig once the name is mapped.
    timeout 60 wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /v Arial /t REG_SZ \
      /d 'Liberation Sans' /f >>"$qmload_wine_log" 2>&1 9>&- || return 1
  fi
  # Write the registry to disk before anything else reads the prefix.
  wineserver -k >>"$qmload_wine_log" 2>&1 9>&-
  wineserver -w 9>&-
  echo "$qmload_wine_kind" >"$WINEPREFIX/.qmload-ready"
}

# Makes sure the prefix exists and a warmed-up persistent wineserver runs.
wine_ready() {
  local tool
  for tool in wine wineserver wineboot; do
    if ! command -v "$tool" >/dev/null 2>&1; then
      echo "wine: $tool is not installed (Wine is missing; install it with: bash scripts/setup.sh)" >&2
      return 1
    fi
  done
  if ! mkdir -p "$(dirname "$WINEPREFIX")" 2>/dev/null || ! { exec 9>"$WINEPREFIX.lock"; } 2>/dev/null; then
    echo "wine: cannot write beside the prefix $WINEPREFIX (set QMLOAD_WINEPREFIX to a writable path)" >&2
    return 1
  fi
  if ! flock -w 600 9; then
    echo "wine: the prefix $WINEPREFIX stayed locked for 10 minutes (lock file $WINEPREFIX.lock)" >&2
    exec 9>&-
    return 1
  fi
  local created=0
  wine_create_prefix || created=$?
  if [ "$created" -ne 0 ]; then
    [ "$created" -eq 1 ] &&
      echo "wine: could not create the prefix $WINEPREFIX (see $qmload_wine_log)" >&2
    exec 9>&-
    return 1
  fi
  # Exit status 0: a new server was started here. 2: one is already running.
  # The server and the services it starts must not inherit the lock (fd 9).
  if wineserver "-p$qmload_wine_linger" >>"$qmload_wine_log" 2>&1 9>&-; then
    wine cmd /c exit 0 >>"$qmload_wine_log" 2>&1 </dev/null 9>&-
  fi
  exec 9>&-
  return 0
}

# Stops the prefix's wineserver and waits until it is gone.
wine_stop() {
  wineserver -k >/dev/null 2>&1
  wineserver -w >/dev/null 2>&1
  return 0
}
