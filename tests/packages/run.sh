#!/usr/bin/env bash
# The packages made by scripts/package.sh (QMLOAD_SKIP_PACKAGE=1: those in build/packages)
# as a user gets them: the Debian one unpacked into a scratch root, the Windows installer
# and uninstaller run silently under Wine. Ends with "packages: N passed, N failed".
set -uo pipefail
cd "$(dirname "$0")/../.."
packages=$(pwd)/build/packages passed=0 failed=0
check() { if "${@:2}"; then echo "ok - $1" && passed=$((passed + 1)); else echo "FAIL - $1" && failed=$((failed + 1)); fi; } # NAME COMMAND...
finish() { echo "packages: $passed passed, $failed failed" && exit $((failed > 0)); }
says() { # EXPECTED COMMAND...: the command succeeds and prints exactly EXPECTED
  local got && got=$("${@:2}" | tr -d '\r') && [ "$got" = "$1" ] || { echo "${*:2}: got '$got', expected '$1'" && return 1; }
}
[ "${QMLOAD_SKIP_PACKAGE:-0}" = 1 ] || check "scripts/package.sh makes the packages" \
  env QMLOAD_SKIP_SETUP=1 QMLOAD_SKIP_LINTIAN=1 bash scripts/package.sh
version=$(sed -n 's/^project(qmload VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
deb=$packages/qmload_${version}_amd64.deb zip=$packages/qmload-$version-win64.zip scratch=$(mktemp -d "${TMPDIR:-/tmp}/qmload-packages.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
check "SHA256SUMS covers the three packages and matches" \
  bash -c "cd '$packages' && [ \$(wc -l <SHA256SUMS) -eq 3 ] && sha256sum --quiet -c SHA256SUMS"
[ -f "$deb" ] || { check "the Debian package exists" false && finish; }
check "lintian reports no error" bash -c "lintian --tag-display-limit 0 '$deb' | tee '$scratch/lintian.txt' && ! grep -q '^E: ' '$scratch/lintian.txt'"
check "the package depends on the shared libraries it links" bash -c "dpkg-deb -f '$deb' Depends | grep 'libc6' | grep -q 'libglfw3'"

fs=$scratch/root bin=$scratch/root/usr/bin ex=$scratch/root/usr/share/doc/qmload/examples && dpkg -x "$deb" "$fs"
for program in qmload qmload-cli qmload-sim; do # qmload must answer without a display
  check "$program --version" says "$program $version" env -u DISPLAY "$bin/$program" --version
  check "man -l $program.1.gz shows NAME and --version without a complaint" bash -c "MANWIDTH=80 man -l '$fs/usr/share/man/man1/$program.1.gz' \
    >'$scratch/$program.txt' 2>'$scratch/$program.err' && ! grep . '$scratch/$program.err' && grep -q '^NAME' '$scratch/$program.txt' && grep -q -- --version '$scratch/$program.txt'"
done
check "qmload-cli's page lists each subcommand's options" grep -q -- '--framing' "$scratch/qmload-cli.txt"
check "the packaged qmload-cli builds the golden sample image from the packaged examples" \
  says "$(cut -d' ' -f1 "$ex/golden/project.alf.sha256")" bash -c "'$bin/qmload-cli' build-aelf --map '$ex/__output__.map' \
    --cfg '$ex/test.cpp_CFG.bin' --object '$ex/__target_out__.o' --res '$ex/test.cpp_RES.bin' -o '$scratch/project.alf' \
    >/dev/null && sha256sum <'$scratch/project.alf' | cut -d' ' -f1"
check "qmload-cli info shows the image's segments" grep -Eq '^header +0x0803fe00 +64$' <("$bin/qmload-cli" info "$scratch/project.alf")
completes() { # EXPECTED WORD...: bash-completion's way, the packaged program on PATH, offers EXPECTED for the last word
  says "$1" bash -c 'cd "$1" && PATH=$2:$PATH && source "$3" && shift 3 && COMP_WORDS=("$@") && COMP_CWORD=$(($# - 1)) &&
    _qmload_cli && echo "${COMPREPLY[*]}"' _ "$scratch" "$bin" "$fs/usr/share/bash-completion/completions/qmload-cli" "${@:2}"
}
check "completion: subcommands" completes flash qmload-cli f
check "completion: a subcommand's options" completes --framing qmload-cli flash --f
check "completion: .alf images" completes project.alf qmload-cli info pro

check "the zip holds qmload.exe and qmload-cli.exe" bash -c "unzip -l '$zip' | grep -q '/qmload.exe\$' && unzip -l '$zip' | grep -q '/qmload-cli.exe\$'"
. scripts/wine-env.sh
wine_ready || { check "Wine is ready for the installer tests" false && finish; }
dir=$WINEPREFIX/drive_c/Program\ Files/qmload menu=$WINEPREFIX/drive_c/ProgramData/Microsoft/Windows/Start\ Menu/Programs
rm -rf "$dir" # what an interrupted earlier run left
check "the installer runs silently (/S)" timeout 120 wine "$packages/qmload-$version-win64.exe" /S
check "it installs qmload.exe and qmload-cli.exe under Program Files" test -f "$dir/qmload.exe" -a -f "$dir/qmload-cli.exe"
check "the installed qmload-cli.exe --version says $version" \
  says "qmload-cli $version" timeout 60 wine 'C:\Program Files\qmload\qmload-cli.exe' --version
check "a Start-menu entry opens the GUI" bash -c "find '$menu' -name 'qmload.lnk' | grep -q ."
timeout 120 wine 'C:\Program Files\qmload\Uninstall.exe' /S
for _ in $(seq 60); do [ -e "$dir" ] && sleep 0.5; done # it copies itself away and returns at once
check "the uninstaller removes the programs and the Start-menu entry" \
  bash -c "[ ! -e '$dir' ] && ! find '$menu' -name 'qmload.lnk' | grep -q ."
finish
