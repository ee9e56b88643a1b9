#!/usr/bin/env bash
# Runs a Windows program under Wine, quietly and without any dialog, in the
# private prefix described in scripts/wine-env.sh, and exits with the program's
# exit code. It is the test emulator of the "windows" CMake preset:
#   scripts/wine-run.sh build/windows/tests/image/image_tests.exe --gtest_brief=1
# "wine-run.sh --warm-up" only creates the prefix and starts the server; the
# configure step of the preset calls it so that test discovery after each build
# (which allows a test program 5 s) finds Wine already running.
# Stop the lingering wineserver afterwards with scripts/wine-stop.sh.
set -u
if [ "$#" -lt 1 ]; then
  echo "usage: wine-run.sh PROGRAM.exe [ARGS...] | wine-run.sh --warm-up" >&2
  exit 2
fi
. "$(dirname "$0")/wine-env.sh"
wine_ready || exit 125
if [ "$1" = "--warm-up" ]; then exit 0; fi
exec wine "$@"
