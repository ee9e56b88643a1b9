# Sourced by the test scripts: what to do when a prerequisite is missing.
#
# A developer's ad-hoc run may skip a test (exit 77, which CTest and
# scripts/test.sh count as skipped, saying which). Under CI (CI=true) nothing may
# disappear without a word: a missing prerequisite fails the test, naming it.
missing_prereq() {
  if [ "${CI:-}" = "true" ]; then
    echo "FAIL: missing prerequisite: $* (install it with: bash scripts/setup.sh)"
    exit 1
  fi
  echo "SKIPPED: missing prerequisite: $* (install it with: bash scripts/setup.sh)"
  exit 77
}

# need_tools TOOL...: each must be on PATH (or an executable path).
need_tools() {
  local tool
  for tool in "$@"; do
    command -v "$tool" >/dev/null 2>&1 || missing_prereq "$tool"
  done
}
