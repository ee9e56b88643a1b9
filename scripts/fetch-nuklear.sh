#!/usr/bin/env bash
# Fetches the Nuklear GUI headers (nuklear.h and its GLFW/OpenGL 2 backend) from
# Debian's glfw3 source package, checks them against pinned SHA-256 sums and puts
# them into .deps/nuklear/. The system's apt configuration is not touched: a private
# source list, list folder and cache are used. Does nothing when both headers are
# already there with the right sums.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dest="$root/.deps/nuklear"
version=3.3.8-1
declare -A sums=(
  [nuklear.h]=5ca9fd74ca145d96271a8f09679f33ce7d4ac3a460c0bc41d73f5387c9b9f94d
  [nuklear_glfw_gl2.h]=abfe3c7450c1d8d39d281a9d11bd6777f640061f54949c26bf027e71ce7400fa
)

sumOk() { # file expected
  [ -f "$1" ] && [ "$(sha256sum "$1" | cut -d' ' -f1)" = "$2" ]
}

allPresent=1
for f in "${!sums[@]}"; do
  sumOk "$dest/$f" "${sums[$f]}" || allPresent=0
done
if [ "$allPresent" = 1 ]; then
  echo "fetch-nuklear: headers present in $dest"
  exit 0
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/parts" "$work/lists/partial" "$work/cache/archives/partial" "$work/src"
cat >"$work/parts/glfw3-src.sources" <<SRC
Types: deb-src
URIs: http://deb.debian.org/debian
Suites: bookworm
Components: main
Signed-By: /usr/share/keyrings/debian-archive-keyring.gpg
SRC

aptOpts=(
  -o Dir::Etc::SourceList=/dev/null
  -o "Dir::Etc::SourceParts=$work/parts"
  -o "Dir::State::Lists=$work/lists"
  -o "Dir::Cache=$work/cache"
  -o APT::Sandbox::User=root
)
echo "fetch-nuklear: downloading glfw3 $version source"
apt-get "${aptOpts[@]}" -qq update
(cd "$work/src" && apt-get "${aptOpts[@]}" -qq source --download-only "glfw3=$version")

orig=$(ls "$work/src"/glfw3_*.orig.tar.* 2>/dev/null | head -n 1)
if [ -z "$orig" ]; then
  echo "fetch-nuklear: glfw3 source archive not found" >&2
  exit 1
fi
mkdir -p "$work/out"
tar -xf "$orig" -C "$work/out" --strip-components=2 \
  glfw-3.3.8/deps/nuklear.h glfw-3.3.8/deps/nuklear_glfw_gl2.h

for f in "${!sums[@]}"; do
  if ! sumOk "$work/out/$f" "${sums[$f]}"; then
    echo "fetch-nuklear: SHA-256 mismatch for $f (got $(sha256sum "$work/out/$f" | cut -d' ' -f1))" >&2
    exit 1
  fi
done
mkdir -p "$dest"
for f in "${!sums[@]}"; do
  install -m 0644 "$work/out/$f" "$dest/$f"
done
echo "fetch-nuklear: installed nuklear.h and nuklear_glfw_gl2.h into $dest"
