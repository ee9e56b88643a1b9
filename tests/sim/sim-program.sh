#!/usr/bin/env bash
# sim-program.sh WORK_DIR QMLOAD_SIM: the link qmload-sim makes and removes, its dump, what it refuses.
set -u
work=$1 sim=$2 failures=0 pid=
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
trap '[ -n "$pid" ] && kill -KILL "$pid" 2>/dev/null' EXIT
rm -rf "$work" && mkdir -p "$work"
start() { # LINK ARGS...: runs the simulator on LINK until it says READY
  "$sim" --link "$@" >"$work/out" 2>"$work/err" & pid=$!
  for _ in $(seq 100); do [ "$(cat "$work/out")" = "READY $1" ] && return; sleep 0.05; done
  fail "no READY for $1: $(cat "$work/out" "$work/err")"
}
stop() { kill -TERM "$pid" && wait "$pid" || fail "exit $? on SIGTERM"; pid=; }

start "$work/sims/dev" --dump "$work/flash.bin" # the folder is made
stop
[ ! -L "$work/sims/dev" ] || fail "the link outlived the simulator"
[ "$(stat -c %s "$work/flash.bin")" = 262144 ] || fail "the dump is not the whole flash"
[ ! -s "$work/err" ] || fail "not quiet without --verbose: $(cat "$work/err")"
ln -s /dev/pts/nonexistent "$work/stale" # a stale link is replaced
start "$work/stale" && stop
echo x >"$work/file" # a file is not
timeout 5 "$sim" --link "$work/file" 2>&1 | grep -q READY && fail "the simulator replaced a file"
[ "$(cat "$work/file")" = x ] || fail "the file changed"
for bad in "--id nope" "--late-reply 5" "--late-reply 5:x" "--baud 0" "--bogus" "--garbage 999999"; do
  timeout 5 "$sim" $bad >/dev/null 2>&1
  case $? in 0 | 124) fail "qmload-sim $bad: not refused (exit 0 or a hang)" ;; esac
done
[ "$failures" = 0 ] && echo "all qmload-sim program checks passed"
