#!/usr/bin/env bash
# Runs the sample generator in an empty folder and compares its files with the committed ones.
# usage: examples-reproducible.sh EXAMPLES_DIR WORK_DIR GENERATOR [EMULATOR...]
set -u
examples=$1 work=$2
shift 2
rm -rf "$work" && mkdir -p "$work" && cd "$work" && "$@" || { echo "FAIL: the generator failed"; exit 1; }
for file in test.cpp_CFG.bin __target_out__.o test.cpp_RES.bin; do
  cmp "$file" "$examples/$file" || { echo "FAIL: $file differs from examples/$file"; status=1; }
done
exit "${status:-0}"
