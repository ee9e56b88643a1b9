#!/usr/bin/env bash
# Regenerates the binary sample files in examples/ (the text files are written by
# hand): compiles make-examples.cpp and runs it inside this folder.
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
tool="$(mktemp -d)"
trap 'rm -rf "$tool"' EXIT
g++ -std=c++17 -O1 -o "$tool/make-examples" "$here/make-examples.cpp"
cd "$here"
"$tool/make-examples"
ls -l test.cpp_CFG.bin __target_out__.o test.cpp_RES.bin
