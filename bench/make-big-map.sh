#!/usr/bin/env bash
# Writes large but valid toolchain inputs for stress tests and benchmarks, in
# both map grammars:
#   OUT/big_output.map  the builder's map (".text" line, "0x0800xxxx name" lines,
#                       ".bss"); program from 0x08004000, by default 0x3172c bytes
#                       like the examples
#   OUT/big_out.map     the rewriter's entry list ("name  0x800'xxxx ...", long
#                       names on a line of their own)
#   OUT/big_funcList.txt  every 4th symbol of big_out.map and the usual five
# Each map is about MB megabytes (default 20); PROGRAM is the program size in
# bytes that the builder's map describes (default 0x3172c).
#   bench/make-big-map.sh OUT [MB] [PROGRAM]
set -euo pipefail
out=$1
mb=${2:-20}
program=$((${3:-0x3172c}))
etext=$((0x08004000 + program))
mkdir -p "$out"
# About 56 bytes a line in the builder's grammar, 75 in the rewriter's.
lines=$((mb * 1024 * 1024 / 56))
entries=$((mb * 1024 * 1024 / 75))

awk -v n="$lines" -v size="$program" -v etext="$etext" 'BEGIN {
  print "Linker script and memory map"
  print ""
  printf ".text           0x08004000    0x%x\n", size
  for (i = 0; i < n; i++) {
    if (i % 1000 == 0) printf " .text.f%-7d 0x%08x       0x40 obj/part%d.o\n", i, 134234112 + (i % 704), i % 97
    else printf "                0x%08x                symbol_%d\n", 134234112 + (i % 704), i
  }
  print "                0x08004000                __entryPoint__"
  print "                0x08004101                loop"
  print "                0x08004200                ModbusHGroups_Table"
  print "                0x08004240                ModbusIGroups_Table"
  print "                0x08004280                ModbusRemoteRegTables"
  printf "                0x%08x                _etext\n", etext
  print ".bss            0x20000000      0x400"
  print "                0x20000000                _sbss"
}' >"$out/big_output.map"

awk -v n="$entries" -v q="'" -v funcs="$out/big_funcList.txt" 'BEGIN {
  print "*** ENTRY LIST"
  print ""
  print "Entry                        Address      Size  Type  Scope  Object"
  print "-----                        -------      ----  ----  -----  ------"
  for (i = 0; i < n; i++) {
    if (i % 50 == 0) {
      printf "ApplicationFunctionWithAVeryLongName_%d\n", i
      printf "                             0x800%s%x         Code  Gb     long.o [1]\n", q, 16384 + i % 48128
    } else {
      printf "function_%-19d 0x800%s%-6x  0x%-3x Code  Gb     part%d.o [1]\n", i, q, 16384 + i % 48128, i % 1024, i % 97
    }
    if (i % 4 == 1) print "function_" i >funcs
  }
  print "ModbusHGroups_Table          0x803" q "4000   0x200 Data  Gb     modbus_regs.o [1]"
  print "ModbusIGroups_Table          0x803" q "4200   0x200 Data  Gb     modbus_regs.o [1]"
  print "ModbusRemoteRegTables        0x803" q "4400   0x180 Data  Gb     modbus_remote.o [1]"
  print "loop                         0x800" q "42a5   0x9c  Code  Gb     main.o [1]"
  print "uwTick                       0x2000" q "0000  0x4   Data  Gb     system.o [1]"
  print "ModbusHGroups_Table" >funcs
  print "ModbusIGroups_Table" >funcs
  print "ModbusRemoteRegTables" >funcs
  print "loop" >funcs
  print "ApplicationFunctionWithAVeryLongName_0 -> __entryPoint__" >funcs
}' >"$out/big_out.map"
ls -l "$out"
