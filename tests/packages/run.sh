#!/usr/bin/env bash
# The packages as a user gets them: makes them with scripts/package.sh, then
#  - checks SHA256SUMS and runs lintian on the Debian package (no error allowed);
#  - unpacks the Debian package into a scratch root (dpkg -x) and runs what it
#    holds: the three programs' --version, qmload-cli building the sample image
#    from the packaged examples (compared with the golden checksum) and showing it
#    with info, each manual page with man -l, and the bash completion;
#  - installs the Windows installer silently under Wine (/S) into the test prefix,
#    asks the installed qmload-cli.exe for its version, looks for the Start-menu
#    entry, and uninstalls silently.
# Ends with "packages: N passed, N failed".
#
#   QMLOAD_SKIP_PACKAGE=1   test the packages already in build/packages/
set -uo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
packages=$root/build/packages
passed=0
failed=0

check() { # check NAME COMMAND... : one test
  local name=$1
  shift
  if "$@"; then
    echo "ok - $name"
    passed=$((passed + 1))
  else
    echo "FAIL - $name"
    failed=$((failed + 1))
  fi
}
finish() {
  echo "packages: $passed passed, $failed failed"
  [ "$failed" -eq 0 ]
  exit
}

if [ "${QMLOAD_SKIP_PACKAGE:-0}" != 1 ]; then
  check "scripts/package.sh makes the packages" \
    env QMLOAD_SKIP_SETUP=1 QMLOAD_SKIP_LINTIAN=1 bash scripts/package.sh
fi
version=$(sed -n 's/^project(qmload VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
deb=$packages/qmload_${version}_amd64.deb
installer=$packages/qmload-${version}-win64.exe
zip=$packages/qmload-${version}-win64.zip
scratch=$(mktemp -d "${TMPDIR:-/tmp}/qmload-packages.XXXXXX")
trap 'rm -rf "$scratch"' EXIT

check "SHA256SUMS covers the three packages and matches" \
  bash -c "cd '$packages' && [ \$(wc -l <SHA256SUMS) -eq 3 ] && sha256sum --quiet -c SHA256SUMS"
[ -f "$deb" ] || { echo "FAIL - no $deb"; failed=$((failed + 1)); finish; }

# lintian's tags: E errors, W warnings, I and others only information.
lintian --tag-display-limit 0 "$deb" >"$scratch/lintian.txt" 2>&1
cat "$scratch/lintian.txt"
check "lintian reports no error" bash -c "! grep -q '^E: ' '$scratch/lintian.txt'"
check "the package depends on the shared libraries it links" \
  bash -c "dpkg-deb -f '$deb' Depends | grep -q 'libc6' && dpkg-deb -f '$deb' Depends | grep -q 'libglfw3'"

fsroot=$scratch/root
dpkg -x "$deb" "$fsroot"
bin=$fsroot/usr/bin
doc=$fsroot/usr/share/doc/qmload
quietly() { "$@" >"$scratch/quietly.log" 2>&1 || { cat "$scratch/quietly.log"; return 1; }; }
says() { # says EXPECTED COMMAND... : the command succeeds and prints exactly EXPECTED
  local expected=$1 got
  shift
  got=$("$@" | tr -d '\r') && [ "$got" = "$expected" ] || { echo "$*: got '$got', expected '$expected'"; return 1; }
}
for program in qmload qmload-cli qmload-sim; do
  # No display: qmload must answer without opening a window.
  check "$program --version" says "$program $version" env -u DISPLAY "$bin/$program" --version
done

ex=$doc/examples
check "the packaged qmload-cli builds the sample image from the packaged examples" \
  quietly "$bin/qmload-cli" build-aelf --map "$ex/__output__.map" --cfg "$ex/test.cpp_CFG.bin" \
  --object "$ex/__target_out__.o" --res "$ex/test.cpp_RES.bin" -o "$scratch/project.alf"
check "the image is the golden one" says "$(cut -d' ' -f1 "$ex/golden/project.alf.sha256")" \
  bash -c "sha256sum <'$scratch/project.alf' | cut -d' ' -f1"
check "qmload-cli info shows the image's segments" grep -Eq '^header +0x0803fe00 +64$' \
  <("$bin/qmload-cli" info "$scratch/project.alf")

renders() { # renders PAGE: man -l shows it without a complaint, with NAME and --version
  MANWIDTH=80 man -l "$fsroot/usr/share/man/man1/$1.1.gz" >"$scratch/$1.txt" 2>"$scratch/$1.err" &&
    ! grep . "$scratch/$1.err" && grep -q '^NAME' "$scratch/$1.txt" && grep -q -- '--version' "$scratch/$1.txt"
}
for page in qmload qmload-cli qmload-sim; do
  check "man -l $page.1.gz" renders "$page"
done
check "qmload-cli's page lists each subcommand's options" grep -q -- '--framing' "$scratch/qmload-cli.txt"

# The completion as bash-completion loads it, with the packaged program on PATH.
completes() { # completes EXPECTED WORD... : the completion offers EXPECTED for the last word
  local expected=$1
  shift
  says "$expected" bash -c 'cd "$1" && PATH=$2:$PATH && source "$3" && shift 3 &&
    COMP_WORDS=("$@") && COMP_CWORD=$(($# - 1)) && _qmload_cli && echo "${COMPREPLY[*]}"' \
    _ "$scratch" "$bin" "$fsroot/usr/share/bash-completion/completions/qmload-cli" "$@"
}
check "completion: subcommands" completes flash qmload-cli f
check "completion: a subcommand's options" completes --framing qmload-cli flash --f
check "completion: .alf images" completes project.alf qmload-cli info pro

# Windows: the zip, and the installer and its uninstaller under Wine.
check "the zip holds qmload.exe and qmload-cli.exe" \
  bash -c "unzip -l '$zip' | grep -q '/qmload.exe\$' && unzip -l '$zip' | grep -q '/qmload-cli.exe\$'"
. scripts/wine-env.sh
if ! wine_ready; then
  check "Wine is ready for the installer tests" false
  finish
fi
installDir=$WINEPREFIX/drive_c/Program\ Files/qmload
startMenu=$WINEPREFIX/drive_c/ProgramData/Microsoft/Windows/Start\ Menu/Programs
rm -rf "$installDir" # what an interrupted earlier run left
check "the installer runs silently (/S)" timeout 120 wine "$installer" /S
check "it installs qmload.exe and qmload-cli.exe under Program Files" \
  test -f "$installDir/qmload.exe" -a -f "$installDir/qmload-cli.exe"
check "the installed qmload-cli.exe --version says $version" \
  bash -c "[ \"\$(timeout 60 wine 'C:\\Program Files\\qmload\\qmload-cli.exe' --version | tr -d '\r')\" = 'qmload-cli $version' ]"
check "a Start-menu entry opens the GUI" \
  bash -c "find '$startMenu' -name 'qmload.lnk' | grep -q ."
# The uninstaller copies itself away and returns at once: wait for its work.
timeout 120 wine 'C:\Program Files\qmload\Uninstall.exe' /S
for _ in $(seq 60); do
  [ -e "$installDir" ] || break
  sleep 0.5
done
check "the uninstaller removes the programs and the Start-menu entry" \
  bash -c "[ ! -e '$installDir' ] && ! find '$startMenu' -name 'qmload.lnk' | grep -q ."
finish
