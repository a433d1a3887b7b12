#!/usr/bin/env bash
# Runs a test program for ctest: in a network of its own, unless it only lists its tests.
# Usage: scripts/run_test.sh PROGRAM [ARGUMENT...]
set -euo pipefail
for argument; do
  [[ $argument != --gtest_list_tests ]] || exec "$@"
done
# ctest runs many at once: together they keep the processors busy.
export QUORIN_BUSY_THREADS=${QUORIN_BUSY_THREADS:-1}
exec "$(dirname "${BASH_SOURCE[0]}")/private_network.sh" "$@"
