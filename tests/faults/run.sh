#!/usr/bin/env bash
# The flashing fault matrix: the faults/ rows of tests/e2e/e2e.sh (a fault each, its one
# right outcome per device; a hang past QMLOAD_FAULT_BOUND=60 s, a crash or a sanitizer
# report fails it), two at a time, with a build's programs (default build/linux-asan).
#   tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX]
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
build=$root/build/linux-asan jobs=2 only=
while [ $# -gt 1 ]; do
  case $1 in --build) build=$2 ;; --jobs) jobs=$2 ;; --only) only=$2 ;; *) break ;; esac
  shift 2
done
[ $# -eq 0 ] || { echo "usage: tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX]" && exit 2; }
[[ $build == /* ]] || build=$root/$build
export QMLOAD_CLI=$build/cli/qmload-cli QMLOAD_SIM=$build/sim/qmload-sim QMLOAD_E2E_IMAGE=$build/tests/e2e/e2e_image
for exe in "$QMLOAD_CLI" "$QMLOAD_SIM" "$QMLOAD_E2E_IMAGE"; do
  [ -x "$exe" ] || { echo "missing $exe (build $build first)" && echo "faults: 0 passed, 1 failed" && exit 1; }
done
bound=${QMLOAD_FAULT_BOUND:-60} exec bash "$root/tests/e2e/e2e.sh" --jobs "$jobs" "faults/.*${only}.*"
