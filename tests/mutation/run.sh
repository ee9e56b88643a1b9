#!/usr/bin/env bash
# Plants one change at a time (tests/mutation/mutants.tsv: a documented text, a
# constant of the protocol or the formats, a comparison of the flash sequence or
# the map readers) in a copy of the tree, builds it and runs the test suite, and
# says for each whether a test caught it. A change that no test catches is a gap
# in the tests. Ends "mutants: N caught, N survived, N invalid"; exit 1 unless
# every planted change was caught.
#
#   tests/mutation/run.sh [--only REGEX] [--work DIR]
# Takes about a minute a change on 2 cores (an incremental build and the suite
# without the GUI tests).
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd) work=/tmp/qmload-mutation only= jobs=${QMLOAD_JOBS:-2}
while [ $# -gt 1 ] && [[ $1 == --only || $1 == --work ]]; do declare "${1#--}=$2" && shift 2; done
[ $# -eq 0 ] || { echo "usage: tests/mutation/run.sh [--only REGEX] [--work DIR]" && exit 2; }
src=$work/src build=$work/build && mkdir -p "$src" "$build"
# The committed and uncommitted tracked files, and the fetched Nuklear headers.
(cd "$here/../.." && git ls-files -z | xargs -0 tar cf - .deps 2>/dev/null) | tar xf - -C "$src"
runSuite() {
  cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1 || return 2
  ctest --test-dir "$build" -j "$jobs" -E '^gui\.' --stop-on-failure --timeout 300 >"$work/ctest.log" 2>&1
}
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$work/configure.log" 2>&1 ||
  { echo "configure failed (see $work/configure.log)" && exit 1; }
runSuite || { echo "the unchanged tree does not pass its own tests (see $work/ctest.log)" && exit 1; }

caught=0 survived=0 invalid=0
while IFS=$'\t' read -r file text planted what; do
  [ -z "$file" ] || [[ $file == \#* ]] || { [ -n "$only" ] && ! [[ "$file $what" =~ $only ]]; } && continue
  cp "$src/$file" "$work/original"
  # Replaces the first occurrence of the text; fails when the text is not there.
  if ! python3 -c 'import sys; p, t, n = sys.argv[1:4]; s = open(p, encoding="utf-8").read(); assert t in s
open(p, "w", encoding="utf-8").write(s.replace(t, n, 1))' "$src/$file" "$text" "$planted" 2>/dev/null; then
    printf '%-9s %-28s %s\n' invalid "$file" "$what (text not found: update mutants.tsv)" && invalid=$((invalid + 1))
    continue
  fi
  runSuite
  case $? in
    0) printf '%-9s %-28s %s\n' SURVIVED "$file" "$what" && survived=$((survived + 1)) ;;
    2) printf '%-9s %-28s %s\n' invalid "$file" "$what (does not build)" && invalid=$((invalid + 1)) ;;
    *) by=$(grep -m1 -E '\*\*\*(Failed|Exception|Timeout)' "$work/ctest.log" | sed -E 's/.*Test +#[0-9]+: ([^ ]+).*/\1/')
      printf '%-9s %-28s %s (by %s)\n' caught "$file" "$what" "$by" && caught=$((caught + 1)) ;;
  esac
  cp "$work/original" "$src/$file"
done <"$here/mutants.tsv"
cmake --build "$build" -j "$jobs" >/dev/null 2>&1 # leaves the copy built as it was, for the next run
echo "mutants: $caught caught, $survived survived, $invalid invalid"
[ "$survived" -eq 0 ] && [ "$invalid" -eq 0 ]
