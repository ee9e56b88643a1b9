#!/usr/bin/env bash
# Sets everything up and runs every test: the whole suite under ASan+UBSan, the
# threaded session and flashing tests under TSan, the Windows build's tests under
# Wine, short fuzzing runs, and the flashing fault matrix. Ends with one line
# "tests: N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${QMLOAD_JOBS:-2}

bash scripts/setup.sh || { echo "setup failed"; exit 1; }

passed=0
failed=0
logdir=$root/build/test-logs
mkdir -p "$logdir"

# Adds the counts from a ctest log ("NN% tests passed, F tests failed out of T").
count_ctest() {
  local line total bad
  line=$(grep -E 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$1" | tail -n 1)
  if [ -z "$line" ]; then
    echo "== $2: no test summary (build or run failed)"
    failed=$((failed + 1))
    return
  fi
  bad=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$line")
  passed=$((passed + total - bad))
  failed=$((failed + bad))
  echo "== $2: $((total - bad)) passed, $bad failed"
}

# Adds the counts from a script that ends with "N passed, N failed".
count_plain() {
  local line
  line=$(grep -E '^([A-Za-z-]+: )?[0-9]+ passed, [0-9]+ failed' "$1" | tail -n 1)
  if [ -z "$line" ]; then
    echo "== $2: no summary line"
    failed=$((failed + 1))
    return
  fi
  local p f
  p=$(sed -E 's/^([A-Za-z-]+: )?([0-9]+) passed.*/\2/' <<<"$line")
  f=$(sed -E 's/.* ([0-9]+) failed.*/\1/' <<<"$line")
  passed=$((passed + p))
  failed=$((failed + f))
  echo "== $2: $p passed, $f failed"
}

stage() {
  local name=$1; shift
  echo "== $name"
  "$@" >"$logdir/$name.log" 2>&1
  local rc=$?
  tail -n 15 "$logdir/$name.log"
  return $rc
}

build_and_test() {
  local preset=$1 name=$2
  shift 2
  if stage "$name-build" bash -c "cmake --preset $preset >/dev/null && cmake --build --preset $preset -j $jobs"; then
    stage "$name" ctest --preset "$preset" -j "$jobs" --timeout 600 "$@"
    count_ctest "$logdir/$name.log" "$name"
  else
    echo "== $name: build failed (see $logdir/$name-build.log)"
    failed=$((failed + 1))
  fi
}

build_and_test linux-asan asan
build_and_test linux-tsan tsan
build_and_test windows windows

if [ -x scripts/fuzz.sh ]; then
  stage fuzz scripts/fuzz.sh --seconds "${QMLOAD_FUZZ_SECONDS:-30}"
  count_plain "$logdir/fuzz.log" fuzz
fi
if [ -x tests/faults/run.sh ]; then
  stage faults tests/faults/run.sh --build build/linux-asan
  count_plain "$logdir/faults.log" faults
fi

echo "tests: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
