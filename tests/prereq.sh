# Sourced by the test scripts. A missing prerequisite skips a test in a developer's
# run (exit 77, counted as skipped, naming it); under CI (CI=true) it fails the test,
# so that nothing disappears without a word.
missing_prereq() {
  local verdict=SKIPPED code=77
  [ "${CI:-}" = true ] && verdict=FAIL code=1
  echo "$verdict: missing prerequisite: $* (install it with: bash scripts/setup.sh)"
  exit $code
}
# need_tools TOOL...: each on PATH (or an executable path).
need_tools() { local t; for t in "$@"; do command -v "$t" >/dev/null 2>&1 || missing_prereq "$t"; done; }
