#!/usr/bin/env bash
# Builds the packages into build/packages/: the Debian package (from a Linux
# build), the Windows installer and zip (from the mingw-w64 build), and
# SHA256SUMS for the three. Checks the Debian package with lintian and fails on
# any error it reports.
#
#   QMLOAD_SKIP_SETUP=1          do not run scripts/setup.sh
#   QMLOAD_SKIP_LINTIAN=1        do not run lintian
#   QMLOAD_PKG_LINUX_DIR=DIR     the Linux build's folder (default build/pkg-linux)
#   QMLOAD_PKG_WINDOWS_DIR=DIR   the Windows build's folder (default build/pkg-windows)
#   QMLOAD_JOBS=N                parallel build jobs (default 2)
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
jobs=${QMLOAD_JOBS:-2}

if [ "${QMLOAD_SKIP_SETUP:-0}" != 1 ]; then
  bash scripts/setup.sh
fi

linuxDir=${QMLOAD_PKG_LINUX_DIR:-$root/build/pkg-linux}
windowsDir=${QMLOAD_PKG_WINDOWS_DIR:-$root/build/pkg-windows}
out=$root/build/packages
mkdir -p "$out"
rm -f "$out"/qmload_*.deb "$out"/qmload-*-win64.exe "$out"/qmload-*-win64.zip "$out/SHA256SUMS"

# Release builds of the programs only: the packages hold no tests. The Linux
# build takes Debian's hardening flags, as a Debian package build would.
build() {
  local preset=$1 dir=$2
  shift 2
  echo "package: building the $preset programs in $dir"
  cmake --preset "$preset" -B "$dir" -DCMAKE_BUILD_TYPE=Release -DQMLOAD_TESTS=OFF "$@" >/dev/null
  cmake --build "$dir" -j "$jobs"
}
debianFlags() {
  DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get "$1"
}

# Runs CPack in a build folder and moves its packages into $out.
pack() {
  local dir=$1 generators=$2
  rm -rf "$dir/packages"
  (cd "$dir" && cpack -G "$generators") >"$dir/cpack.log" 2>&1 || {
    cat "$dir/cpack.log"
    echo "package: cpack $generators failed in $dir"
    exit 1
  }
  find "$dir/packages" -maxdepth 1 -type f \( -name '*.deb' -o -name '*.exe' -o -name '*.zip' \) -exec mv -t "$out" {} +
}

build linux "$linuxDir" \
  "-DCMAKE_C_FLAGS=$(debianFlags CPPFLAGS) $(debianFlags CFLAGS)" \
  "-DCMAKE_CXX_FLAGS=$(debianFlags CPPFLAGS) $(debianFlags CXXFLAGS)" \
  "-DCMAKE_EXE_LINKER_FLAGS=$(debianFlags LDFLAGS)"
pack "$linuxDir" DEB
build windows "$windowsDir"
pack "$windowsDir" "NSIS;ZIP"

version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$linuxDir/CMakeCache.txt")
files=("qmload_${version}_amd64.deb" "qmload-${version}-win64.exe" "qmload-${version}-win64.zip")
for f in "${files[@]}"; do
  [ -f "$out/$f" ] || { echo "package: $f was not made"; exit 1; }
done

if [ "${QMLOAD_SKIP_LINTIAN:-0}" != 1 ]; then
  echo "package: lintian ${files[0]}"
  # lintian exits non-zero on errors; its own tags say what they are.
  lintian --no-tag-display-limit "$out/${files[0]}" || { echo "package: lintian reports errors"; exit 1; }
fi

(cd "$out" && sha256sum "${files[@]}" >SHA256SUMS)
echo "package: done"
(cd "$out" && ls -l "${files[@]}" SHA256SUMS)
