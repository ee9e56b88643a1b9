#!/usr/bin/env bash
# Installs everything the build, the demo and the tests need on a Debian bookworm
# machine, then fetches the Nuklear headers. Safe to run again: it only installs
# what is missing. Needs root, or sudo.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

packages=(
  build-essential cmake ninja-build pkg-config git
  libgtest-dev libgmock-dev googletest libcli11-dev nlohmann-json3-dev
  libglfw3-dev libgl1-mesa-dev libgl1-mesa-dri xvfb xdotool x11-apps imagemagick
  fonts-liberation
  g++-mingw-w64-x86-64-posix wine wine64
  clang libclang-rt-14-dev llvm clang-format clang-tidy gcovr
  dpkg-dev xz-utils ca-certificates python3
  help2man lintian nsis fakeroot zip unzip man-db bash-completion
  ser2net python3-serial
)

sudo_cmd=()
if [ "$(id -u)" -ne 0 ]; then sudo_cmd=(sudo); fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "${#missing[@]}" -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get update -qq
  "${sudo_cmd[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

if [ -x "$here/fetch-nuklear.sh" ]; then
  "$here/fetch-nuklear.sh"
fi
echo "setup: done"
