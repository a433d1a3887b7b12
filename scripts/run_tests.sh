#!/usr/bin/env bash
# Builds and runs every test: three native builds (debug, and the two with sanitisers), the real DLL
# under Wine, the fuzz targets for a minute, both packages as their users get them, the checks of
# sources and documents, and the demo as a user runs it.  Tests mostly wait, so they run many at a
# time, in network namespaces of their own, while the next preset is compiled.  It tells of each part
# when it has ended; logs are in build/test-logs.  The last line counts the tests.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh
. scripts/parts.sh

scripts/private_network.sh --available || {
  printf 'No network namespace can be made here, and the tests need one: they listen on fixed\n' >&2
  printf 'ports.  Run them as root, or allow user namespaces.\n' >&2
  exit 1
}
scripts/prepare_32bit.sh --check
rm -rf -- "$LOGS"
mkdir -p "$LOGS"

# Compiles a preset, or some targets of it.  What is tested meanwhile goes before.
compile() {
  local preset=$1
  shift
  renice -n 10 "$BASHPID" >/dev/null
  cmake --preset "$preset"
  cmake --build --preset "$preset" ${1:+--target "$@"}
}

# Runs the native tests of a preset, each in a network of its own.
test_natively() {
  local preset=$1 code=0 log=$LOGS/$1.ctest
  ctest --preset "$preset" >"$log" 2>&1 || code=$?
  printf 'passed  %s: %d tests\n' "$preset" "$(grep -cE '^ *[0-9]+/[0-9]+ Test .* Passed ' "$log")"
  sed -nE "s/^\t *[0-9]+ - (.*) \((Skipped|Disabled)\)$/skipped  $preset: \1/p;
    s/^\t *[0-9]+ - (.*) \((.*)\)$/FAILED  $preset: \1 (\2)/p" "$log"
  sed -n 's/^failure points: //p' "build/$preset/Testing/Temporary/LastTest.log" |
    awk '{ sum += $NF } END { if (NR) print "failure points: " sum }'
  [[ $code -eq 0 ]] || grep -vE ' Passed |^ *Start ' "$log" | head -n 200
  return "$code"
}

lint() {
  renice -n 19 "$BASHPID" >/dev/null
  scripts/lint.sh
}

fuzz() {
  renice -n 10 "$BASHPID" >/dev/null
  scripts/fuzz.sh --brief
}

# Compiles what the tests of a Windows DLL need.
compile_for_windows() {
  part compile "compile-windows-$1" "$last" compile "windows-$1"
  part compile "compile-windows-$1-tests" "compile-windows-$1" \
    compile "windows-$1-tests" test_programs
  last=compile-windows-$1-tests
}

# What runs 32-bit Windows programs is made once, and takes minutes of waiting for the network.
part compile prepare-32bit - scripts/prepare_32bit.sh
way=${QUORIN_32BIT:-}
[[ -n $way ]] || way=$(scripts/probe_32bit.sh >/dev/null && echo native || echo emulated)

# One preset compiles after the other, those first whose tests take long; in an emulated PC they take
# longest.
last=-
[[ $way != emulated ]] || compile_for_windows x86
part compile compile-debug "$last" compile debug test_programs
part compile compile-asan compile-debug compile asan
last=compile-asan
compile_for_windows x64
[[ $way == emulated ]] || compile_for_windows x86
# What waits for the packages and what is fuzzed lasts longer than what follows.
part compile compile-release "$last" compile release
part compile compile-fuzz compile-release compile fuzz fuzz
part compile compile-tsan compile-fuzz compile tsan test_programs
part compile compile-simulation compile-tsan compile simulation
part compile compile-simulation-asan compile-simulation compile simulation-asan

# The checks of sources compute all the time: they fill what the others leave.
part check lint compile-asan lint
part tests debug compile-debug test_natively debug
part tests asan compile-asan test_natively asan
part tests tsan compile-tsan test_natively tsan
part tests simulation compile-simulation-asan scripts/simulate_tests.sh
part check demo asan scripts/demo.sh build/asan
part check soak demo scripts/soak.sh --seconds 20 --preset asan
part tests tools compile-asan scripts/check_tools.sh build/asan
part tests panel demo scripts/check_panel.py build/asan
part tests verdicts demo scripts/check_verdicts.sh build/asan
part tests setups verdicts scripts/check_setups.sh build/asan
part check documents compile-asan scripts/check_documents.sh build/asan
part check exports compile-debug scripts/check_exports.sh build/debug/libZVQRN.so
# Where no Wine can be had, what needs it says so and is left out, unless CI is set.
for machine in x64 x86; do
  part check "dll-$machine" "compile-windows-$machine" \
    scripts/check_dll.sh "$machine" "build/windows-$machine/ZVQRN.dll"
done
part tests windows-x64 compile-windows-x64-tests scripts/run_wine_tests.sh x64
# The programs of both machines at once would starve each other on two cores; the PC starts early.
after=compile-windows-x86-tests,prepare-32bit
[[ ${QUORIN_32BIT:-} == emulated ]] || after+=,windows-x64
part tests windows-x86 "$after" scripts/run_wine_tests.sh x86
part tests tools-windows windows-x64 \
  scripts/check_tools.sh build/windows-x64 scripts/under_wine.sh x64
part check package "compile-release,compile-windows-x64,compile-windows-x86" scripts/package.sh
part tests packages package scripts/check_package.sh
part tests bindings package scripts/check_bindings.sh
part tests guides package scripts/check_guides.py
part tests fuzz compile-fuzz fuzz

run_parts
print_totals
