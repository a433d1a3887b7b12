#!/usr/bin/env bash
# Tells which branches of the event server, discovery and the service the simulated lives reach, and
# names those that they do not.  Those in simulation/unreachable.txt are left out.  Fails when a room
# has less than 98 % of the others, and when a line of that list is wrong.
# First it compares diaries with the other compiler's, for it has both.
# Usage: scripts/simulate_coverage.sh [LIVES]
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly BUILD=build/simulation-coverage LEAST=98

scripts/build.sh simulation simulation-coverage
for seed in {1..200}; do
  cmp <(build/simulation/simulate --seed "$seed" 2>&1) \
    <(LLVM_PROFILE_FILE=/dev/null "$BUILD/simulate" --seed "$seed" 2>&1) || {
    printf 'FOUND: the diaries of seed %d differ between the compilers\n' "$seed"
    exit 1
  }
done
printf '200 diaries are the same with both compilers\n'
LLVM_PROFILE_FILE=$BUILD/lives.profraw "$BUILD/simulate" --jobs 0 --seeds "${1:-100000}" | tail -n 1
llvm-profdata merge -sparse "$BUILD/lives.profraw" -o "$BUILD/lives.profdata"
llvm-cov export --format=lcov --instr-profile "$BUILD/lives.profdata" "$BUILD/simulate" |
  awk -F '[:,]' -v least="$LEAST" '
    function text_of(file, line) {
      if (!(file in isRead)) {
        isRead[file] = 1
        for (n = 1; (getline text < file) > 0; n++) { sub(/^ */, "", text); texts[file, n] = text }
      }
      return texts[file, line]
    }
    function is_listed(file, line,  i) {
      for (i = 1; i <= listed; i++) {
        if ("src/" files[i] == file && left[i] > 0 && index(text_of(file, line), codes[i]) == 1) {
          left[i]--
          return 1
        }
      }
      return 0
    }
    BEGIN {
      while ((getline entry < "simulation/unreachable.txt") > 0) {
        if (entry !~ /^#/ && split(entry, field, / @@ /) == 4) {
          listed++; files[listed] = field[1]; codes[listed] = field[2]; left[listed] = field[3]
        }
      }
    }
    /^SF:/ { file = $2; sub(/.*\/src\//, "src/", file); room = file; sub(/^src\//, "", room); sub(/\/.*/, "", room) }
    /^BRDA:/ && room ~ /^(eventserver|discovery|service)$/ {
      all[room]++
      if ($5 != "-" && $5 > 0) taken[room]++
      else if (is_listed(file, $2)) without[room]++
      else missed = missed sprintf("  %s:%d, when it is %s: %s\n", file, $2, $4 % 2 ? "false" : "true", text_of(file, $2))
    }
    END {
      for (room in all) {
        share = 100 * taken[room] / (all[room] - without[room])
        printf "%-12s %4d of %4d branches, %.1f %%; without the %d that cannot be reached, %.1f %%\n",
          room, taken[room], all[room], 100 * taken[room] / all[room], without[room], share
        failed = failed || share < least
      }
      printf "not reached:\n%s", missed
      for (i = 1; i <= listed; i++) {
        if (left[i] > 0) { printf "reached all the same, or gone: %s: %s\n", files[i], codes[i]; failed = 1 }
      }
      exit failed
    }'
