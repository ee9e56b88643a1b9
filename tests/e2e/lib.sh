# Sourced by the end-to-end scripts: simulators on ptys, RFC 2217 servers, qmload-cli runs. The
# caller sets work, cli and wrap (wine-run.sh for Windows programs).
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$root/tests/prereq.sh"
wineRun=$root/scripts/wine-run.sh python=/usr/bin/python3 pids=() coms=() # Debian's python, with python3-serial
sim=${QMLOAD_SIM:-$(ls -t "$root"/build/*/sim/qmload-sim 2>/dev/null | head -n 1)}
declare -A simPid=()
needSim() { [ -x "$sim" ] || missing_prereq "the Linux qmload-sim (build it, or set QMLOAD_SIM)"; }
unmapComs() { for c in "${coms[@]}"; do "$root/scripts/wine-map-com.sh" --remove "$c"; done >/dev/null 2>&1 && coms=(); }
cleanup() { kill "${pids[@]}" 2>/dev/null; wait 2>/dev/null; unmapComs; [ -n "${keepWork:-}" ] || rm -rf "$work"; }
fail() { # MESSAGE: and the end of each output and log in the work folder
  echo "FAIL: $*" && for f in "$work"/*.{out,err,log}; do [ -s "$f" ] && echo "--- $f" && tail -n 12 "$f"; done; exit 1
}
waitFor() { local end=$((SECONDS + $1)); until "${@:2}"; do [ "$SECONDS" -le "$end" ] || return 1; sleep 0.01; done; } # SECONDS COMMAND...
startSim() { # NAME [OPTIONS]: a device on the pty $work/NAME; its flash in NAME.dump, log NAME.log
  rm -f "$work/$1.dump"
  "$sim" --link "$work/$1" --dump "$work/$1.dump" --verbose "${@:2}" >"$work/$1.log" 2>&1 &
  pids+=($!) && simPid[$1]=$! && waitFor 10 grep -qs '^READY' "$work/$1.log" || fail "simulator $1 did not start"
}
stopSim() { kill -TERM "${simPid[$1]}" 2>/dev/null && wait "${simPid[$1]}" 2>/dev/null; }
# mapCom COMn: Wine's COMn is the link $top/COMn (mapping restarts the wineserver: once).
mapCom() { "$root/scripts/wine-map-com.sh" "$1" "${top:-$work}/$1" >/dev/null && coms+=("$1") || fail "cannot map $1"; }
# linkCom NAME COMn: the device behind COMn, at a standard speed (not the simulator's free number).
linkCom() { stty -F "$work/$1" 115200 && ln -sfn "$(readlink "$work/$1")" "${top:-$work}/$2" || fail "no pty for $2"; }
# image make|expect ...: tests/e2e/image.py. makeImage [SIZE]: 4+2 blocks, partial ones.
image() { "$python" "$root/tests/e2e/image.py" "$@"; }
makeImage() { image make "$work/image.alf" 0x08004000 "${1:-785}" 0x08030000 456 7 || fail "make image"; }
flashIs() { { [ -s "$work/image.bin" ] || image expect "$work/image.alf" "$work/image.bin"; } && cmp -s "$work/image.bin" "$work/$1.dump"; }
# serve KIND NAME: ser2net (as the README has it) or python3-serial's example; URL in port[N].
serve() {
  local tcp
  tcp=$("$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  port[${2#dev}]=rfc2217://127.0.0.1:$tcp
  if [ "$1" = ser2net ]; then
    need_tools ser2net && printf 'connection: &%s\n  accepter: telnet(rfc2217),tcp,127.0.0.1,%s\n  connector: serialdev,%s,115200n81,local
  options:\n    kickolduser: true\n    chardelay: false\n' "$2" "$tcp" "$(readlink -f "$work/$2")" >"$work/$2.yaml"
    ser2net -n -d -u -c "$work/$2.yaml" >"$work/$2-server.log" 2>&1 &
  else
    "$python" -c 'import serial.rfc2217' 2>/dev/null || missing_prereq python3-serial
    "$python" "$root/tests/e2e/remote_pyserial_server.py" "$tcp" "$(readlink -f "$work/$2")" >"$work/$2-server.log" 2>&1 &
  fi
  pids+=($!) && serverPid=$!
  waitFor 10 eval '(exec 3<>"/dev/tcp/127.0.0.1/$tcp") 2>/dev/null' || fail "no server for $2"
}

# scenario SIMS ARGS CHECKS [ACTION]: one qmload-cli run against fresh simulators. SIMS: each
# device's options, "+" between ("-": one), "ser2net"/"pyserial" first to serve it (under Wine
# a local one is COM2N). ARGS: @N device N's port, @img the image, @w the work folder. CHECKS:
# =N exit code (default 1 if a device's line is not ok); ok/okN: every (device N's) line ok and
# flash is the image; dump: flash only; json: JSON lines; !TEXT not printed; 1*TEXT on one line
# exactly; TEXT printed. ACTION SIG:R after device 0's reply R: KILL/TERM it, INT qmload-cli,
# KILL "server". Sets secs, observed (each device's last line), problems; false on a problem.
scenario() {
  local sims=${1%-} args=$2 checks=$3 action=${4:-} i kind c t0=$SECONDS rc allOk=1 line
  local -a devs=("") argv && port=() problems=() observed=
  [ -z "$sims" ] || IFS="+" read -r -a devs <<<"$sims+"
  for i in "${!devs[@]}"; do
    kind=${devs[i]%% *} && port[i]=$work/dev$i
    case $kind in
      ser2net | pyserial) startSim "dev$i" --baud 115200 ${devs[i]#"$kind"} && serve "$kind" "dev$i" ;;
      *) startSim "dev$i" ${devs[i]} && [ -n "${wrap:-}" ] && linkCom "dev$i" "COM2$i" && port[i]=COM2$i ;;
    esac
  done
  [[ $args == *@img* ]] && makeImage
  subst() { local s=$1 i; for i in "${!port[@]}"; do s=${s//@$i/${port[i]}}; done; s=${s//@img/$2}; echo "${s//@w/$work}"; }
  read -r -a argv <<<"$(subst "$args" "$([ -n "${wrap:-}" ] && echo "Z:${work//\//\\}\\image.alf" || echo "$work/image.alf")")"
  QMLOAD_SIM_DIR=$work timeout -s KILL "${bound:-120}" ${wrap:-} "$cli" "${argv[@]}" >"$work/cli.out" 2>"$work/cli.err" &
  [ -z "$action" ] || waitFor 30 grep -qE "reply #${action#*:}([^0-9]|$)" "$work/dev0.log"
  case ${action%%:*} in "") ;; INT) kill -INT $! ;; server) kill -KILL "$serverPid" ;; *) kill -s "${action%%:*}" "${simPid[dev0]}" ;; esac
  wait $! && rc=0 || rc=$?
  secs=$((SECONDS - t0))
  for i in "${!devs[@]}"; do # a failure's line is on stderr, ok on stdout
    stopSim "dev$i"
    line=$({ grep -h "^${port[i]}: " "$work/cli.err" && grep -h "^${port[i]}: ok" "$work/cli.out"; } | tail -n 1 | tr -d '\r')
    line=${line#"${port[i]}: "} && observed+="${observed:+ + }${line:-?}"
    [ -z "$line" ] || [[ $line == ok* ]] || allOk=0
  done
  [[ " $checks" == *" ="* ]] || checks="=$((1 - allOk)) $checks"
  eval "set -- $checks"
  for c; do
    c=$(subst "$c" "")
    case $c in
      =*) [ "$rc" = "${c#=}" ] || problems+=("exit $rc, expected ${c#=}$([ $rc = 137 ] && echo ": hung")") ;;
      ok* | dump)
        for i in $([ "$c" = ok ] || [ "$c" = dump ] && echo "${!devs[*]}" || echo "${c#ok}"); do
          [ "$c" = dump ] || grep -q "^${port[i]}: ok" "$work/cli.out" || problems+=("${port[i]} not ok")
          flashIs "dev$i" || problems+=("the flash of dev$i is not the image")
        done ;;
      json) "$python" -c 'import json, sys
for line in open(sys.argv[1], encoding="utf-8"): assert line.endswith("\n") and isinstance(json.loads(line), dict)' \
        "$work/cli.out" 2>/dev/null || problems+=("stdout is not JSON lines") ;;
      1\**) [ "$(cat "$work"/cli.* | grep -cF -- "${c#1\*}")" = 1 ] || problems+=("not once: ${c#1\*}") ;;
      !*) ! grep -qF -- "${c#!}" "$work"/cli.* || problems+=("printed ${c#!}") ;;
      *) grep -qF -- "$c" "$work"/cli.* || problems+=("did not print $c") ;;
    esac
  done
  ! grep -qE 'Sanitizer|runtime error:' "$work/cli.err" || problems+=("sanitizer: $(grep -m1 -E 'ERROR|runtime error' "$work/cli.err")")
  [ ${#problems[@]} -eq 0 ]
}
