#!/usr/bin/env bash
# Line and branch coverage of the product code by the test suite (the coverage
# preset, gcovr). Prints gcovr's summary; the HTML report is left in
# build/coverage/coverage.html.
set -uo pipefail
cd "$(dirname "$0")/.."
command -v gcovr >/dev/null || { echo "gcovr is missing (install it with: bash scripts/setup.sh)"; exit 1; }
# A fresh build each time: notes of objects that are no longer built would clash. Only this
# build's notes are read (other build folders may hold coverage builds of their own).
rm -rf build/coverage
cmake --preset coverage >/dev/null && cmake --build --preset coverage -j "${QMLOAD_JOBS:-2}" >/dev/null || exit 1
ctest --preset coverage -j "${QMLOAD_JOBS:-2}" --timeout 600 | grep -E "tests passed|\*\*\*"
gcovr --root . --object-directory build/coverage \
  --filter 'base/' --filter 'serial/' --filter 'device/' --filter 'image/' --filter 'linkmap/' \
  --filter 'cli/' --filter 'sim/' --filter 'app/' \
  --exclude-unreachable-branches --exclude-throw-branches \
  --html build/coverage/coverage.html --print-summary build/coverage | tail -n 3
