#!/usr/bin/env bash
# Builds ZVQRN.dll and the tests for Windows, and runs the tests under Wine, each program in a private
# network of its own.  The last line counts the tests.
# Usage: scripts/run_wine_tests.sh x86|x64
#        scripts/run_wine_tests.sh x86|x64 --run JOBS SECONDS [TEST...]     only run what is built, so
#                                                 many programs at once, each that long, and no TEST
#
# x64 needs the package wine64, and runs wherever this repository's tests run.  How the tests for x86
# run, here or in an emulated PC, is decided by scripts/prepare_32bit.sh.  Exit 3: the Wine for x64
# cannot be had here, and nothing was run; where CI is set that is a failure.
#
# What it builds: the presets windows-MACHINE and windows-MACHINE-tests.  Both machines may be tested
# at the same time; build their presets before, then.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
. scripts/test_results.sh

[[ ${1:-} =~ ^x(86|64)$ && ($# -eq 1 || ($2 == --run && $# -ge 4)) ]] || {
  printf 'usage: scripts/run_wine_tests.sh x86|x64 [--run JOBS SECONDS [TEST...]]\n' >&2
  exit 2
}
readonly MACHINE=$1
readonly LIBRARY=build/windows-$MACHINE
readonly TESTS=build/windows-$MACHINE-tests
readonly PROGRAMS=$LOGS/windows-$MACHINE-programs
# What an emulated PC does at once, and how long it may take when this machine is busy.
readonly PC_JOBS=6
readonly PC_SECONDS=1800
# What it leaves to the 64-bit DLL, which has the same source: floods and races, which are worth
# something by their numbers only.  A slow PC takes them for many minutes, or does not reach the
# numbers.  Whatever looks different to 32 bits runs: rooms, calling convention, records, exports,
# exchanges, the unload.
readonly NOT_IN_PC=(
  Discovery.SurvivesAFlood
  EventFlow.ServesAScannerThatConnectsAgainAtOnce
  HostilePeer.DoesNotDisturbTheScannerThatIsServed
  HostilePeer.MayAskThousandsOfTimesAtOnce
  Thread.IsNotTakenForOneThatHasEnded
)
readonly STATES=(stopped waiting idle callback starting flooded)

# Starts a program in the background, in a network of its own:
# start NAME [SETTING...] PROGRAM FILTER, without what $left_out names.  Scanners are at 127.0.0.1 and
# send multicasts through the adapter all the same (docs/testing.md).
start() {
  local name=windows-$MACHINE-$1 filter=${*: -1}
  shift
  if [[ -n $left_out ]]; then
    [[ $filter == *-* ]] && filter+=:$left_out || filter+=-$left_out
  fi
  printf '%s\n' "$name" >>"$PROGRAMS"
  while [[ $(jobs -pr | wc -l) -ge $jobs ]]; do
    wait -n || true
  done
  (
    code=0
    # shellcheck disable=SC2016 # for the inner shell
    timeout --kill-after=5 "$seconds" scripts/private_network.sh bash -c '
      echo 1 >/proc/sys/net/ipv4/conf/quorin0/route_localnet
      [[ $1 != */waiting ]] || ip address flush dev quorin0
      shift
      exec env "$@"' - "${*: -1}" "${@:1:$#-2}" \
      scripts/under_wine.sh "$MACHINE" "$TESTS/${*: -2:1}" "--gtest_filter=$filter" \
      >"$LOGS/$name.log" 2>&1 || code=$?
    printf '%d\n' "$code" >"$LOGS/$name.exit"
  ) &
}
# The same in parts side by side, at most half of what may run at once: start_parts PARTS NAME ...
start_parts() {
  local parts=$1 name=$2 part
  shift 2
  [[ $parts -le $((jobs / 2)) ]] || parts=$((jobs / 2))
  for ((part = 0; part < parts; ++part)); do
    start "$name-$part" "GTEST_TOTAL_SHARDS=$parts" "GTEST_SHARD_INDEX=$part" "$@"
  done
}
run_programs() {
  local jobs=$1 seconds=$2 left_out folder state settings
  shift 2
  printf -v left_out '%s:' "$@"
  left_out=${left_out#:}
  mkdir -p "$LOGS"
  : >"$PROGRAMS"
  # They mostly wait; those that keep the processors busy do it together.
  export QUORIN_BUSY_THREADS=1
  start_parts 6 system_tests system_tests.exe '-WithoutUtilityLibrary.*'
  start_parts 3 seam_tests seam_tests.exe '*'
  start_parts 2 seam_tests_japanese LC_ALL=ja_JP.UTF-8 seam_tests.exe '*'
  start_parts 2 system_tests_japanese LC_ALL=ja_JP.UTF-8 system_tests.exe 'Discovery.*'
  start room_tests room_tests.exe '*'
  for folder in lonely mismatched; do
    start "without_utility_library_$folder" "$folder/system_tests.exe" 'WithoutUtilityLibrary.*'
  done
  wait
  for state in "${STATES[@]}"; do
    settings=()
    # A PC whose name leads nowhere but to itself.
    [[ $state != waiting ]] || settings=(QUORIN_PRIVATE_ADDRESS=127.0.0.1)
    start "unload_$state" "${settings[@]}" unload_tests.exe "*/$state"
  done
  wait
}
if [[ ${2:-} == --run ]]; then
  run_programs "${@:3}"
  exit 0
fi

code=0
way=native
case $MACHINE in
  x64) scripts/wine64_prefix.sh || code=$? ;;
  # What it finds belongs to the results.
  x86) { way=$(scripts/prepare_32bit.sh 2>&3) || exit 1; } 3>&1 ;;
esac
if [[ $code -ne 0 ]]; then
  [[ -z ${CI:-} ]] || exit 1
  printf 'The %s tests under Wine are left out.\n' "$MACHINE" >&2
  exit "$code"
fi
mkdir -p "$LOGS"
if [[ $way == none ]]; then
  # The same tests are built for x64, whose programs can say how many they are.
  scripts/wine64_prefix.sh
  scripts/build.sh windows-x64-tests
  for program in room_tests system_tests seam_tests unload_tests; do
    tests=$(scripts/under_wine.sh x64 "build/windows-x64-tests/$program.exe" --gtest_list_tests |
      grep -c '^  ')
    skip "windows-x86-$program" "$tests"
  done
  print_totals || true # it asks for one that ran
  exit 0
fi
scripts/build.sh "windows-$MACHINE" "windows-$MACHINE-tests"
rm -f -- "$LOGS/windows-$MACHINE-"*
# The programs load the library that lies beside them: as it is shipped, with the stand-in for the
# utility library; in lonely/ without one; in mismatched/ with one for the other machine.
rm -rf -- "$TESTS/lonely"
mkdir -p "$TESTS/lonely"
cp "$LIBRARY"/{ZVQRN.dll,DRAVLIB.dll,DRAVLIB.txt} "$TESTS"
for folder in lonely mismatched; do
  cp "$TESTS/system_tests.exe" "$LIBRARY/ZVQRN.dll" "$TESTS/$folder"
done

if [[ $way == native ]]; then
  QUORIN_UNLOAD_ROUNDS=${QUORIN_UNLOAD_ROUNDS:-12} run_programs 10 600
else
  for test in "${NOT_IN_PC[@]}"; do
    grep -qF "(${test/./, })" tests/*_test.cpp || {
      printf 'There is no test %s, which the PC shall not run.\n' "$test" >&2
      exit 1
    }
  done
  printf 'The PC runs all but %d tests, which only the 64-bit DLL gets: %s\n' "${#NOT_IN_PC[@]}" \
    "${NOT_IN_PC[*]}"
  pc=$(mktemp -d)
  trap 'rm -rf -- "$pc"' EXIT
  mkdir -p "$pc/build"
  cp -r scripts "$pc"
  cp -r --parents "$TESTS"/{*.exe,*.dll,*.txt,lonely,mismatched} "$pc"
  find "$pc" -name '*.exe' -exec i686-w64-mingw32-strip {} +
  check windows-x86-emulated-pc scripts/emulated_pc.sh "$PC_SECONDS" "$pc" env QUORIN_WINE_ROOT=/ \
    "QUORIN_UNLOAD_ROUNDS=${QUORIN_UNLOAD_ROUNDS:-2}" \
    scripts/run_wine_tests.sh "$MACHINE" --run "$PC_JOBS" "$PC_SECONDS" "${NOT_IN_PC[@]}"
  cp "$pc/build/test-logs"/* "$LOGS"
fi

while read -r name; do
  [[ -s $LOGS/$name.exit ]] || printf '124\n' >"$LOGS/$name.exit"
  count_program "$name"
  sed -nE 's/^\[   worst  \] ([0-9]+ ms).*/        slowest unload \1/p' "$LOGS/$name.log"
done <"$PROGRAMS"
print_totals
