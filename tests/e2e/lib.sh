# Sourced by the end-to-end scripts: simulators on ptys, RFC 2217 servers, qmload-cli runs, an X
# display. The caller sets work, sim, cli, tool (e2e_image), wrap (wine-run.sh for Windows programs).
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
. "$root/tests/prereq.sh"
wineRun=$root/scripts/wine-run.sh python=/usr/bin/python3 pids=() coms=() # Debian's python, with python3-serial
declare -A simPid=()
cleanup() {
  kill "${pids[@]}" 2>/dev/null; wait 2>/dev/null
  for c in "${coms[@]}"; do "$root/scripts/wine-map-com.sh" --remove "$c" >/dev/null 2>&1; done
  [ -n "${keepWork:-}" ] || rm -rf "$work"
}
fail() {
  echo "FAIL: $*"
  for f in "$work"/*.out "$work"/*.err "$work"/*.log; do [ -s "$f" ] && echo "--- $f" && tail -n 12 "$f"; done
  exit 1
}
waitFor() { # SECONDS COMMAND...
  local end=$((SECONDS + $1))
  until "${@:2}"; do [ "$SECONDS" -le "$end" ] || return 1; sleep 0.05; done
}
# startSim NAME [OPTIONS]: a device on the pty $work/NAME; its flash in NAME.dump, log NAME.log
startSim() {
  rm -f "$work/$1.dump"
  "$sim" --link "$work/$1" --dump "$work/$1.dump" --verbose "${@:2}" >"$work/$1.log" 2>&1 &
  pids+=($!) && simPid[$1]=$!
  waitFor 10 grep -qs '^READY' "$work/$1.log" || fail "simulator $1 did not start"
}
stopSim() { kill -TERM "${simPid[$1]}" 2>/dev/null && wait "${simPid[$1]}" 2>/dev/null; }
# mapCom COMn: Wine's COMn is the link $top/COMn (mapping restarts the wineserver: once).
mapCom() { "$root/scripts/wine-map-com.sh" "$1" "${top:-$work}/$1" >/dev/null && coms+=("$1") || fail "cannot map $1"; }
# linkCom NAME COMn: the device behind COMn, at a standard speed (not the simulator's free number).
linkCom() { stty -F "$work/$1" 115200 && ln -sfn "$(readlink "$work/$1")" "${top:-$work}/$2" || fail "no pty for $2"; }
# makeImage [SIZE]: 4+2 blocks, partial ones, random bytes with 0xFF.
makeImage() { ${wrap:-} "$tool" make "$work/image.alf" 0x08004000 "${1:-785}" 0x08030000 456 7 || fail "make image"; }
flashIs() {
  [ -s "$work/image.bin" ] || ${wrap:-} "$tool" expect "$work/image.alf" "$work/image.bin" >/dev/null
  cmp -s "$work/image.bin" "$work/$1.dump"
}
# serve KIND NAME: ser2net (as the README has it) or python3-serial's example; URL in port[N].
serve() {
  local tcp
  tcp=$("$python" -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  port[${2#dev}]=rfc2217://127.0.0.1:$tcp
  if [ "$1" = ser2net ]; then
    need_tools ser2net
    printf 'connection: &%s\n  accepter: telnet(rfc2217),tcp,127.0.0.1,%s\n  connector: serialdev,%s,115200n81,local
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
  local -a devs=("") argv
  port=() problems=() observed=
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
  for _ in $([ -n "$action" ] && seq 6000); do grep -qE "reply #${action#*:}([^0-9]|$)" "$work/dev0.log" && break; sleep 0.005; done
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

# startX: Xvfb on a random free display (two on one number unlink each other's socket).
startX() {
  need_tools Xvfb xdotool xwd /usr/bin/convert
  # Xvfb picks a free display itself and writes its number to fd 3: two tests
  # starting at once never share a server (a number chosen here could clash).
  # -noreset: by default the server resets when its last client leaves, and a
  # client connecting meanwhile (the app after the readiness probe) is refused.
  Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp -noreset 3>"$work/display" 2>"$work/xvfb.log" &
  pids+=($!)
  waitFor 10 test -s "$work/display" || fail "Xvfb did not start"
  export DISPLAY=":$(head -n 1 "$work/display")"
  waitFor 10 xdotool getdisplaygeometry >/dev/null 2>&1 || fail "Xvfb did not answer on $DISPLAY"
}
findWindow() { window=$(xdotool search --name '^qmload \.::Vantorix' 2>/dev/null | head -n 1) && [ -n "$window" ]; }
# click X Y: after a move elsewhere (a click where the pointer has not entered can be lost).
click() { xdotool mousemove --window "$window" 2 150 sleep 0.05 mousemove --window "$window" "$1" "$2" sleep 0.05 click 1 && sleep 0.15; }
shot() { xwd -silent -id "$window" | /usr/bin/convert xwd:- "png:$work/shot-$1.png"; }
pixelIs() { [ "$(xwd -silent -id "$window" | /usr/bin/convert xwd:- -format "%[pixel:p{$1,$2}]" info:)" = "srgb($3)" ]; }
