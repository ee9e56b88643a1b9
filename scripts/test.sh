#!/usr/bin/env bash
# Sets everything up and runs every test: the formatting check, the whole suite
# under ASan+UBSan, clang-tidy over the product code, the threaded session and
# flashing tests under TSan, the Windows build's tests under Wine, the packages
# (made, unpacked, installed and uninstalled), short fuzzing runs, and the
# flashing fault matrix.
# Ends with the stages that ran and were skipped, then one line
# "tests: N passed, N failed, N skipped".
#
# QMLOAD_STAGES="asan tsan ..." runs only the stages named (a developer's quick
# run; the others are listed as skipped). Under CI (CI=true) every stage runs.
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${QMLOAD_JOBS:-2}
allStages="format asan tidy tsan windows packages fuzz faults"

bash scripts/setup.sh || { echo "setup failed"; exit 1; }

passed=0
failed=0
skipped=0
ran=()
notRun=()
logdir=$root/build/test-logs
mkdir -p "$logdir"

wanted() {
  [ "${CI:-}" = "true" ] && return 0
  [ -z "${QMLOAD_STAGES:-}" ] && return 0
  [[ " $QMLOAD_STAGES " == *" $1 "* ]]
}

# Adds the counts from a ctest log ("NN% tests passed, F tests failed out of T",
# and "(Skipped)" for each test that skipped itself).
count_ctest() {
  local line total bad skip
  line=$(grep -aE 'tests passed, [0-9]+ tests? failed out of [0-9]+' "$1" | tail -n 1)
  if [ -z "$line" ]; then
    echo "== $2: no test summary (build or run failed)"
    failed=$((failed + 1))
    return
  fi
  bad=$(sed -E 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1/' <<<"$line")
  total=$(sed -E 's/.* failed out of ([0-9]+).*/\1/' <<<"$line")
  skip=$(grep -acE '^[[:space:]]*[0-9]+ - .* \(Skipped\)$' "$1")
  passed=$((passed + total - bad - skip))
  failed=$((failed + bad))
  skipped=$((skipped + skip))
  echo "== $2: $((total - bad - skip)) passed, $bad failed, $skip skipped"
  grep -aE '^[[:space:]]*[0-9]+ - .* \(Skipped\)$' "$1" | sed 's/^/   skipped: /'
}

# Adds the counts from a script that ends with "N passed, N failed".
count_plain() {
  local line p f
  line=$(grep -aE '^([A-Za-z-]+: )?[0-9]+ passed, [0-9]+ failed' "$1" | tail -n 1)
  if [ -z "$line" ]; then
    echo "== $2: no summary line"
    failed=$((failed + 1))
    return
  fi
  p=$(sed -E 's/^([A-Za-z-]+: )?([0-9]+) passed.*/\2/' <<<"$line")
  f=$(sed -E 's/.* ([0-9]+) failed.*/\1/' <<<"$line")
  passed=$((passed + p))
  failed=$((failed + f))
  echo "== $2: $p passed, $f failed"
}

stage() {
  local name=$1
  shift
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

# Every C++ file of ours in the one style of .clang-format.
check_format() {
  git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format --dry-run --Werror && echo "format: 1 passed, 0 failed" ||
    echo "format: 0 passed, 1 failed"
}

for s in $allStages; do
  if ! wanted "$s"; then
    notRun+=("$s")
    continue
  fi
  ran+=("$s")
  case $s in
    format)
      stage format check_format
      count_plain "$logdir/format.log" format
      ;;
    asan) build_and_test linux-asan asan ;;
    tidy)
      stage tidy scripts/tidy.sh build/linux-asan
      count_plain "$logdir/tidy.log" tidy
      ;;
    tsan) build_and_test linux-tsan tsan ;;
    windows) build_and_test windows windows ;;
    packages)
      stage packages tests/packages/run.sh
      count_plain "$logdir/packages.log" packages
      ;;
    fuzz)
      stage fuzz scripts/fuzz.sh --seconds "${QMLOAD_FUZZ_SECONDS:-30}"
      count_plain "$logdir/fuzz.log" fuzz
      ;;
    faults)
      stage faults tests/faults/run.sh --build build/linux-asan
      count_plain "$logdir/faults.log" faults
      ;;
  esac
done

# Non-blank lines of the tests (C++, shell, Python, CMake; not the fuzz corpus)
# against those of the product C++: the suite is meant to stay a quarter to a third
# of the code.
nonBlank() { xargs -r cat | grep -c -v '^[[:space:]]*$'; }
testLines=$(git ls-files tests | grep -aE '\.(cpp|h|c|sh|py|cmake)$|CMakeLists\.txt$' | grep -v /corpus/ | nonBlank)
codeLines=$(git ls-files base serial device image linkmap cli sim app | grep -aE '\.(cpp|h|c)$' | nonBlank)
ratio=$(awk -v t="$testLines" -v c="$codeLines" 'BEGIN { printf "%.3f", c ? t / c : 0 }')

echo "stages run: ${ran[*]:-none}"
echo "stages skipped: ${notRun[*]:-none}"
echo "tests: $passed passed, $failed failed, $skipped skipped; test code $testLines lines, product code $codeLines lines (ratio $ratio)"
[ "$failed" -eq 0 ] && [ "${#ran[@]}" -gt 0 ]
