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

# Starts one; collect NAME waits for it and counts it.
declare -A running
run_in_background() {
  local name=$1
  shift
  "$@" >"$LOGS/$name.log" 2>&1 &
  running[$name]=$!
}
collect() {
  local code=0
  wait "${running[$1]}" || code=$?
  count_check "$1" "$code"
}

# Runs a script that prints a line for each of its cases, "passed  NAME", "FAILED  NAME" or
# "skipped  NAME", with ": N tests" behind a program's name, and counts them.  One that ends badly
# without saying why, or has no case, is a failure of its own; exit code 3 says that it cannot run
# here.
count_lines() {
  local name=$1 code=0 log=$LOGS/$1.log good bad left
  shift
  "$@" >"$log" 2>"$LOGS/$name.err" || code=$?
  grep -vE '^[0-9]+ passed, [0-9]+ failed(, [0-9]+ skipped)?$' "$log" || true
  if [[ $code -eq 3 ]]; then
    tail -n 5 "$LOGS/$name.err"
    return
  fi
  good=$(lines_of passed "$log")
  left=$(lines_of skipped "$log")
  bad=$(grep -c '^FAILED' "$log" || true)
  if [[ $bad -eq 0 && ($code -ne 0 || $((good + left)) -eq 0) ]]; then
    bad=1
    printf 'FAILED  %s (exit code %d)\n' "$name" "$code"
    tail -n 40 "$LOGS/$name.err"
  fi
  passed=$((passed + good))
  failed=$((failed + bad))
  skipped=$((skipped + left))
}
lines_of() {
  awk -v word="$1" '$1 == word { n += $NF == "tests" ? $(NF - 1) : 1 } END { print n + 0 }' "$2"
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
