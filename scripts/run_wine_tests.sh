#!/usr/bin/env bash
# Builds ZVQRN.dll and the tests for 32-bit Windows, checks the DLL, and runs the tests under Wine in
# private networks.  The last line counts the tests.  Exit 3: no Wine can be had here, and nothing
# was run; where CI is set that is a failure.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh

readonly TESTS=build/windows-x86-tests
readonly ROUNDS=${QUORIN_UNLOAD_ROUNDS:-50}
readonly STATES=(stopped waiting idle callback starting flooded)
readonly OTHERS=(room_tests system_tests system_tests_japanese without_utility_library seam_tests
  seam_tests_japanese)

code=0
scripts/wine_root.sh || code=$?
if [[ $code -ne 0 ]]; then
  [[ -z ${CI:-} ]] || exit 1
  printf 'The tests under Wine are left out.\n' >&2
  exit "$code"
fi
scripts/build.sh windows-x86 windows-x86-tests
rm -rf -- "$TESTS/lonely"
mkdir -p "$LOGS" "$TESTS/lonely"
rm -f -- "$LOGS"/windows-*
# The programs load the library that lies beside them: as it is shipped, with the stand-in for the
# utility library, and in lonely/ without one.
cp build/windows-x86/{ZVQRN.dll,DRAVLIB.dll,DRAVLIB.txt} "$TESTS"
cp "$TESTS/system_tests.exe" build/windows-x86/ZVQRN.dll "$TESTS/lonely"

# Runs a program in a network of its own: run NAME SECONDS [SETTING...] PROGRAM FILTER.  Scanners
# are at 127.0.0.1 and send multicasts through the adapter all the same (docs/testing.md).
run() {
  local name=windows-$1 seconds=$2 code=0
  shift 2
  # shellcheck disable=SC2016 # for the inner shell
  timeout --kill-after=5 "$seconds" scripts/private_network.sh bash -c '
    echo 1 >/proc/sys/net/ipv4/conf/quorin0/route_localnet
    [[ $1 != */waiting ]] || ip address flush dev quorin0
    shift
    exec env "$@"' - "${*: -1}" "QUORIN_UNLOAD_ROUNDS=$ROUNDS" "${@:1:$#-2}" \
    scripts/under_wine.sh "$TESTS/${*: -2:1}" "--gtest_filter=${*: -1}" \
    >"$LOGS/$name.log" 2>&1 || code=$?
  printf '%d\n' "$code" >"$LOGS/$name.exit"
}

# What mostly waits runs side by side.
run system_tests 200 system_tests.exe '-WithoutUtilityLibrary.*' &
(
  run room_tests 100 room_tests.exe '*'
  run without_utility_library 60 lonely/system_tests.exe 'WithoutUtilityLibrary.*'
  run seam_tests 100 seam_tests.exe '*'
) &
(
  run seam_tests_japanese 100 LC_ALL=ja_JP.UTF-8 seam_tests.exe '*'
  run system_tests_japanese 100 LC_ALL=ja_JP.UTF-8 system_tests.exe 'Discovery.*'
) &
wait
for state in "${STATES[@]}"; do
  settings=()
  # A PC whose name leads nowhere but to itself.
  [[ $state != waiting ]] || settings=(QUORIN_PRIVATE_ADDRESS=127.0.0.1)
  run "unload_$state" 120 "${settings[@]}" unload_tests.exe "*/$state" &
done
wait

for name in "${OTHERS[@]}" "${STATES[@]/#/unload_}"; do
  count_program "windows-$name"
  sed -nE 's/^\[   worst  \] ([0-9]+ ms).*/        slowest unload \1/p' "$LOGS/windows-$name.log"
done
check windows-dll scripts/check_dll.sh build/windows-x86/ZVQRN.dll
print_totals
