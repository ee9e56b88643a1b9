#!/usr/bin/env bash
# End-to-end test of the toolchain commands of qmload-cli on the sample in
# examples/: exit codes, console text and golden outputs.
# usage: toolchain-cli.sh EXAMPLES_DIR WORK_DIR QMLOAD_CLI [EMULATOR...]
set -u
examples="$1"
work="$2"
shift 2
cli=("$@") # the binary, behind an emulator when cross-built

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

# Runs the tool; stdout (line ends normalised) in $out, exit code in $rc.
run() {
    "${cli[@]}" "$@" >"$work/stdout" 2>"$work/stderr"
    rc=$?
    out="$(tr -d '\r' <"$work/stdout")"
}
expect_rc() { [ "$rc" = "$1" ] || fail "$2: exit $rc, expected $1 ($(cat "$work/stderr"))"; }
expect_out() { [ "$out" = "$1" ] || fail "$2: stdout was <<$out>> expected <<$1>>"; }

rm -rf "$work"
mkdir -p "$work/project/a/b"
cp "$examples"/__output__.map "$examples"/out.map "$examples"/funcList.txt "$examples"/target.ld \
   "$examples"/test.cpp_CFG.bin "$examples"/__target_out__.o "$examples"/test.cpp_RES.bin "$work/project/"
cd "$work/project/a/b" || exit 1

# The defaults are the GUI's fixed paths two levels up.
run build-aelf
expect_rc 0 "build-aelf"
expect_out "__entryPoint__: 8004101
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
AELF file './../../project.alf' has been successfully created" "build-aelf console"
hash="$(sha256sum ../../project.alf | cut -d' ' -f1)"
[ "$hash" = "$(cat "$examples/golden/project.alf.sha256")" ] || fail "project.alf differs from the golden image"

run rewrite-ld
expect_rc 0 "rewrite-ld"
expect_out "replace ApplicationEntryPointWithAVeryLongName on __entryPoint__" "rewrite-ld console"
cmp -s <(tr -d '\r' <../../target_out.ld) "$examples/golden/target_out.ld" || fail "target_out.ld differs from the golden script"

run info ../../project.alf
expect_rc 0 "info"
echo "$out" | grep -q '^exeSize  *0x0003172c  202540$' || fail "info table: $out"
echo "$out" | grep -q '^header  *0x0803fe00  64$' || fail "info segments: $out"
run info --json ../../project.alf
expect_rc 0 "info --json"
expect_out '{"entry":134234369,"loop":134234789,"hGroupsTable":134430720,"iGroupsTable":134431232,"remoteRegTables":134431744,"exeAddr":134234112,"exeSize":202540,"resAddr":134438912,"resSize":3125,"segments":[{"address":134234112,"size":202540},{"address":134438912,"size":3125},{"address":134479360,"size":64}]}' "info --json"
[ -z "$(tail -c 1 "$work/stdout")" ] || fail "info --json: no line end after the object"
run info ../../missing.alf
expect_rc 1 "info on a missing image"
expect_out "Can't open aelf file '../../missing.alf'" "info message"

# Failures keep the earlier outputs.
cp ../../project.alf "$work/project.alf.before"
run build-aelf --object ../../nothing.o
expect_rc 1 "build-aelf without object"
case "$out" in *"Can't open elf file '../../nothing.o'") ;; *) fail "build-aelf missing object: $out" ;; esac
cmp -s ../../project.alf "$work/project.alf.before" || fail "a failed build changed project.alf"

printf 'loop\nnot_there\n' >../../funcs-missing.txt
run rewrite-ld --funcs ../../funcs-missing.txt -o ../../partial.ld
expect_rc 3 "rewrite-ld with a missing function"
expect_out "func not_there not found" "rewrite-ld missing console"
grep -q '^loop = 0x80042a5;' ../../partial.ld || fail "partial.ld lacks the found entry"

cp ../../target_out.ld "$work/target_out.before"
run rewrite-ld --map ../../none.map
expect_rc 1 "rewrite-ld without map"
expect_out "map file not open ../../none.map" "rewrite-ld missing map console"
cmp -s ../../target_out.ld "$work/target_out.before" || fail "a failed rewrite changed target_out.ld"

# Explicit paths work from anywhere.
cd "$work" || exit 1
run build-aelf --map project/__output__.map --cfg project/test.cpp_CFG.bin --object project/__target_out__.o \
    --res project/test.cpp_RES.bin --output explicit.alf
expect_rc 0 "build-aelf with explicit paths"
cmp -s explicit.alf project/project.alf || fail "explicit build differs"

# Usage, help and version.
run
expect_rc 2 "no subcommand"
run build-aelf --bogus
expect_rc 2 "unknown option"
run info
expect_rc 2 "info without image"
run rewrite-ld --map
expect_rc 2 "option without value"
run --help
expect_rc 0 "--help"
case "$out" in *build-aelf*rewrite-ld*info*) ;; *) fail "--help lists the commands: $out" ;; esac
run build-aelf --help
expect_rc 0 "build-aelf --help"
case "$out" in *./../../__output__.map*) ;; *) fail "build-aelf --help shows the defaults: $out" ;; esac
run --version
expect_rc 0 "--version"
expect_out "qmload-cli 1.0.0" "--version"

if [ "$failures" -ne 0 ]; then
    echo "$failures check(s) failed"
    exit 1
fi
echo "all toolchain CLI checks passed"
