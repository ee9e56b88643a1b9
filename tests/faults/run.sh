#!/usr/bin/env bash
# The flashing fault matrix: flashes a small multi-block image into a fresh
# qmload-sim for every simulated fault at several places of the flash, and sorts
# each run into
#   correct          exit 0 and the device's flash holds the image's three segments
#   clean failure    non-zero exit with a message, within the time bound
#   SILENT CORRUPTION  exit 0 with wrong flash, a hang past the bound, a crash or
#                    a sanitizer report
# Prints a table and the closing line "faults: N passed, N failed"; only silent
# corruption fails.
#
#   tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX] [--keep]
# The logs of each run (simulator, command line) are left in DIR/fault-matrix.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/../.." && pwd)
build=$root/build/linux-asan
jobs=2
only=
keep=0
while [ $# -gt 0 ]; do
  case $1 in
    --build) build=$2; shift 2 ;;
    --jobs) jobs=$2; shift 2 ;;
    --only) only=$2; shift 2 ;;
    --keep) keep=1; shift ;;
    -h|--help) sed -n 2,13p "$0"; exit 0 ;;
    *) echo "usage: tests/faults/run.sh [--build DIR] [--jobs N] [--only REGEX] [--keep]"; exit 2 ;;
  esac
done
case $build in /*) ;; *) build=$root/$build ;; esac
cli=$build/cli/qmload-cli
sim=$build/sim/qmload-sim
for exe in "$cli" "$sim"; do
  if [ ! -x "$exe" ]; then
    echo "missing $exe (build qmload-cli and qmload-sim in $build first)"
    echo "faults: 0 passed, 1 failed"
    exit 1
  fi
done

# Seconds a single flash may take before it counts as hung. The slowest clean
# failure (a silent device: six write-block repeats of 1000 ticks) is ~10 s.
bound=${QMLOAD_FAULT_BOUND:-60}
work=$(mktemp -d /tmp/qmload-faults.XXXXXX)
cleanup() {
  local pid
  for pid in $(jobs -p); do kill "$pid" 2>/dev/null; done
  # The logs of the last matrix stay beside the build for a look afterwards.
  if [ "$keep" -eq 1 ]; then
    echo "runs kept in $work"
  else
    find "$work" -name 'flash*.bin' -delete 2>/dev/null
    rm -rf "$build/fault-matrix"
    mv "$work" "$build/fault-matrix" 2>/dev/null || rm -rf "$work"
  fi
}
trap cleanup EXIT

# --- the image: a small program (3 blocks, the last one partial), a small
# resource blob (2 blocks) and the header block, built from the examples with
# the builder itself.
image=$work/image.alf
bash "$here/make-image.sh" "$cli" "$root/examples" "$work/image" >"$work/image.log" 2>&1 ||
  { cat "$work/image.log"; echo "faults: 0 passed, 1 failed"; exit 1; }
cp "$work/image/small.alf" "$image"
le32() { od -An -tu4 -j "$2" -N4 "$1" | tr -d ' '; }
exeAddr=$(le32 "$image" $((4 + 28)))
exeSize=$(le32 "$image" $((4 + 32)))
resAddr=$(le32 "$image" $((4 + 40)))
resSize=$(le32 "$image" $((4 + 44)))
blocks=$(( (exeSize + 255) / 256 + (resSize + 255) / 256 + 1 ))

# Reply ordinals of a fault-free flash (the simulator counts the replies it
# produces): 1 identify, 2 start, then per block a check-block and a write-block
# reply, then finish.
rDiscovery=1
rStart=2
rFirstCheck=3
rFirstWrite=4
mid=$((blocks / 2))
rMidCheck=$((3 + 2 * mid))
rMidWrite=$((4 + 2 * mid))
rHeaderCheck=$((3 + 2 * (blocks - 1)))
rHeaderWrite=$((4 + 2 * (blocks - 1)))
rFinish=$((3 + 2 * blocks))
echo "image: program $exeSize bytes at $(printf 0x%08x "$exeAddr"), resources $resSize bytes at $(printf 0x%08x "$resAddr"), $blocks blocks, finish is reply #$rFinish"

# The device's flash (a dump from 0x08000000) holds the image's three segments.
flashMatches() {
  local dump=$1 base=$((0x08000000))
  [ -f "$dump" ] || return 1
  cmp -s -n "$exeSize" "$image" "$dump" 68 $((exeAddr - base)) || return 1
  cmp -s -n "$resSize" "$image" "$dump" $((68 + exeSize)) $((resAddr - base)) || return 1
  cmp -s -n 64 "$image" "$dump" 4 $((0x0803FE00 - base)) || return 1
}

# One run. Arguments: name, simulator options, cli options, and an optional
# action "kill:R" / "term:R" (SIGKILL / SIGTERM the first simulator once it has
# handled the request of reply R). Simulator options "A+B" start two devices
# (options A and B) and flash both in one qmload-cli run; then every device that
# the command line reports "ok" must hold the image, and exit 0 needs both.
runCase() {
  local name=$1 simArgs=$2 cliArgs=$3 action=${4:-}
  local dir=$work/$name
  mkdir -p "$dir"
  local -a devices ports pids
  IFS='+' read -r -a devices <<<"$simArgs"
  [ ${#devices[@]} -eq 0 ] && devices=("")
  local i
  for i in "${!devices[@]}"; do
    ports[i]=$dir/port$i
    "$sim" --link "${ports[i]}" --dump "$dir/flash$i.bin" --verbose ${devices[i]} >"$dir/sim$i.out" 2>"$dir/sim$i.err" &
    pids[i]=$!
  done
  for i in "${!devices[@]}"; do
    local waited=0
    until grep -q '^READY' "$dir/sim$i.out" 2>/dev/null; do
      sleep 0.05
      waited=$((waited + 1))
      if [ $waited -gt 200 ] || ! kill -0 "${pids[i]}" 2>/dev/null; then
        echo "$name|error|-|simulator did not start: $(head -c 80 "$dir/sim$i.err")" >"$dir/result"
        kill -9 "${pids[@]}" 2>/dev/null; wait "${pids[@]}" 2>/dev/null
        return
      fi
    done
  done

  local watcher=
  if [ -n "$action" ]; then
    local sig=${action%%:*} reply=${action#*:}
    [ "$sig" = kill ] && sig=KILL || sig=TERM
    (
      for _ in $(seq 1 3000); do
        if grep -qE "reply #$reply([^0-9]|$)" "$dir/sim0.err" 2>/dev/null; then
          kill -s $sig "${pids[0]}" 2>/dev/null
          exit 0
        fi
        sleep 0.005
      done
    ) &
    watcher=$!
  fi

  local -a portArgs=()
  for i in "${!devices[@]}"; do portArgs+=(--port "${ports[i]}"); done
  local start end rc
  start=$(date +%s.%N)
  timeout -s KILL "$bound" "$cli" flash "${portArgs[@]}" $cliArgs "$image" >"$dir/cli.out" 2>&1
  rc=$?
  end=$(date +%s.%N)
  [ -n "$watcher" ] && { kill "$watcher" 2>/dev/null; wait "$watcher" 2>/dev/null; }
  # Stop the simulators; each writes its flash at exit (a finish wrote it already).
  for i in "${!devices[@]}"; do
    if kill -0 "${pids[i]}" 2>/dev/null; then
      kill -TERM "${pids[i]}" 2>/dev/null
      for _ in $(seq 1 100); do kill -0 "${pids[i]}" 2>/dev/null || break; sleep 0.05; done
      kill -KILL "${pids[i]}" 2>/dev/null
    fi
    wait "${pids[i]}" 2>/dev/null
  done
  local secs
  secs=$(awk -v a="$start" -v b="$end" 'BEGIN{printf "%.1f", b - a}')

  # Devices reported "ok" whose flash is not the image.
  local wrongOk=""
  for i in "${!devices[@]}"; do
    if grep -qE "^${ports[i]}: ok" "$dir/cli.out" && ! flashMatches "$dir/flash$i.bin"; then
      wrongOk="$wrongOk port$i"
    fi
  done
  local allMatch=1
  for i in "${!devices[@]}"; do flashMatches "$dir/flash$i.bin" || allMatch=0; done

  local verdict note message
  message=$(grep -v "^\s*$" "$dir/cli.out" | tail -n 1 | sed "s|$dir/||g" | cut -c1-70)
  if grep -qE 'AddressSanitizer|LeakSanitizer|UndefinedBehaviorSanitizer|runtime error:' "$dir/cli.out"; then
    verdict=silent; note="sanitizer: $(grep -m1 -E 'ERROR|runtime error' "$dir/cli.out" | cut -c1-60)"
  elif [ $rc -eq 137 ] || [ $rc -eq 124 ]; then
    verdict=silent; note="hung past ${bound}s"
  elif [ $rc -gt 128 ]; then
    verdict=silent; note="crashed, signal $((rc - 128))"
  elif [ -n "$wrongOk" ]; then
    verdict=silent; note="reported ok, but the flash differs from the image:$wrongOk"
  elif [ $rc -eq 0 ]; then
    if [ $allMatch -eq 1 ]; then
      verdict=correct; note=$message
    else
      verdict=silent; note="exit 0 but the flash differs from the image"
    fi
  elif [ -z "$message" ]; then
    verdict=unclear; note="exit $rc without a message"
  else
    verdict=clean; note="exit $rc: $message"
  fi
  echo "$name|$verdict|$secs|$note" >"$dir/result"
}

# --- the matrix
cases=()
add() { cases+=("$1;$2;$3;${4:-}"); }
fast="--baud auto --framing fast"
gap="--baud auto --framing gap"
positions="discovery:$rDiscovery start:$rStart first-check:$rFirstCheck first-write:$rFirstWrite middle-write:$rMidWrite header-write:$rHeaderWrite finish:$rFinish"

add baseline "" "$fast"
add baseline-gap "" "$gap"
add baseline-115200 "" "--baud 115200 --framing fast"
for p in $positions; do
  where=${p%%:*}; r=${p#*:}
  add "drop-$where" "--drop-reply $r" "$fast"
  add "corrupt-$where" "--corrupt-reply $r" "$fast"
  add "garbage-$where" "--garbage 7:$r" "$fast"
  add "late300-$where" "--late-reply $r:300" "$fast"
done
add "late1500-middle-write" "--late-reply $rMidWrite:1500" "$fast"
add "late1500-header-write" "--late-reply $rHeaderWrite:1500" "$fast"
add "late150-middle-check" "--late-reply $rMidCheck:150" "$fast"
add "late1500-start" "--late-reply $rStart:1500" "$fast"
add "late1500-finish" "--late-reply $rFinish:1500" "$fast"
add "device-at-9600" "--baud 9600" "$fast"
add "device-at-921600" "--baud 921600" "$fast"
add "device-at-9600-drop-finish" "--baud 9600 --drop-reply $rFinish" "$fast"
add "corrupt-middle-check-gap" "--corrupt-reply $rMidCheck" "$gap"
add "garbage-middle-write-gap" "--garbage 7:$rMidWrite" "$gap"
add "late300-header-check-gap" "--late-reply $rHeaderCheck:300" "$gap"
for k in 2 3 5; do
  add "drop-every-$k" "--drop-every $k" "$fast"
done
for n in 1 $mid $((blocks - 1)) $blocks; do
  add "silent-after-$n-writes" "--silent-after-writes $n" "$fast"
done
for p in discovery:$rDiscovery start:$rStart first-check:$rFirstCheck middle-write:$rMidWrite header-write:$rHeaderWrite finish:$rFinish; do
  where=${p%%:*}; r=${p#*:}
  # A slow device (100 ms a write) so that the signal lands while the flash runs.
  add "sim-killed-$where" "--write-ms 100" "$fast" "kill:$r"
  add "port-removed-$where" "--write-ms 100" "$fast" "term:$r"
done

# Two devices flashed in one run; the second one fails in various ways.
add "two-devices" "+" "$fast"
add "two-devices-second-silent" "+--silent-after-writes 2" "$fast"
add "two-devices-second-drops" "+--drop-every 3" "$fast"
add "two-devices-different-speeds" "--write-ms 20+--write-ms 100" "$fast"
add "two-devices-first-killed" "--write-ms 100+" "$fast" "kill:$rMidWrite"

started=$(date +%s)
running=0
for c in "${cases[@]}"; do
  IFS=';' read -r name simArgs cliArgs action <<<"$c"
  [ -n "$only" ] && ! [[ $name =~ $only ]] && continue
  runCase "$name" "$simArgs" "$cliArgs" "$action" 2>/dev/null &
  running=$((running + 1))
  if [ $running -ge "$jobs" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

passed=0
failed=0
printf '%-30s %-18s %6s  %s\n' case verdict secs note
for c in "${cases[@]}"; do
  IFS=';' read -r name _ <<<"$c"
  [ -f "$work/$name/result" ] || continue
  IFS='|' read -r _ verdict secs note <"$work/$name/result"
  case $verdict in
    correct) label="correct"; passed=$((passed + 1)) ;;
    clean) label="clean failure"; passed=$((passed + 1)) ;;
    unclear) label="failure, no text"; passed=$((passed + 1)) ;;
    silent) label="SILENT CORRUPTION"; failed=$((failed + 1)) ;;
    *) label="$verdict"; failed=$((failed + 1)) ;;
  esac
  printf '%-30s %-18s %6s  %s\n' "$name" "$label" "$secs" "$note"
  if [ "$verdict" = silent ] || [ "$verdict" = error ]; then
    sed 's/^/      cli: /' "$work/$name/cli.out" | tail -n 6
    keep=1
  fi
done
echo "matrix took $(( $(date +%s) - started )) s"
echo "faults: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
