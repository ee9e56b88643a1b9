#!/usr/bin/env bash
# kill-test.sh QMLOAD_CLI [TRIES]: build-aelf and rewrite-ld on ~20 MB maps, SIGKILLed at
# random moments, leave the old output (or none) or the complete new one, never a part.
set -uo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd) cli=$1 tries=${2:-12} failures=0
ex=$root/examples work=$(mktemp -d /tmp/qmload-kill.XXXXXX) && trap 'rm -rf "$work"' EXIT
bash "$root/bench/make-big-map.sh" "$work" 20 >/dev/null || { echo "cannot generate the maps" && exit 1; }
# Each job replaces its shell with qmload-cli, so that the kill reaches the program.
buildAelf() { exec "$cli" build-aelf --map "$work/big_output.map" --cfg "$ex/test.cpp_CFG.bin" \
  --object "$ex/__target_out__.o" --res "$ex/test.cpp_RES.bin" -o "$1"; }
rewriteLd() { exec "$cli" rewrite-ld --funcs "$work/big_funcList.txt" --map "$work/big_out.map" --template "$ex/target.ld" -o "$1"; }
bad() { echo "FAIL $*" && failures=$((failures + 1)); }
for job in buildAelf rewriteLd; do
  ref=$work/$job.ref out=$work/$job.out t0=$(date +%s%3N) seen=
  ($job "$ref") >"$work/$job.log" 2>&1 && [ -s "$ref" ] && ms=$(($(date +%s%3N) - t0)) || { cat "$work/$job.log" && exit 1; }
  for i in $(seq "$tries"); do
    rm -f "$out"* && old= && [ $((i % 3)) -eq 0 ] || { old="the previous output, try $i" && echo "$old" >"$out"; }
    delay=$(awk -v d="$ms" -v r="$RANDOM" 'BEGIN { printf "%.3f", d * 1.2 * r / 32767 / 1000 }') # to a little past the end
    ($job "$out") >/dev/null 2>&1 & sleep "$delay"; kill -KILL $! 2>/dev/null; wait $! 2>/dev/null
    if [ ! -e "$out" ]; then [ -z "$old" ] && seen+=" none" || bad "$job try $i (${delay}s): the old output is gone"
    elif cmp -s "$out" "$ref"; then seen+=" new"
    elif [ -n "$old" ] && [ "$(cat "$out")" = "$old" ]; then seen+=" old"
    else bad "$job try $i (${delay}s): half-written, $(stat -c %s "$out") of $(stat -c %s "$ref") bytes"; fi
  done
  ($job "$out") >/dev/null 2>&1 && cmp -s "$out" "$ref" || bad "$job: the run after the kills did not write the complete file"
  echo "$job: a run takes $ms ms; after each kill:$seen"
done
echo "atomic: $failures failed" && [ $failures -eq 0 ]
