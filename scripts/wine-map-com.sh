#!/usr/bin/env bash
# Maps a Windows COM port of qmload's Wine prefix to a Unix path:
#   scripts/wine-map-com.sh COM7 /tmp/qmload-sim-link
#   scripts/wine-map-com.sh --remove COM7
# Wine reads HKLM\Software\Wine\Ports when its server starts, so the server is
# restarted (and warmed up again) here. QueryDosDeviceA then lists the port and
# CreateFileA("\\.\COM7") opens the path.
set -u
. "$(dirname "$0")/wine-env.sh"
remove=0
if [ "${1:-}" = "--remove" ]; then remove=1; shift; fi
port=${1:-}
target=${2:-}
if [ -z "$port" ] || { [ "$remove" -eq 0 ] && [ -z "$target" ]; }; then
  echo "usage: wine-map-com.sh COMn PATH | wine-map-com.sh --remove COMn" >&2
  exit 2
fi
wine_ready || exit 1
if [ "$remove" -eq 1 ]; then
  wine reg delete 'HKLM\Software\Wine\Ports' /v "$port" /f >>"$qmload_wine_log" 2>&1
  # Wine leaves the device link it made from the old value behind.
  rm -f "$WINEPREFIX/dosdevices/$(tr '[:upper:]' '[:lower:]' <<<"$port")"
else
  wine reg add 'HKLM\Software\Wine\Ports' /v "$port" /t REG_SZ /d "$target" /f >>"$qmload_wine_log" 2>&1 || {
    echo "wine-map-com: could not write the registry" >&2
    exit 1
  }
fi
wine_stop
wine_ready || exit 1
