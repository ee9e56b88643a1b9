#!/usr/bin/env bash
# e2e.sh [--jobs N] PATTERN: the rows named PATTERN[/...] of qmload-cli's scenario table (lib.sh)
# on ptys, RFC 2217 servers and, under Wine (QMLOAD_WRAP), COM ports; the fault matrix, rows of the
# same form, is tests/faults/matrix.txt.
# e2e.sh --groups [wine]: the names before "/", a test each (the wine-* ones with "wine").
set -uo pipefail
. "$(dirname "$0")/lib.sh"

# name | simulators | qmload-cli's arguments | checks | action (scenario in lib.sh). A name with {A,L:B,...}: a row
# each, {} in the rest its value (after "L:", L in the name). Replies of the 7-block image: 1 identify, 2 start, 3/4 check/
# write the first block, 9/10 the middle one, 15/16 the header, 17 finish ($at; $die: where the line can die).
at="discovery:1,start:2,first-check:3,first-write:4,middle-write:10,header-write:16,finish:17"
die="discovery:1,start:2,first-check:3,middle-write:10,header-write:16" f1="flash --port @0" f2="flash --port @0 --port @1"
dnr="Device not response" lost="Port lost" fast="--baud auto --framing fast --erase-timeout 2" gap="--baud auto --framing gap --erase-timeout 2"
table=$(sed -E '/^#/d; s/ *\| */|/g; s/ +$//' - "$root/tests/faults/matrix.txt" <<'ROWS'
identify/{9600,38400,115200,921600} | --baud {} --id 0x01020304-a0b0c0d0-deadbeef | identify --port @0 --baud auto --json | '"id":"0x01020304-a0b0c0d0-deadbeef"' '"baud":{}'
flash                  | -                      | flash --port @0 --json @img     | =0 dump json '"event":"found"' '"event":"progress"' '"event":"done","port":"@0","seconds":' '"bytes":1305}'
flash-gap              | --baud 921600          | flash --port @0 --baud 921600 --framing gap --quiet @img | =0 dump
flash-id               | --baud 38400 --id 0x00000001-00000002-00000003 | flash --port @0 --baud 38400 --id 0x00000001-00000002-00000003 @img | ok
fault/{drop:--drop-reply 5,drop-every:--drop-every 4,corrupt:--corrupt-reply 6,corrupt-finish:--corrupt-reply 17,late:--late-reply 5:300} | {} | flash --port @0 @img | ok
fault/garbage          | --garbage 5:7 --corrupt-reply 4 | flash --port @0 --port @w/missing --json @img | =1 dump json '{"event":"log","port":"@w/missing","text":"Error opening port"}' '"text":"CRC error!"' '{"event":"done","port":"@0"'
silent                 | --silent-after-writes 2 | flash --port @0 --quiet @img   | '@0: Device not response'
protected              | -                      | flash --port @0 @w/boot.alf     | =1 '@0: Block at 0x08001000 refused by the device'
killed                 | --write-ms 100         | flash --port @0 --json @img     | =1 '"event":"error"' '!"event":"done"' | KILL:8
four                   | --id 0x00000001-00000000-00000000+--id 0x00000002-00000000-00000000+--id 0x00000003-00000000-00000000+--id 0x00000004-00000000-00000000 | flash --port @0 --port @1 --port @2 --port @3 @img | ok '@3: ok 0x00000004-00000000-00000000' '@1: ok 0x00000002-00000000-00000000'
interrupt              | --write-ms 100         | flash --port @0 --json @img     | =130 Cancelled '!"event":"done"' | INT:8
ports                  | -                      | ports --json                    | '"port":"@0"' 'pseudo-terminal /dev/pts/'
ports/text             | -                      | ports                           | '@0  pseudo-terminal /dev/pts/'
exit-codes/not-found   | --baud 57600           | flash --port @0 --quiet @img    | '@0: Devices are not found'
exit-codes/no-identity | --baud 57600           | identify --port @0 --baud 115200 | =1 'Devices are not found'
exit-codes/bad-image   | -                      | flash --port @0 @w/bad.alf      | =3 'is not AELF file'
exit-codes/no-image    | -                      | flash --port @0 --json @w/missing.alf | =3 json "Can't open aelf file"
exit-codes/{bad-baud:--port @0 --baud 12345,no-port:,bad-framing:--port @0 --framing slow} | - | flash {} @img | =2
{remote,wine-remote}/identify | ser2net         | identify --port @0              | '0x00c0ffee-12345678-9abcdef0 at 115200 baud'
{remote,wine-remote}/flash    | ser2net         | flash --port @0 @img            | ok
remote/pyserial        | pyserial               | flash --port @0 @img            | ok
remote/mixed           | ser2net --id 0x00000001-00000000-00000000+--id 0x00000002-00000000-00000000+ser2net --id 0x00000003-00000000-00000000 | flash --port @0 --port @1 --port @2 @img | ok '@2: ok 0x00000003-00000000-00000000'
remote/killed          | ser2net --write-ms 100 | flash --port @0 --json @img     | =1 '@0: the server closed the connection' '"event":"error"' | server:8
remote/refused-or-malformed | - | flash --port rfc2217://127.0.0.1:1 --port rfc2217://[::1 --port rfc2217://[::1]x --port rfc2217://h --port rfc2217://:80 --port rfc2217://h:123456 --port rfc2217://h:8x --port rfc2217://h:65536 @img | =1 'Error opening port: rfc2217://127.0.0.1:1: connection refused' 'rfc2217://[::1]x: expected rfc2217://HOST:PORT' 'rfc2217://:80: expected' 'rfc2217://h:65536: expected' 'rfc2217://h: Cannot open port'
wine-lost/{hangup,vanish} | --write-ms 100 --{}-after 8 | flash --port @0 --baud 115200 @img | '@0: Port lost' '1*Port lost: @0'
wine-lost/killed       | --write-ms 100         | flash --port @0 --baud 115200 @img | '@0: Port lost' '1*Port lost: @0' | KILL:8
ROWS
)
declare -A row=() && names=()
while IFS='|' read -r name rest; do
  for v in f1 f2 fast gap dnr lost at die; do rest=${rest//\$$v/${!v}} name=${name//\$$v/${!v}}; done
  items=("") && [[ $name =~ \{(.*)\} ]] && IFS=, read -r -a items <<<"${BASH_REMATCH[1]}"
  for p in "${items[@]}"; do n=${name/\{*\}/${p%%:*}} && names+=("$n") && row[$n]=${rest//\{\}/${p#*:}}; done
done <<<"$table"
[ "${1:-}" != --groups ] ||
  { printf '%s\n' "${names[@]%%/*}" | awk -v w="${2:-}" '$0 != "faults" && /^wine-/ == (w != "") && !seen[$0]++' && exit; }

jobs=1 && [ "${1:-}" = --jobs ] && jobs=$2 && shift 2
cli=${QMLOAD_CLI:?} wrap=${QMLOAD_WRAP:-} pattern=${1:?pattern}
needSim && { [ -z "$wrap" ] || "$wrap" --warm-up >/dev/null 2>&1 || missing_prereq "a working Wine prefix"; }
top=$(mktemp -d "${TMPDIR:-/tmp}/qmload-e2e.XXXXXX") failed=0 && work=$top
trap 'work=$top && { [ "$failed" = 0 ] || keepWork=1; } && cleanup' EXIT
runRow() { # NAME: its scenario in a folder of its own; one line: the outcome and what each device printed
  local sims args checks action && IFS='|' read -r sims args checks action <<<"${row[$1]}"
  work=$top/${1//\//-} && mkdir -p "$work" && echo nonsense >"$work/bad.alf"
  [[ $args == *boot.alf* ]] && image make "$work/boot.alf" 0x08001000 600 0x08030000 100
  scenario "$sims" "$args" "$checks" "$action" && echo "ok    $1 (${secs}s): $observed" ||
    fail "$1 (${secs}s): ${problems[*]}; devices: $observed"
}
started=$SECONDS ran=()
for name in "${names[@]}"; do
  [[ $name =~ ^$pattern(/|$) ]] || continue
  [ -z "$wrap" ] || [ ${#coms[@]} -gt 0 ] || [[ ${row[$name]} =~ ^(ser2net|pyserial) ]] || mapCom COM20 # a local device
  (runRow "$name") >"$top/${name//\//-}.txt" 2>&1 & ran+=("$name")
  [ "$(jobs -rp | wc -l)" -lt "$jobs" ] || wait -n
done
wait
for name in "${ran[@]}"; do cat "$top/${name//\//-}.txt" && grep -q '^ok ' "$top/${name//\//-}.txt" || failed=$((failed + 1)); done
[ ${#ran[@]} -gt 0 ] || fail "no scenario named $pattern"
echo "took $((SECONDS - started)) s" && echo "${pattern%%/*}: $((${#ran[@]} - failed)) passed, $failed failed"
[ "$failed" = 0 ]
