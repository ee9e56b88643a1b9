#!/usr/bin/env bash
# The flashing fault matrix: the rows of tests/faults/matrix.txt run by tests/e2e/e2e.sh (a fault each, its one right
# outcome per device; a hang past QMLOAD_FAULT_BOUND=60 s, a crash or a sanitizer report fails
# it), two at a time, with a build's programs (default build/linux-asan).
#   tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX]
root=$(cd "$(dirname "$0")/../.." && pwd) build=build/linux-asan jobs=2 only=
while [ $# -gt 1 ] && [[ $1 =~ ^--(build|jobs|only)$ ]]; do declare "${1#--}=$2" && shift 2; done
[ $# -eq 0 ] || { echo "usage: tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX]" && exit 2; }
build=$(cd "$root" && realpath -m "$build")
export QMLOAD_CLI=$build/cli/qmload-cli QMLOAD_SIM=$build/sim/qmload-sim
[ -x "$QMLOAD_CLI" ] && [ -x "$QMLOAD_SIM" ] || { echo "missing programs in $build" && echo "faults: 0 passed, 1 failed" && exit 1; }
bound=${QMLOAD_FAULT_BOUND:-60} exec bash "$root/tests/e2e/e2e.sh" --jobs "$jobs" "faults/.*${only}.*"
