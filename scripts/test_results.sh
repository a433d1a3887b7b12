# shellcheck shell=bash
# What the scripts that run tests share: where logs go, and how results are counted and printed.
# They source it, from the repository's top folder.

readonly LOGS=build/test-logs
passed=0
failed=0
skipped=0

# Counts tests that are left out because somebody asked for it: skip NAME TESTS.
skip() {
  skipped=$((skipped + $2))
  printf 'skipped  %s: %d tests\n' "$1" "$2"
}

# Counts a check that is one test by itself, by its exit code; its output is in NAME.log.
count_check() {
  local name=$1 code=$2
  if [[ $code -eq 0 ]]; then
    passed=$((passed + 1))
    printf 'passed  %s\n' "$name"
  else
    failed=$((failed + 1))
    printf 'FAILED  %s\n' "$name"
    tail -n 40 "$LOGS/$name.log"
  fi
}

# Runs one.
check() {
  local name=$1 code=0
  shift
  "$@" >"$LOGS/$name.log" 2>&1 || code=$?
  count_check "$name" "$code"
}

# Counts the results of a test program that has run, from NAME.log and NAME.exit.  A program that
# ended early, or ran nothing, is a failure of its own.
count_program() {
  local name=$1 log=$LOGS/$1.log good bad
  # Programs for Windows end their lines with CR LF.
  good=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?\.\r?$/\1/p' "$log")
  bad=$(sed -nE 's/^ *([0-9]+) FAILED TESTS?\r?$/\1/p' "$log")
  passed=$((passed + ${good:-0}))
  failed=$((failed + ${bad:-0}))
  if [[ ${good:-0} -gt 0 && -z $bad && $(<"$LOGS/$name.exit") -eq 0 ]]; then
    printf 'passed  %s: %d tests\n' "$name" "$good"
  else
    [[ -n $bad ]] || failed=$((failed + 1))
    printf 'FAILED  %s (exit code %d)\n' "$name" "$(<"$LOGS/$name.exit")"
    grep -E -A 12 'Failure.?$|ERROR: |WARNING: ThreadSanitizer|runtime error' "$log" | head -n 80 ||
      tail -n 40 "$log"
  fi
}

# The last line; fails when a test has, or when none has run.
print_totals() {
  printf '%d passed, %d failed' "$passed" "$failed"
  [[ $skipped -eq 0 ]] || printf ', %d skipped' "$skipped"
  printf '\n'
  [[ $failed -eq 0 && $passed -gt 0 ]]
}
