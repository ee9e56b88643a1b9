#!/usr/bin/env bash
# The toolchain commands of qmload-cli on the sample in examples/: exit codes, console text and
# golden outputs; and the sample generator writes the binary samples again, byte for byte.
# usage: toolchain-cli.sh EXAMPLES_DIR WORK_DIR GENERATOR [EMULATOR...] QMLOAD_CLI
set -u
examples=$1 work=$2 generator=$3 emulator=("${@:4:$#-4}") cli=("${@:4}") failures=0
fail() { echo "FAIL: $*" && failures=$((failures + 1)); }
check() { # RC WANT ARGS...: the exit code must be RC and stdout (line ends normalised) WANT, a glob if it holds '*'
  local out got && out=$("${@:3}" 2>"$work/stderr" | tr -d '\r'; exit "${PIPESTATUS[0]}") && got=0 || got=$?
  [ "$got" = "$1" ] && if [[ $2 == *'*'* ]]; then [[ $out == $2 ]]; else [ "$out" = "$2" ]; fi ||
    fail "${*:3}: exit $got (want $1), stdout <<$out>> want <<$2>> $(cat "$work/stderr")"
}
rm -rf "$work" && mkdir -p "$work/project/a/b" && cd "$work/project/a/b" || exit 1
cp "$examples"/{__output__.map,out.map,funcList.txt,target.ld,test.cpp_CFG.bin,__target_out__.o,test.cpp_RES.bin} "$work/project/"

# The defaults are the GUI's fixed paths two levels up.
check 0 "__entryPoint__: 8004101
loop: 80042a5
ModbusHGroups_Table: 8034000
ModbusIGroups_Table: 8034200
ModbusRemoteRegTables: 8034400

========
exeAddr: 08004000
exeSize: 0003172c
entry: 08004101
loop: 080042a5

========
AELF file './../../project.alf' has been successfully created" "${cli[@]}" build-aelf
[ "$(sha256sum <../../project.alf | cut -d' ' -f1)" = "$(cat "$examples/golden/project.alf.sha256")" ] || fail "project.alf differs from the golden image"
check 0 "replace ApplicationEntryPointWithAVeryLongName on __entryPoint__" "${cli[@]}" rewrite-ld
cmp -s <(tr -d '\r' <../../target_out.ld) "$examples/golden/target_out.ld" || fail "target_out.ld differs from the golden script"
check 0 "*
exeSize  *0x0003172c  202540
*
header  *0x0803fe00  64*" "${cli[@]}" info ../../project.alf
check 0 '{"entry":134234369,"loop":134234789,"hGroupsTable":134430720,"iGroupsTable":134431232,"remoteRegTables":134431744,"exeAddr":134234112,"exeSize":202540,"resAddr":134438912,"resSize":3125,"segments":[{"address":134234112,"size":202540},{"address":134438912,"size":3125},{"address":134479360,"size":64}]}' "${cli[@]}" info --json ../../project.alf
[ "$("${cli[@]}" info --json ../../project.alf | tail -c 1 | od -An -c | tr -d ' ')" = '\n' ] || fail "info --json: no line end after the object"
check 1 "Can't open aelf file '../../missing.alf'" "${cli[@]}" info ../../missing.alf

# Failures keep the earlier outputs.
cp ../../project.alf ../../target_out.ld "$work/"
check 1 "*Can't open elf file '../../nothing.o'" "${cli[@]}" build-aelf --object ../../nothing.o
check 1 "map file not open ../../none.map" "${cli[@]}" rewrite-ld --map ../../none.map
cmp -s ../../project.alf "$work/project.alf" && cmp -s ../../target_out.ld "$work/target_out.ld" || fail "a failed run changed its output"
printf 'loop\nnot_there\n' >../../funcs-missing.txt
check 3 "func not_there not found" "${cli[@]}" rewrite-ld --funcs ../../funcs-missing.txt -o ../../partial.ld
grep -q '^loop = 0x80042a5;' ../../partial.ld || fail "partial.ld lacks the found entry"

# Explicit paths work from anywhere.
cd "$work" || exit 1
check 0 "*successfully created" "${cli[@]}" build-aelf --map project/__output__.map --cfg project/test.cpp_CFG.bin \
  --object project/__target_out__.o --res project/test.cpp_RES.bin --output explicit.alf
cmp -s explicit.alf project/project.alf || fail "explicit build differs"

# Usage, help and version.
for args in "" "build-aelf --bogus" "info" "rewrite-ld --map"; do check 2 "*" "${cli[@]}" $args; done
check 0 "*build-aelf*rewrite-ld*info*" "${cli[@]}" --help
check 0 "*./../../__output__.map*" "${cli[@]}" build-aelf --help
check 0 "qmload-cli 1.0.0" "${cli[@]}" --version
# The binary samples are reproducible.
mkdir -p "$work/generated" && cd "$work/generated" && "${emulator[@]}" "$generator" || fail "the generator failed"
for file in test.cpp_CFG.bin __target_out__.o test.cpp_RES.bin; do cmp "$file" "$examples/$file" || fail "$file differs from examples/$file"; done
[ "$failures" -eq 0 ] && echo "all toolchain CLI checks passed" || { echo "$failures check(s) failed"; exit 1; }
