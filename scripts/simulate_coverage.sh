#!/usr/bin/env bash
# Tells which branches of the event server, discovery and the service the simulated lives reach, and
# names those that they do not.  Fails below 92 %: the others are mostly guards against arguments that
# no caller passes.
# Usage: scripts/simulate_coverage.sh [LIVES]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly BUILD=build/simulation-coverage

scripts/build.sh simulation-coverage
LLVM_PROFILE_FILE=$BUILD/lives.profraw "$BUILD/simulate" --jobs 0 --seeds "${1:-100000}" | tail -n 1
llvm-profdata merge -sparse "$BUILD/lives.profraw" -o "$BUILD/lives.profdata"
llvm-cov export --format=lcov --instr-profile "$BUILD/lives.profdata" "$BUILD/simulate" |
  awk -F '[:,]' '
    /^SF:/ { file = $2; sub(/.*\/src\//, "src/", file); room = file; sub(/^src\//, "", room); sub(/\/.*/, "", room) }
    /^BRDA:/ && room ~ /^(eventserver|discovery|service)$/ {
      all[room]++
      if ($5 != "-" && $5 > 0) taken[room]++
      else missed = missed sprintf("  %s:%d, when it is %s\n", file, $2, $4 % 2 ? "false" : "true")
    }
    END {
      for (room in all) {
        printf "%-12s %4d of %4d branches, %.1f %%\n", room, taken[room], all[room], 100 * taken[room] / all[room]
        sum += all[room]; sumTaken += taken[room]
      }
      printf "%-12s %4d of %4d branches, %.1f %%\nnot reached:\n%s", "all", sumTaken, sum, 100 * sumTaken / sum, missed
      exit 100 * sumTaken / sum < 92
    }'
