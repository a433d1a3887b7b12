#!/usr/bin/env bash
# Builds ZVQRN.dll and the tests for Windows, and runs the tests under Wine, each program in a private
# network of its own.  The last line counts the tests.
# Usage: scripts/run_wine_tests.sh x86|x64
#
# x64 needs the package wine64, and runs wherever this repository's tests run.  x86 needs a kernel that
# runs 32-bit programs.  Exit 3: no Wine can be had here, and nothing was run; where CI is set that
# is a failure.
#
# What it builds: the presets windows-MACHINE and windows-MACHINE-tests.  Both machines may be tested
# at the same time; build their presets before, then.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh

readonly MACHINE=${1:-}
readonly LIBRARY=build/windows-$MACHINE
readonly TESTS=build/windows-$MACHINE-tests
readonly ROUNDS=${QUORIN_UNLOAD_ROUNDS:-50}
readonly STATES=(stopped waiting idle callback starting flooded)

code=0
case $MACHINE in
  x64) scripts/wine64_prefix.sh || code=$? ;;
  x86) scripts/wine_root.sh || code=$? ;;
  *)
    printf 'usage: scripts/run_wine_tests.sh x86|x64\n' >&2
    exit 2
    ;;
esac
if [[ $code -ne 0 ]]; then
  [[ -z ${CI:-} ]] || exit 1
  printf 'The %s tests under Wine are left out.\n' "$MACHINE" >&2
  exit "$code"
fi
scripts/build.sh "windows-$MACHINE" "windows-$MACHINE-tests"
mkdir -p "$LOGS"
rm -f -- "$LOGS/windows-$MACHINE-"*
# The programs load the library that lies beside them: as it is shipped, with the stand-in for the
# utility library; in lonely/ without one; in mismatched/ with one for the other machine.
rm -rf -- "$TESTS/lonely"
mkdir -p "$TESTS/lonely"
cp "$LIBRARY"/{ZVQRN.dll,DRAVLIB.dll,DRAVLIB.txt} "$TESTS"
for folder in lonely mismatched; do
  cp "$TESTS/system_tests.exe" "$LIBRARY/ZVQRN.dll" "$TESTS/$folder"
done

# Starts a program in the background, in a network of its own:
# start NAME SECONDS [SETTING...] PROGRAM FILTER.  Scanners are at 127.0.0.1 and send multicasts
# through the adapter all the same (docs/testing.md).
started=()
start() {
  local name=windows-$MACHINE-$1 seconds=$2
  shift 2
  started+=("$name")
  (
    code=0
    # shellcheck disable=SC2016 # for the inner shell
    timeout --kill-after=5 "$seconds" scripts/private_network.sh bash -c '
      echo 1 >/proc/sys/net/ipv4/conf/quorin0/route_localnet
      [[ $1 != */waiting ]] || ip address flush dev quorin0
      shift
      exec env "$@"' - "${*: -1}" "QUORIN_UNLOAD_ROUNDS=$ROUNDS" "${@:1:$#-2}" \
      scripts/under_wine.sh "$MACHINE" "$TESTS/${*: -2:1}" "--gtest_filter=${*: -1}" \
      >"$LOGS/$name.log" 2>&1 || code=$?
    printf '%d\n' "$code" >"$LOGS/$name.exit"
  ) &
}
# The same in parts side by side: start_parts PARTS NAME ...
start_parts() {
  local parts=$1 name=$2 seconds=$3 part
  shift 3
  for ((part = 0; part < parts; ++part)); do
    start "$name-$part" "$seconds" "GTEST_TOTAL_SHARDS=$parts" "GTEST_SHARD_INDEX=$part" "$@"
  done
}

# They mostly wait.
start_parts 6 system_tests 300 system_tests.exe '-WithoutUtilityLibrary.*'
start_parts 3 seam_tests 300 seam_tests.exe '*'
start_parts 2 seam_tests_japanese 300 LC_ALL=ja_JP.UTF-8 seam_tests.exe '*'
start_parts 2 system_tests_japanese 300 LC_ALL=ja_JP.UTF-8 system_tests.exe 'Discovery.*'
start room_tests 300 room_tests.exe '*'
for folder in lonely mismatched; do
  start "without_utility_library_$folder" 300 "$folder/system_tests.exe" 'WithoutUtilityLibrary.*'
done
wait
for state in "${STATES[@]}"; do
  settings=()
  # A PC whose name leads nowhere but to itself.
  [[ $state != waiting ]] || settings=(QUORIN_PRIVATE_ADDRESS=127.0.0.1)
  start "unload_$state" 300 "${settings[@]}" unload_tests.exe "*/$state"
done
wait

for name in "${started[@]}"; do
  count_program "$name"
  sed -nE 's/^\[   worst  \] ([0-9]+ ms).*/        slowest unload \1/p' "$LOGS/$name.log"
done
print_totals
