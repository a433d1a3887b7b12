#!/usr/bin/env bash
# Runs test programs of the debug build under valgrind's memcheck, in network namespaces of their
# own.  Not part of make test: it takes minutes, and the sanitised builds see most of the same.
# Usage: scripts/valgrind.sh [PROGRAM...]        (default room_tests system_tests)
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/install_packages.sh valgrind
programs=("$@")
[[ $# -gt 0 ]] || programs=(room_tests system_tests)
readonly LOGS=build/valgrind-logs
# Valgrind runs one thread at a time: without its fair turns, one that spins starves the others.
# Left out: what measures time and memory of the process, which valgrind multiplies, and what spins
# on purpose, which lasts for hours when one thread runs at a time.
readonly LEFT_OUT='HostilePeer.Cannot*:ServiceLock.MayBe*:Lifecycle.SurvivesExports*'
mkdir -p "$LOGS"

failed=0
for program in "${programs[@]}"; do
  log=$LOGS/$program.log
  code=0
  scripts/private_network.sh valgrind --quiet --fair-sched=yes --error-exitcode=99 --leak-check=full \
    --show-leak-kinds=definite,indirect --errors-for-leak-kinds=definite,indirect --num-callers=30 \
    --log-file="$LOGS/$program.%p.memcheck" "build/debug/$program" \
    --gtest_filter="-$LEFT_OUT" >"$log" 2>&1 || code=$?
  errors=$(cat "$LOGS/$program".*.memcheck | grep -cE 'Invalid|uninitialised|are definitely lost' || true)
  printf '%s: exit code %d, %d findings of memcheck, %s\n' "$program" "$code" "$errors" \
    "$(grep -E '^\[  PASSED  \]' "$log" || printf 'did not finish')"
  grep -E '^\[  FAILED  \]' "$log" || true
  [[ $code -eq 0 ]] || failed=1
done
exit "$failed"
