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
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
work=/tmp/qmload-mutation
only=
while [ $# -gt 0 ]; do
  case $1 in
    --only) only=$2; shift 2 ;;
    --work) work=$2; shift 2 ;;
    *) echo "usage: tests/mutation/run.sh [--only REGEX] [--work DIR]"; exit 2 ;;
  esac
done

src=$work/src
build=$work/build
mkdir -p "$src" "$build"
# The committed and uncommitted tracked files, and the fetched Nuklear headers.
(cd "$root" && git ls-files -z | xargs -0 tar cf - .deps 2>/dev/null) | tar xf - -C "$src"
jobs=${QMLOAD_JOBS:-2}
runSuite() {
  cmake --build "$build" -j "$jobs" >"$work/build.log" 2>&1 || return 2
  ctest --test-dir "$build" -j "$jobs" -E '^gui\.' --stop-on-failure --timeout 300 >"$work/ctest.log" 2>&1
}
cmake -S "$src" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >"$work/configure.log" 2>&1 ||
  { echo "configure failed (see $work/configure.log)"; exit 1; }
if ! runSuite; then
  echo "the unchanged tree does not pass its own tests (see $work/ctest.log)"
  exit 1
fi

caught=0 survived=0 invalid=0
while IFS=$'\t' read -r file text planted what; do
  [ -z "$file" ] || [[ $file == \#* ]] && continue
  [ -n "$only" ] && ! [[ "$file $what" =~ $only ]] && continue
  cp "$src/$file" "$work/original"
  if ! python3 - "$src/$file" "$text" "$planted" <<'PY'; then
import sys
path, text, planted = sys.argv[1:4]
s = open(path, encoding="utf-8").read()
if text not in s:
    sys.exit(1)
open(path, "w", encoding="utf-8").write(s.replace(text, planted, 1))
PY
    printf '%-9s %-28s %s\n' invalid "$file" "$what (text not found: update mutants.tsv)"
    invalid=$((invalid + 1))
    continue
  fi
  runSuite
  rc=$?
  if [ $rc -eq 2 ]; then
    printf '%-9s %-28s %s\n' invalid "$file" "$what (does not build)"
    invalid=$((invalid + 1))
  elif [ $rc -ne 0 ]; then
    by=$(grep -m1 -E '\*\*\*(Failed|Exception|Timeout)' "$work/ctest.log" | sed -E 's/.*Test +#[0-9]+: ([^ ]+).*/\1/')
    printf '%-9s %-28s %s (by %s)\n' caught "$file" "$what" "$by"
    caught=$((caught + 1))
  else
    printf '%-9s %-28s %s\n' SURVIVED "$file" "$what"
    survived=$((survived + 1))
  fi
  cp "$work/original" "$src/$file"
done <"$here/mutants.tsv"
# Leave the copy built as it was, for the next run.
cmake --build "$build" -j "$jobs" >/dev/null 2>&1
echo "mutants: $caught caught, $survived survived, $invalid invalid"
[ "$survived" -eq 0 ] && [ "$invalid" -eq 0 ]
