#!/usr/bin/env bash
# Times the two toolchain jobs of qmload-cli on large inputs; prints figures,
# asserts nothing.
#   build-aelf  on a ~20 MB map in the builder's grammar and a 256 KiB program
#   rewrite-ld  on a ~20 MB entry-list map, with every 4th symbol wanted
# Each job runs RUNS times (default 3); it prints every run's whole-job time and
# the map megabytes parsed per second, then the best run.
#   bench/toolchain.sh [BUILD_DIR] [RUNS]      (default build/linux)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-$root/build/linux}
runs=${2:-3}
cli=$build/cli/qmload-cli
if [ ! -x "$cli" ]; then
  (cd "$root" && cmake --preset linux >/dev/null && cmake --build --preset linux --target qmload-cli >/dev/null)
fi

work=$(mktemp -d "${TMPDIR:-/tmp}/qmload-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
program=$((256 * 1024))
bash "$root/bench/make-big-map.sh" "$work" 20 "$program" >/dev/null
# A flat flash image from 0x08000000 that holds the whole program at 0x08004000.
head -c $((0x4000 + program)) /dev/urandom >"$work/flash.o"

now() { date +%s.%N; }
mb() { awk -v b="$(stat -c %s "$1")" 'BEGIN { printf "%.1f", b / 1048576 }'; }

# bench NAME MAP COMMAND...: runs the command RUNS times and prints the figures.
bench() {
  local name=$1 map=$2 best=
  shift 2
  local size
  size=$(mb "$map")
  for i in $(seq 1 "$runs"); do
    local t0 t1 secs
    t0=$(now)
    "$@" >"$work/$name.log" 2>&1 || { echo "$name failed:"; tail -n 5 "$work/$name.log"; exit 1; }
    t1=$(now)
    secs=$(awk -v a="$t0" -v b="$t1" 'BEGIN { printf "%.3f", b - a }')
    printf '%-11s run %d  %s MB map  %7.3f s  %6.1f MB/s\n' "$name" "$i" "$size" "$secs" \
      "$(awk -v m="$size" -v s="$secs" 'BEGIN { print m / s }')"
    best=$(awk -v a="${best:-$secs}" -v b="$secs" 'BEGIN { print (b < a) ? b : a }')
  done
  printf '%-11s best       %s MB map  %7.3f s  %6.1f MB/s\n' "$name" "$size" "$best" \
    "$(awk -v m="$size" -v s="$best" 'BEGIN { print m / s }')"
}

echo "qmload-cli: $cli"
bench build-aelf "$work/big_output.map" "$cli" build-aelf --map "$work/big_output.map" \
  --cfg "$root/examples/test.cpp_CFG.bin" --object "$work/flash.o" \
  --res "$root/examples/test.cpp_RES.bin" -o "$work/project.alf"
size=$(stat -c %s "$work/project.alf")
echo "build-aelf  image $size bytes (program $program, resources $(stat -c %s "$root/examples/test.cpp_RES.bin"))"
bench rewrite-ld "$work/big_out.map" "$cli" rewrite-ld --funcs "$work/big_funcList.txt" \
  --map "$work/big_out.map" --template "$root/examples/target.ld" -o "$work/target_out.ld"
echo "rewrite-ld  $(wc -l <"$work/big_funcList.txt") entries wanted, script $(wc -l <"$work/target_out.ld") lines"
