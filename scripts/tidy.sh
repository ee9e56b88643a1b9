#!/usr/bin/env bash
# Runs clang-tidy (the checks of .clang-tidy) over every product source file, with
# the compile commands of a configured build. Ends "tidy: 1 passed, 0 failed" when
# it is clean, "tidy: 0 passed, 1 failed" otherwise.
#
#   scripts/tidy.sh [BUILD_DIR]     (default build/linux-asan)
set -uo pipefail
cd "$(dirname "$0")/.."
build=${1:-build/linux-asan}
if [ ! -f "$build/compile_commands.json" ]; then
  echo "no $build/compile_commands.json: configure that build first"
  echo "tidy: 0 passed, 1 failed"
  exit 1
fi
mapfile -t files < <(git ls-files 'base/*.cpp' 'serial/*.cpp' 'device/*.cpp' 'image/*.cpp' 'linkmap/*.cpp' \
  'cli/*.cpp' 'sim/*.cpp' 'app/*.cpp' 'app/glfw/*.cpp' | grep -v -E '_win32\.cpp$|nuklear_impl\.cpp$|GlBackend\.cpp$')
# run-clang-tidy colours its output; the log keeps plain text.
run-clang-tidy -quiet -p "$build" -j "${QMLOAD_JOBS:-2}" "${files[@]/#/$PWD/}" 2>&1 |
  sed 's/\x1b\[[0-9;]*m//g' >"$build/tidy.log"
if [ "${PIPESTATUS[0]}" -eq 0 ] &&
  ! grep -qE '(warning|error):' "$build/tidy.log"; then
  echo "tidy: clean over ${#files[@]} files"
  echo "tidy: 1 passed, 0 failed"
else
  grep -E '(warning|error):' "$build/tidy.log" | sort -u | head -n 40
  echo "tidy: 0 passed, 1 failed"
  exit 1
fi
