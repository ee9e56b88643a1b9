#!/usr/bin/env bash
# Builds the small image of the fault matrix with the builder: a 708-byte program
# at 0x08004000 taken from the example flat flash image (three blocks, the last
# one partial), the first 300 bytes of the example resources at the template's
# resAddr (two blocks) and the header block.
#   make-image.sh QMLOAD_CLI EXAMPLES_DIR OUT_DIR   -> OUT_DIR/small.alf
set -euo pipefail
cli=$1 examples=$2 out=$3
mkdir -p "$out"
cat >"$out/small.map" <<'MAP'
.text           0x08004000      0x2c4
                0x08004000      __entryPoint__
                0x08004101      loop
                0x08004200      ModbusHGroups_Table
                0x08004240      ModbusIGroups_Table
                0x08004280      ModbusRemoteRegTables
                0x080042c4      _etext
.bss            0x20000000      0x100
MAP
head -c 300 "$examples/test.cpp_RES.bin" >"$out/small-res.bin"
"$cli" build-aelf --map "$out/small.map" --cfg "$examples/test.cpp_CFG.bin" \
  --object "$examples/__target_out__.o" --res "$out/small-res.bin" -o "$out/small.alf"
test -s "$out/small.alf"
