#!/usr/bin/env bash
# The flashing fault matrix: flashes a small multi-block image into a fresh
# qmload-sim for every simulated fault at several places of the flash. Each row
# states its one right outcome, per device:
#   ok        the port's line reads "ok" and the device's flash holds the image
#   TEXT      the port's line names TEXT (a clean failure), exit 1
# and the run must end within the time bound with exit 0 exactly when every
# device is ok. Any other outcome fails the row: a clean failure where the flash
# should succeed, an exit without a message, a hang, a crash, a sanitizer report.
# Prints a table (expected, observed) and the closing line "faults: N passed, N failed".
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
    -h|--help) sed -n 2,15p "$0"; exit 0 ;;
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

# One run. Arguments: name, simulator options, cli options, the expected outcome
# and an optional action "kill:R" / "term:R" (SIGKILL / SIGTERM the first
# simulator once it has handled the request of reply R). Simulator options "A+B"
# start two devices (options A and B) and flash both in one qmload-cli run; the
# expected outcome is then "A+B" too, one per device.
runCase() {
  local name=$1 simArgs=$2 cliArgs=$3 expected=$4 action=${5:-}
  local dir=$work/$name
  mkdir -p "$dir"
  local -a devices ports pids
  # The "+" added at the end keeps an empty last device ("A+" is two devices).
  IFS='+' read -r -a devices <<<"$simArgs+"
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

  # What each device ended as: "ok" (its line says so and its flash is the image),
  # the text of its failure line, or "?" (no line of its own).
  local -a wants
  IFS='+' read -r -a wants <<<"$expected"
  local observed="" pass=1 allOk=1 line got
  for i in "${!devices[@]}"; do
    line=$(grep -E "^${ports[i]}: " "$dir/cli.out" | tail -n 1)
    got=${line#"${ports[i]}: "}
    if [ -z "$line" ]; then
      got="?"
    elif [[ $got == ok* ]]; then
      flashMatches "$dir/flash$i.bin" && got=ok || got="ok, but the flash differs"
    fi
    [ "$got" = ok ] || allOk=0
    observed="$observed${observed:+ + }$got"
    local want=${wants[i]:-ok}
    if [ "$want" = ok ]; then [ "$got" = ok ] || pass=0; else [[ $got == *"$want"* ]] || pass=0; fi
  done
  if grep -qE 'AddressSanitizer|LeakSanitizer|UndefinedBehaviorSanitizer|runtime error:' "$dir/cli.out"; then
    pass=0; observed="sanitizer: $(grep -m1 -E 'ERROR|runtime error' "$dir/cli.out" | cut -c1-50)"
  elif [ $rc -eq 137 ] || [ $rc -eq 124 ]; then
    pass=0; observed="hung past ${bound}s"
  elif [ $rc -gt 128 ]; then
    pass=0; observed="crashed, signal $((rc - 128))"
  elif { [ $allOk -eq 1 ] && [ $rc -ne 0 ]; } || { [ $allOk -eq 0 ] && [ $rc -ne 1 ]; }; then
    pass=0; observed="exit $rc: $observed"
  fi
  echo "$name|$pass|$secs|$expected|$observed" >"$dir/result"
}

# --- the matrix: one row per case, "name | simulator | command line | expected
# | action". $-words are expanded: the reply ordinals above, and the command
# lines $fast and $gap. A failure's expected text is what its line must contain.
fast="--baud auto --framing fast --erase-timeout 2"
gap="--baud auto --framing gap --erase-timeout 2"
lost="Port lost"
dnr="Device not response"
table=$(cat <<'ROWS'
baseline                | -                                 | $fast                     | ok
baseline-gap            | -                                 | $gap                      | ok
baseline-115200         | -                                 | --baud 115200 --framing fast | ok
drop-@                  | --drop-reply @                    | $fast                     | ok
corrupt-@               | --corrupt-reply @                 | $fast                     | ok
garbage-@               | --garbage 7:@                     | $fast                     | ok
late300-@               | --late-reply @:300                | $fast                     | ok
late300-discovery       | --late-reply $rDiscovery:300      | $fast                     | Devices are not found
late1500-middle-write   | --late-reply $rMidWrite:1500      | $fast                     | ok
late1500-header-write   | --late-reply $rHeaderWrite:1500   | $fast                     | ok
late150-middle-check    | --late-reply $rMidCheck:150       | $fast                     | ok
late1500-start          | --late-reply $rStart:1500         | $fast                     | ok
late1500-finish         | --late-reply $rFinish:1500        | $fast                     | ok
device-at-9600          | --baud 9600                       | $fast                     | ok
device-at-921600        | --baud 921600                     | $fast                     | ok
device-at-9600-drop-finish | --baud 9600 --drop-reply $rFinish | $fast                  | ok
corrupt-middle-check-gap | --corrupt-reply $rMidCheck       | $gap                      | ok
garbage-middle-write-gap | --garbage 7:$rMidWrite           | $gap                      | ok
late300-header-check-gap | --late-reply $rHeaderCheck:300   | $gap                      | ok
drop-every-2            | --drop-every 2                    | $fast                     | ok
drop-every-3            | --drop-every 3                    | $fast                     | ok
drop-every-5            | --drop-every 5                    | $fast                     | ok
silent-after-1-writes   | --silent-after-writes 1           | $fast                     | $dnr
silent-after-mid-writes | --silent-after-writes $mid        | $fast                     | $dnr
silent-after-last-writes | --silent-after-writes $blocks    | $fast                     | $dnr
erase-3s                | --erase-ms 3000                   | --baud auto --framing fast | ok
erase-3s-gap            | --erase-ms 3000                   | --baud auto --framing gap  | ok
latency-1ms             | --latency-ms 1                    | $fast                     | ok
latency-16ms            | --latency-ms 16                   | $fast                     | ok
latency-16ms-gap        | --latency-ms 16                   | $gap                      | ok
hangup-after-discovery  | --hangup-after $rDiscovery        | $fast                     | $lost
hangup-after-start      | --hangup-after $rStart            | $fast                     | $lost
hangup-middle-write     | --hangup-after $rMidWrite         | $fast                     | $lost
hangup-middle-write-gap | --hangup-after $rMidWrite         | $gap                      | $lost
vanish-middle-write     | --vanish-after $rMidWrite         | $fast                     | $lost
vanish-after-start      | --vanish-after $rStart            | $gap                      | $lost
stall-middle-write-300ms | --stall-ms $rMidWrite:300        | $fast                     | ok
stall-after-start-500ms | --stall-ms $rStart:500            | $fast                     | ok
stall-middle-write-3s   | --stall-ms $rMidWrite:3000        | $fast                     | $dnr
sim-killed-%            | --write-ms 100                    | $fast                     | $lost | kill:%
port-removed-%          | --write-ms 100                    | $fast                     | $lost | term:%
two-devices             | +                                 | $fast                     | ok+ok
two-devices-second-silent | +--silent-after-writes 2        | $fast                     | ok+$dnr
two-devices-second-drops | +--drop-every 3                  | $fast                     | ok+ok
two-devices-second-hangs-up | +--hangup-after $rMidWrite    | $fast                     | ok+$lost
two-devices-different-speeds | --write-ms 20+--write-ms 100 | $fast                     | ok+ok
two-devices-first-killed | --write-ms 100+                  | $fast                     | $lost+ok | kill:$rMidWrite
ROWS
)
# "@" rows run at every place of the flash; "%" rows where the line dies (not
# after finish, where the answer may or may not be out before the kill). A row
# named again later replaces the generated one: the command line's discovery
# waits a few wire times per attempt, so an identify answer 300 ms late is never
# seen, by design (the ladder moves on and the answer goes out at a rate the host
# no longer listens at).
positions="discovery:$rDiscovery start:$rStart first-check:$rFirstCheck first-write:$rFirstWrite middle-write:$rMidWrite header-write:$rHeaderWrite finish:$rFinish"
killPositions="discovery:$rDiscovery start:$rStart first-check:$rFirstCheck middle-write:$rMidWrite header-write:$rHeaderWrite"
trim() { local t=$1; t=${t#"${t%%[![:space:]]*}"}; printf '%s' "${t%"${t##*[![:space:]]}"}"; }
cases=()
addCase() {
  local i
  for i in "${!cases[@]}"; do
    if [ "${cases[i]%%;*}" = "${1%%;*}" ]; then cases[i]=$1; return; fi
  done
  cases+=("$1")
}
while IFS='|' read -r name simArgs cliArgs expected action; do
  name=$(trim "$name"); simArgs=$(trim "$simArgs"); cliArgs=$(trim "$cliArgs")
  expected=$(trim "$expected"); action=$(trim "${action:-}")
  [ "$simArgs" = - ] && simArgs=""
  simArgs=$(eval "echo \"$simArgs\""); cliArgs=$(eval "echo \"$cliArgs\"")
  expected=$(eval "echo \"$expected\""); action=$(eval "echo \"$action\"")
  each=
  case $name in *@) each=$positions ;; *%) each=$killPositions ;; esac
  if [ -z "$each" ]; then
    addCase "$name;$simArgs;$cliArgs;$expected;$action"
    continue
  fi
  for p in $each; do
    where=${p%%:*}; r=${p#*:}
    addCase "${name%?}$where;${simArgs//[@%]/$r};$cliArgs;$expected;${action//[@%]/$r}"
  done
done <<<"$table"

started=$(date +%s)
running=0
for c in "${cases[@]}"; do
  IFS=';' read -r name simArgs cliArgs expected action <<<"$c"
  [ -n "$only" ] && ! [[ $name =~ $only ]] && continue
  runCase "$name" "$simArgs" "$cliArgs" "$expected" "$action" 2>/dev/null &
  running=$((running + 1))
  if [ $running -ge "$jobs" ]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

passed=0
failed=0
printf '%-30s %-5s %6s  %-24s %s\n' case pass secs expected observed
for c in "${cases[@]}"; do
  IFS=';' read -r name _ <<<"$c"
  [ -f "$work/$name/result" ] || continue
  IFS='|' read -r _ pass secs expected observed <"$work/$name/result"
  case $pass in
    1) label=yes; passed=$((passed + 1)) ;;
    0) label=NO; failed=$((failed + 1)) ;;
    *) label=error; observed="$pass $secs $expected"; failed=$((failed + 1)) ;;
  esac
  printf '%-30s %-5s %6s  %-24s %s\n' "$name" "$label" "$secs" "$expected" "$observed"
  if [ "$label" != yes ]; then
    sed 's/^/      cli: /' "$work/$name/cli.out" | tail -n 6
    keep=1
  fi
done
echo "matrix took $(( $(date +%s) - started )) s"
echo "faults: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
