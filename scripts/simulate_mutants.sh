#!/usr/bin/env bash
# Proves the search of the simulated machine: plants the faults of simulation/mutants.txt in a copy of
# the rooms, one at a time, and prints how many lives each took to be found.  Fails when one is not
# found within LIVES.
# Usage: scripts/simulate_mutants.sh [NUMBER...]      all, or those in these places of the list
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
readonly LIVES=${LIVES:-100000} BUILD=build/simulation-mutants

# Fields of one line of the table are separated by " @@ ", and lines of code by a return sign.
read_mutants() {
  grep -v '^#' simulation/mutants.txt | sed '/^$/d'
}

# Puts `$3` in the place of `$2`, which must be in the file once.
plant() {
  local file=$1 old=$2 new=$3 text rest
  text=$(<"src/$file")
  rest=${text//"$old"/}
  if [[ $((${#text} - ${#rest})) -ne ${#old} ]]; then
    printf '%s does not hold this once:\n%s\n' "$file" "$old" >&2
    return 1
  fi
  printf '%s\n' "${text/"$old"/"$new"}" >"$BUILD/src/$file"
}

build() {
  cmake --build "$BUILD" --target simulate >"$BUILD/log" 2>&1 || {
    tail -n 30 "$BUILD/log" >&2
    return 1
  }
}

mkdir -p "$BUILD"
rsync -a --delete src/ "$BUILD/src/" 2>/dev/null || { rm -rf "$BUILD/src" && cp -r src "$BUILD/src"; }
cmake --preset simulation -B "$BUILD" -DZVQRN_SIMULATED_SOURCES="$PWD/$BUILD/src" >"$BUILD/log"

mapfile -t mutants < <(read_mutants)
missed=0 number=0
for mutant in "${mutants[@]}"; do
  number=$((number + 1))
  [[ $# -eq 0 || " $* " == *" $number "* ]] || continue
  file=${mutant%% @@ *} mutant=${mutant#* @@ }
  old=${mutant%% @@ *} mutant=${mutant#* @@ }
  new=${mutant%% @@ *} what=${mutant#* @@ }
  plant "$file" "${old//¶/$'\n'}" "${new//¶/$'\n'}"
  build
  found=$("$BUILD/simulate" --seeds "$LIVES" --first "${FIRST:-1}" 2>/dev/null |
    sed -n 's/^FOUND by seed \([0-9]*\).*/\1/p' || true)
  by=$("$BUILD/simulate" --seed "${found:-1}" 2>&1 >/dev/null | sed -n 's/^seed [^:]*: //p' | cut -c1-90 || true)
  if [[ -n $found ]]; then
    printf '%2d  %7d lives  %s\n                   %s\n' "$number" $((found - ${FIRST:-1} + 1)) "$what" "${by:-a crash}"
  else
    missed=$((missed + 1))
    printf '%2d  NOT FOUND      %s\n' "$number" "$what"
  fi
  cp "src/$file" "$BUILD/src/$file"
done
printf '%d planted, %d not found within %d lives\n' "$number" "$missed" "$LIVES"
[[ $missed -eq 0 ]]
