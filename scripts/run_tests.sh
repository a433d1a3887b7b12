#!/usr/bin/env bash
# Builds and runs every test: three native builds (debug, and the two with sanitisers), the DLL's
# build, the checks of the sources, and the demo as a user runs it.  Test programs run in network
# namespaces of their own, two builds at a time.  The last line counts the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly PRESETS=(debug asan tsan)
readonly PROGRAMS=(room_tests seam_tests system_tests)
readonly LOGS=build/test-logs
passed=0
failed=0

scripts/private_network.sh --available || {
  printf 'No network namespace can be made here, and the tests need one: they listen on fixed\n' >&2
  printf 'ports.  Run them as root, or allow user namespaces.\n' >&2
  exit 1
}

scripts/build.sh "${PRESETS[@]}" windows-x86
rm -rf -- "$LOGS"
mkdir -p "$LOGS"

# Runs a check that is one test by itself.
check() {
  local name=$1
  shift
  if "$@" >"$LOGS/$name.log" 2>&1; then
    passed=$((passed + 1))
    printf 'passed  %s\n' "$name"
  else
    failed=$((failed + 1))
    printf 'FAILED  %s\n' "$name"
    tail -n 40 "$LOGS/$name.log"
  fi
}

# Runs the test programs of one preset; their results are counted from the logs.
run_preset() {
  local preset=$1 program
  for program in "${PROGRAMS[@]}"; do
    timeout 600 scripts/private_network.sh "build/$preset/$program" \
      >"$LOGS/$preset-$program.log" 2>&1
    printf '%d\n' "$?" >"$LOGS/$preset-$program.exit"
  done
}
# The preset that takes longest has a core to itself from the beginning.
(set +e; run_preset tsan) &
sanitised=$!
(set +e; run_preset debug; run_preset asan)
wait "$sanitised"

# A program that ended early, or ran nothing, is a failure of its own.
for preset in "${PRESETS[@]}"; do
  for program in "${PROGRAMS[@]}"; do
    log=$LOGS/$preset-$program.log
    good=$(sed -nE 's/^\[  PASSED  \] ([0-9]+) tests?\.$/\1/p' "$log")
    bad=$(sed -nE 's/^ *([0-9]+) FAILED TESTS?$/\1/p' "$log")
    passed=$((passed + ${good:-0}))
    failed=$((failed + ${bad:-0}))
    if [[ ${good:-0} -gt 0 && -z $bad && $(<"$LOGS/$preset-$program.exit") -eq 0 ]]; then
      printf 'passed  %s: %d tests\n' "$preset-$program" "$good"
    else
      [[ -n $bad ]] || failed=$((failed + 1))
      printf 'FAILED  %s\n' "$preset-$program"
      grep -E -A 12 'Failure$|ERROR: |WARNING: ThreadSanitizer|runtime error' "$log" | head -n 80 ||
        tail -n 40 "$log"
    fi
  done
done

check demo scripts/demo.sh build/asan
check exports scripts/check_exports.sh build/debug/libZVQRN.so build/windows-x86/ZVQRN.dll
check lint scripts/lint.sh

printf '%d passed, %d failed\n' "$passed" "$failed"
[[ $failed -eq 0 && $passed -gt 0 ]]
