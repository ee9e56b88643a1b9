#!/usr/bin/env bash
# Builds the libFuzzer targets with the fuzz preset and runs each for a while on a
# copy of its seed corpus (tests/fuzz/corpus/<target>). Prints, per target, the
# executions, the coverage (libFuzzer's "cov:") and any finding, then one closing
# line "fuzz: N passed, N failed". A target passes when it ran its time without a
# crash, leak, time-out or out-of-memory report.
#
#   scripts/fuzz.sh [--seconds N] [--build DIR] [--only TARGET]
set -uo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
seconds=30
build=build/fuzz
only=
while [ $# -gt 0 ]; do
  case $1 in
    --seconds) seconds=$2; shift 2 ;;
    --build) build=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    -h|--help) sed -n 2,9p "$0"; exit 0 ;;
    *) echo "usage: scripts/fuzz.sh [--seconds N] [--build DIR] [--only TARGET]"; exit 2 ;;
  esac
done
case $build in /*) ;; *) build=$root/$build ;; esac

mkdir -p "$build"
if ! cmake --preset fuzz -B "$build" >"$build/fuzz-configure.log" 2>&1; then
  tail -n 20 "$build/fuzz-configure.log"
  echo "fuzz: 0 passed, 1 failed"; exit 1
fi
if ! cmake --build "$build" -j "${QMLOAD_JOBS:-2}" --target fuzz_targets >"$build/fuzz-build.log" 2>&1; then
  tail -n 30 "$build/fuzz-build.log"
  echo "fuzz: 0 passed, 1 failed"; exit 1
fi

passed=0
failed=0
work=$build/fuzz-work
for exe in "$build"/tests/fuzz/fuzz_*; do
  [ -x "$exe" ] && [ -f "$exe" ] || continue
  name=$(basename "$exe")
  [ -n "$only" ] && [ "$name" != "$only" ] && continue
  dir=$work/$name
  rm -rf "$dir"; mkdir -p "$dir/corpus" "$dir/artifacts"
  [ -d "tests/fuzz/corpus/$name" ] && cp -r "tests/fuzz/corpus/$name/." "$dir/corpus/"
  # One process at a time, niced: the machine is shared.
  nice -n 10 "$exe" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$dir/artifacts/" "$dir/corpus" >"$dir/log" 2>&1
  rc=$?
  execs=$(grep -E '^stat::number_of_executed_units:' "$dir/log" | awk '{print $2}' | tail -n 1)
  cov=$(grep -oE 'cov: [0-9]+' "$dir/log" | tail -n 1 | awk '{print $2}')
  ft=$(grep -oE 'ft: [0-9]+' "$dir/log" | tail -n 1 | awk '{print $2}')
  corp=$(find "$dir/corpus" -type f | wc -l)
  findings=$(find "$dir/artifacts" -type f | wc -l)
  if [ "$rc" -eq 0 ] && [ "$findings" -eq 0 ]; then
    passed=$((passed + 1)); verdict=ok
  else
    failed=$((failed + 1)); verdict=FAILED
  fi
  printf '%-20s %-6s execs=%-10s cov=%-6s ft=%-6s corpus=%-5s findings=%s\n' \
    "$name" "$verdict" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$corp" "$findings"
  if [ "$verdict" = FAILED ]; then
    grep -E 'ERROR: |SUMMARY: |runtime error|^[a-z ]+: .*$' "$dir/log" | head -n 8 | sed 's/^/    /'
    find "$dir/artifacts" -type f | sed 's/^/    artifact: /'
    echo "    log: $dir/log"
  fi
done
echo "fuzz: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
