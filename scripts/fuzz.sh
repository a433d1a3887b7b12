#!/usr/bin/env bash
# Runs the fuzz targets on the seeds in fuzz/corpus and on what earlier runs have found.
#
#   scripts/fuzz.sh [SECONDS] [TARGET...]      so long in all (default 300), every target by default
#   scripts/fuzz.sh --brief [SECONDS]          the share of the tests: a line a target (default 60)
#   scripts/fuzz.sh --minimise [TARGET...]     adds to fuzz/corpus what new inputs cover beyond it
#
# New inputs go to build/fuzz/corpus, findings to build/fuzz/findings.  Ends with 0 only if every
# target has run and none has found anything.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly BUILD=build/fuzz
readonly LONGEST_INPUT=2000
mode=run
seconds=300
case ${1:-} in
  --brief)
    mode=brief
    seconds=60
    shift
    ;;
  --minimise)
    mode=minimise
    shift
    ;;
esac
if [[ ${1:-} =~ ^[0-9]+$ ]]; then
  seconds=$1
  shift
fi
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
  for file in fuzz/*.cpp; do
    targets+=("$(basename "$file" .cpp)")
  done
fi
for target in "${targets[@]}"; do
  [[ -f fuzz/$target.cpp ]] || {
    printf "fuzz: there is no target '%s'\n" "$target" >&2
    exit 2
  }
done

scripts/build.sh fuzz
rm -rf -- "$BUILD/findings" "$BUILD/logs"
mkdir -p "$BUILD/findings" "$BUILD/logs"
export LLVM_PROFILE_FILE=/dev/null

# Lines of the library's files that the inputs of all targets together cover.
print_line_coverage() {
  local target programs=()
  for target in "${targets[@]}"; do
    LLVM_PROFILE_FILE=$BUILD/logs/$target.profraw "$BUILD/fuzz_$target" -runs=0 \
      "fuzz/corpus/$target" "$BUILD/corpus/$target" >/dev/null 2>&1 || true
    programs+=(-object "$BUILD/fuzz_$target")
  done
  llvm-profdata merge -o "$BUILD/logs/all.profdata" "$BUILD"/logs/*.profraw
  printf 'lines covered:\n'
  llvm-cov report "${programs[@]:1}" -instr-profile="$BUILD/logs/all.profdata" "$PWD"/src/*/*.cpp 2>/dev/null |
    awk '$1 ~ /\.cpp$/ && $10 + 0 > 0 { sub(/.*src\//, "", $1); printf "  %7s  %s\n", $10, $1 }'
}

minimise() {
  local target=$1
  "$BUILD/fuzz_$target" -merge=1 -set_cover_merge=1 -max_len="$LONGEST_INPUT" \
    "fuzz/corpus/$target" "$BUILD/corpus/$target" >"$BUILD/logs/$target.log" 2>&1
  printf '%s: %d inputs\n' "$target" "$(find "fuzz/corpus/$target" -type f | wc -l)"
}

# Fuzzes one target, and leaves its exit status beside its log.
fuzz() {
  local target=$1 status=0
  "$BUILD/fuzz_$target" -max_total_time="$share" -max_len="$LONGEST_INPUT" -timeout=20 \
    -rss_limit_mb=1024 -print_final_stats=1 -dict=fuzz/words.dict \
    -artifact_prefix="$BUILD/findings/$target-" "$BUILD/corpus/$target" "fuzz/corpus/$target" \
    >"$BUILD/logs/$target.log" 2>&1 || status=$?
  printf '%d\n' "$status" >"$BUILD/logs/$target.exit"
}

for target in "${targets[@]}"; do
  mkdir -p "$BUILD/corpus/$target" "fuzz/corpus/$target"
done
if [[ $mode == minimise ]]; then
  for target in "${targets[@]}"; do
    minimise "$target"
  done
  exit 0
fi

# As many at a time as there are processors.
jobs=$(nproc)
rounds=$(((${#targets[@]} + jobs - 1) / jobs))
share=$((seconds / rounds))
[[ $share -gt 0 ]] || share=1
for target in "${targets[@]}"; do
  while [[ $(jobs -rp | wc -l) -ge $jobs ]]; do
    wait -n
  done
  fuzz "$target" &
done
wait

failed=0
for target in "${targets[@]}"; do
  log=$BUILD/logs/$target.log
  runs=$(sed -nE 's/^stat::number_of_executed_units: *([0-9]+)$/\1/p' "$log")
  rate=$(sed -nE 's/^stat::average_exec_per_sec: *([0-9]+)$/\1/p' "$log")
  covered=$(grep -oE 'cov: [0-9]+ ft: [0-9]+ corp: [0-9]+' "$log" | tail -n 1)
  findings=$(find "$BUILD/findings" -name "$target-*" | wc -l)
  verdict=passed
  if [[ ${runs:-0} -eq 0 || $findings -gt 0 || $(<"$BUILD/logs/$target.exit") -ne 0 ]]; then
    verdict=FAILED
    failed=1
  fi
  printf '%s  fuzz-%s: %d executions\n' "$verdict" "$target" "${runs:-0}"
  if [[ $mode == run ]]; then
    printf '          %s/s, %s inputs (edges, features, corpus), %d findings\n' \
      "${rate:-0}" "${covered:-nothing}" "$findings"
  fi
  if [[ $verdict == FAILED ]]; then
    grep -aE 'ERROR|SUMMARY|runtime error|^    #[0-9]+ .* (in|0x).*/(src|fuzz)/' "$log" | head -n 20
    find "$BUILD/findings" -name "$target-*"
  fi
done
[[ $mode == brief ]] || print_line_coverage
exit "$failed"
