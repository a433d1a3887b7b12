#!/usr/bin/env bash
# Builds and runs every test: three native builds (debug, and the two with sanitisers), the real DLL
# under Wine, the fuzz targets for a minute, both packages as their users get them, the checks of
# sources and documents, and the demo as a user runs it.  Test programs run in network namespaces of
# their own, two builds at a time.  The last line counts the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh

readonly PRESETS=(debug asan tsan)
readonly PROGRAMS=(room_tests seam_tests system_tests unload_tests)
# The failure sweep runs in parts, each in a network of its own, where leaks are looked for.
readonly SWEEP_PRESET=asan
readonly SWEEP_PARTS=4

scripts/private_network.sh --available || {
  printf 'No network namespace can be made here, and the tests need one: they listen on fixed\n' >&2
  printf 'ports.  Run them as root, or allow user namespaces.\n' >&2
  exit 1
}

scripts/build.sh "${PRESETS[@]}" release windows-x86 windows-x64
rm -rf -- "$LOGS"
mkdir -p "$LOGS"

# The tests below mostly wait; what only computes runs beside them.
run_in_background lint nice scripts/lint.sh

# Runs a test program of one preset; its results are counted from the log.
run_program() {
  local name=$1 code=0
  shift
  timeout 600 scripts/private_network.sh "$@" >"$LOGS/$name.log" 2>&1 || code=$?
  printf '%d\n' "$code" >"$LOGS/$name.exit"
}
run_preset() {
  local program
  for program in "${PROGRAMS[@]}"; do
    run_program "$1-$program" "build/$1/$program"
  done
}
# The preset that takes longest has a core to itself from the beginning.
run_preset tsan &
slowest=$!
run_preset debug
run_preset asan
wait "$slowest"
sweep=()
for ((part = 0; part < SWEEP_PARTS; ++part)); do
  run_program "$SWEEP_PRESET-failure_tests-$part" env GTEST_TOTAL_SHARDS="$SWEEP_PARTS" \
    GTEST_SHARD_INDEX="$part" "build/$SWEEP_PRESET/failure_tests" &
  sweep+=("$!")
done
wait "${sweep[@]}"

for preset in "${PRESETS[@]}"; do
  for program in "${PROGRAMS[@]}"; do
    count_program "$preset-$program"
  done
done
for ((part = 0; part < SWEEP_PARTS; ++part)); do
  count_program "$SWEEP_PRESET-failure_tests-$part"
done
sed -n 's/^failure points: /        failure points: /p' "$LOGS/$SWEEP_PRESET"-failure_tests-*.log
collect lint

check demo scripts/demo.sh build/asan
check soak scripts/soak.sh --seconds 20 --preset asan
count_lines tools scripts/check_tools.sh build/asan
check exports scripts/check_exports.sh build/debug/libZVQRN.so
for machine in x86 x64; do
  check "dll-$machine" scripts/check_dll.sh "$machine" "build/windows-$machine/ZVQRN.dll"
done
check documents scripts/check_documents.sh build/debug
count_lines fuzz scripts/fuzz.sh --brief
# Where no Wine can be had, what needs it says so and is left out, unless CI is set.
count_lines windows-x64 scripts/run_wine_tests.sh x64
count_lines tools-windows scripts/check_tools.sh build/windows-x64 scripts/under_wine.sh x64
count_lines windows-x86 scripts/run_wine_tests.sh x86
check package scripts/package.sh
count_lines packages scripts/check_package.sh

print_totals
