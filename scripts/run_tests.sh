#!/usr/bin/env bash
# Builds and runs every test: three native builds (debug, and the two with sanitisers), the DLL's
# build, the checks of the sources, and the demo as a user runs it.  Test programs run in network
# namespaces of their own, two builds at a time.  The last line counts the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh

readonly PRESETS=(debug asan tsan)
readonly PROGRAMS=(room_tests seam_tests system_tests unload_tests failure_tests)
# The order of the threads is what failure_tests leaves open: nothing for the thread sanitiser.
readonly LEFT_OUT=tsan-failure_tests

scripts/private_network.sh --available || {
  printf 'No network namespace can be made here, and the tests need one: they listen on fixed\n' >&2
  printf 'ports.  Run them as root, or allow user namespaces.\n' >&2
  exit 1
}

scripts/build.sh "${PRESETS[@]}" windows-x86
rm -rf -- "$LOGS"
mkdir -p "$LOGS"

# Runs the test programs of one preset; their results are counted from the logs.
run_preset() {
  local preset=$1 program
  for program in "${PROGRAMS[@]}"; do
    [[ $preset-$program != "$LEFT_OUT" ]] || continue
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

for preset in "${PRESETS[@]}"; do
  for program in "${PROGRAMS[@]}"; do
    [[ $preset-$program == "$LEFT_OUT" ]] || count_program "$preset-$program"
  done
done

check demo scripts/demo.sh build/asan
check soak scripts/soak.sh --seconds 20 --preset asan
check exports scripts/check_exports.sh build/debug/libZVQRN.so build/windows-x86/ZVQRN.dll
check lint scripts/lint.sh

print_totals
