#!/usr/bin/env bash
# The simulated machine's share of the tests: the kept seeds, 30,000 lives, a tenth of them with the
# address sanitiser, whether both builds write the same diaries, and the tests of the seam, which run
# against the real back ends too.  Prints a line for each.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly PLAIN=build/simulation/simulate SANITISED=build/simulation-asan/simulate
failed=0

run() {
  local name=$1
  shift
  if "$@" >"build/test-logs/$name.log" 2>&1; then
    printf 'passed  %s\n' "$name"
  else
    failed=1
    printf 'FAILED  %s\n' "$name"
    grep -aE '^FOUND|^seed [0-9]+, at|FAILED' "build/test-logs/$name.log" || true
  fi
}

# shellcheck disable=SC2317  # called by run
write_same_diaries() {
  local seed
  for seed in $(seq 1 30); do
    cmp <("$PLAIN" --seed "$seed" 2>&1) <("$SANITISED" --seed "$seed" 2>&1) || {
      printf 'FOUND: the diaries of seed %d differ\n' "$seed"
      return 1
    }
  done
}

mkdir -p build/test-logs
run simulation-kept "$PLAIN" --kept simulation/seeds/kept.txt
run simulation-lives "$PLAIN" --seeds 27000 --jobs 2
run simulation-sanitised "$SANITISED" --seeds 3000 --first 27001 --jobs 2
run simulation-same write_same_diaries
run simulation-seam build/simulation/simulated_seam_tests
exit "$failed"
