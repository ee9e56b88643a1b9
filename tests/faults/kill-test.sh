#!/usr/bin/env bash
# Files are never half-written: runs `qmload-cli build-aelf` and `rewrite-ld` on
# ~20 MB maps, kills them with SIGKILL at random moments, and checks that the
# output is then either the file that was there before (or no file, when there
# was none) or the complete new one, never anything in between.
#   kill-test.sh QMLOAD_CLI [TRIES_PER_JOB]
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
cli=$1
tries=${2:-12}
examples=$root/examples
work=$(mktemp -d /tmp/qmload-kill.XXXXXX)
trap 'rm -rf "$work"' EXIT

bash "$root/bench/make-big-map.sh" "$work" 20 >/dev/null || { echo "cannot generate the maps"; exit 1; }

# Each job replaces its shell with qmload-cli, so that a kill reaches the program.
buildAelf() {
  exec "$cli" build-aelf --map "$work/big_output.map" --cfg "$examples/test.cpp_CFG.bin" \
    --object "$examples/__target_out__.o" --res "$examples/test.cpp_RES.bin" -o "$1"
}
rewriteLd() {
  exec "$cli" rewrite-ld --funcs "$work/big_funcList.txt" --map "$work/big_out.map" \
    --template "$examples/target.ld" -o "$1"
}

nowMs() { date +%s%3N; }
failures=0
checks=0

for job in buildAelf rewriteLd; do
  ref=$work/$job.ref
  t0=$(nowMs)
  if ! ($job "$ref") >"$work/$job.log" 2>&1 || [ ! -s "$ref" ]; then
    echo "$job: the uninterrupted run failed"; cat "$work/$job.log"; exit 1
  fi
  duration=$(( $(nowMs) - t0 ))
  kept=0 complete=0 absent=0
  for i in $(seq 1 "$tries"); do
    out=$work/$job.out
    rm -f "$out" "$out.part"
    hadOld=1
    if [ $((i % 3)) -eq 0 ]; then
      hadOld=0
    else
      printf 'the previous output, try %s\n' "$i" >"$out"
      cp "$out" "$work/old"
    fi
    # A moment anywhere in the run, a little past its usual end included.
    delay=$(awk -v d="$duration" -v r="$RANDOM" 'BEGIN { printf "%.3f", d * 1.2 * r / 32767 / 1000 }')
    ($job "$out") >/dev/null 2>&1 &
    pid=$!
    sleep "$delay"
    kill -KILL $pid 2>/dev/null
    wait $pid 2>/dev/null
    checks=$((checks + 1))
    if [ ! -e "$out" ]; then
      if [ $hadOld -eq 1 ]; then
        echo "FAIL $job try $i (killed after ${delay}s): the old output is gone"; failures=$((failures + 1))
      else
        absent=$((absent + 1))
      fi
    elif cmp -s "$out" "$ref"; then
      complete=$((complete + 1))
    elif [ $hadOld -eq 1 ] && cmp -s "$out" "$work/old"; then
      kept=$((kept + 1))
    else
      echo "FAIL $job try $i (killed after ${delay}s): the output is half-written ($(stat -c %s "$out") of $(stat -c %s "$ref") bytes)"
      failures=$((failures + 1))
    fi
  done
  # A run after the kills still writes the complete file over a left-over temporary.
  out=$work/$job.out
  if ! ($job "$out") >/dev/null 2>&1 || ! cmp -s "$out" "$ref"; then
    echo "FAIL $job: the run after the kills did not write the complete file"; failures=$((failures + 1))
  fi
  checks=$((checks + 1))
  echo "$job: run ${duration} ms; $tries kills: old file kept $kept, complete new file $complete, no file (none before) $absent"
done

if [ $failures -eq 0 ]; then
  echo "atomic: $checks checks passed"
else
  echo "atomic: $failures of $checks checks failed"
fi
[ $failures -eq 0 ]
