#!/usr/bin/env bash
# Lets a host run for a long time under everything at once (bad scanners, ordinary requests, the
# host's data, searches, address changes, restarts of its service) and watches what it holds.
# Usage: scripts/soak.sh [MINUTES | --seconds N] [--preset PRESET]      (default 10 minutes, release)
#
# It runs in a network namespace of its own and writes into build/soak, or QUORIN_SOAK_FOLDER.  Every
# second (in a short run every quarter of one) memory, descriptors and threads of the host go into
# samples.csv there.  It fails when
#   - one of the three grows: the first fifth of the samples is left out (after a warm-up with what
#     takes most memory), then the median of the last third must not lie above that of the first third
#     by more than the tolerance below.  Medians, because a flood makes short peaks anywhere; thirds,
#     so that each covers every kind of traffic several times;
#   - at rest after all of it the host holds more descriptors or threads than at rest before;
#   - the host ends by itself or with another code than 0 (the sanitised build: a leak, a bad access);
#   - an answer was wrong, or any kind of traffic never got through.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly MEMORY_TOLERANCE_KB=6144 # and a tenth of the first median
readonly COUNT_TOLERANCE=8        # descriptors and threads, and a fifth of the first median
readonly RESTART_EVERY=6
readonly OUT=${QUORIN_SOAK_FOLDER:-build/soak}

usage() {
  printf 'usage: scripts/soak.sh [MINUTES | --seconds N] [--preset PRESET]\n' >&2
  exit 2
}

arguments=("$@")
seconds=600
preset=release
while [[ $# -gt 0 ]]; do
  case $1 in
    --seconds) seconds=${2:-}; shift ;;
    --preset) preset=${2:-}; shift ;;
    *) [[ $1 =~ ^[0-9]+$ ]] || usage; seconds=$(($1 * 60)) ;;
  esac
  shift || usage
done
[[ $seconds =~ ^[0-9]+$ && $seconds -ge 15 ]] || usage
build=build/$preset
for file in quorin-host quorin-scanner libZVQRN.so libDRAVLIB.so DRAVLIB.txt; do
  [[ -e $build/$file ]] || {
    printf 'soak: %s is missing; run scripts/build.sh %s first\n' "$build/$file" "$preset" >&2
    exit 2
  }
done
if [[ -z ${QUORIN_SCANNER_ADDRESS:-} ]]; then
  exec scripts/private_network.sh --with-scanner bash "${BASH_SOURCE[0]}" "${arguments[@]}"
fi

rm -rf -- "$OUT"
mkdir -p "$OUT"
children=()
clean_up() {
  local child
  for child in "${children[@]}"; do
    kill "$child" 2>/dev/null || true
  done
  wait
}
trap clean_up EXIT
trap 'exit 1' INT TERM

fail() {
  printf 'soak: %s\n' "$1"
  failed=yes
}
failed=no

# Resident memory is to show what the host holds, not what the allocator keeps: glibc has eight
# arenas a core, and each may keep the 1 MiB of the largest message that passed through it.
export MALLOC_ARENA_MAX=${MALLOC_ARENA_MAX:-1}
# Freed memory leaves a sanitised process soon, for the same reason.
export ASAN_OPTIONS=${ASAN_OPTIONS:-}:quarantine_size_mb=8:thread_local_quarantine_size_kb=64
export TSAN_OPTIONS=${TSAN_OPTIONS:-}:history_size=2

head -c 300000 /dev/urandom >"$OUT/data"
"$build/quorin-host" --json --name SOAK-PC --restart-every "$RESTART_EVERY" --send ready \
  --send-file "$OUT/data" > >(sed -E 's/^\{"event":"([a-z]+)".*/\1/' |
    sort | uniq -c >"$OUT/host-events.txt") 2>"$OUT/host-errors.txt" &
host=$!
children+=("$host")

# Memory in KB, descriptors, threads; nothing when the host has gone.
sample() {
  local memory threads descriptors
  memory=$(awk '/^VmRSS:/ { print $2 }' "/proc/$host/status") || return 1
  threads=$(awk '/^Threads:/ { print $2 }' "/proc/$host/status") || return 1
  descriptors=$(find "/proc/$host/fd" -mindepth 1 2>/dev/null | wc -l) || return 1
  printf '%s,%s,%s\n' "$memory" "$descriptors" "$threads"
}

# Descriptors and threads as they were most of the time in four seconds, which a restart does not
# change.
at_rest() {
  local i line
  for ((i = 0; i < 40; i++)); do
    line=$(sample) && printf '%s\n' "$line"
    sleep 0.1
  done | cut -d, -f2- | sort -t, -k1,1n -k2,2n | uniq -c | sort -k1,1nr | awk 'NR == 1 { print $2 }'
}

sleep 1
rest_before=$(at_rest)

# Runs a command again and again until the time is up; counts its exit codes in $OUT/NAME.codes.
until_end() {
  local name=$1 pause=$2 code
  shift 2
  while [[ $(date +%s) -lt $end ]]; do
    code=0
    "$@" >>"$OUT/$name.log" 2>&1 || code=$?
    printf '%d\n' "$code" >>"$OUT/$name.codes"
    tail -c 100000 "$OUT/$name.log" >"$OUT/$name.tail" && mv "$OUT/$name.tail" "$OUT/$name.log"
    sleep "$pause"
  done
}

# The PC's address goes and another comes, then the first is back.
change_addresses() {
  ip address add 10.68.0.9/24 dev quorin0
  sleep 0.5
  ip address del "$QUORIN_PRIVATE_ADDRESS/24" dev quorin0
  ip address replace "$QUORIN_PRIVATE_ADDRESS/24" dev quorin0
  ip address replace "$QUORIN_SCANNER_ADDRESS/24" dev quorin0
  ip route replace default via 10.68.0.1
  ip address del 10.68.0.9/24 dev quorin0 2>/dev/null || true
}

scanner=$build/quorin-scanner
to=(--to 127.0.0.1 --timeout 3000)
# What takes most memory first, so that the allocator's arenas have their size.
"$scanner" stress "${to[@]}" --kinds huge,endless-body,flood,open-starts,discovery --seconds 2 \
  --not-alone >"$OUT/warm-up.log" || fail "the warm-up was not served"
end=$(($(date +%s) + seconds - 12))
kind_seconds=2
interval=1
if [[ $seconds -lt 100 ]]; then
  kind_seconds=0.3
  interval=0.25
fi
# One kind of bad scanner after the other, with pauses in which others get through.
mapfile -t kinds < <("$scanner" stress --help | sed -nE '/^Kinds:$/,/^$/s/^  ([a-z-]+) .*/\1/p')
next_kind=0
stress_next() {
  local kind=${kinds[next_kind++ % ${#kinds[@]}]}
  "$scanner" stress "${to[@]}" --kinds "$kind" --seconds "$kind_seconds" --not-alone --json
}
until_end stress 0.5 stress_next &
children+=($!)
until_end push 0.2 "$scanner" push "${to[@]}" --protocol 2 &
children+=($!)
until_end pair 0.7 "$scanner" push "${to[@]}" --pair --hold 100 &
children+=($!)
until_end listen 0.3 "$scanner" listen "${to[@]}" --count 2 --for 2 --output "$OUT/received" &
children+=($!)
until_end discover 0.5 "$scanner" discover --to "$QUORIN_PRIVATE_ADDRESS" \
  --from "$QUORIN_SCANNER_ADDRESS" --timeout 1000 &
children+=($!)
until_end address 4 change_addresses &
children+=($!)

printf 'second,rss_kb,descriptors,threads\n' >"$OUT/samples.csv"
begin=$EPOCHREALTIME
while [[ $(date +%s) -lt $end ]]; do
  line=$(sample) || { fail "the host has ended"; break; }
  awk -v now="$EPOCHREALTIME" -v begin="$begin" -v line="$line" \
    'BEGIN { printf "%.2f,%s\n", now - begin, line }' >>"$OUT/samples.csv"
  sleep "$interval"
done
for child in "${children[@]:1}"; do
  wait "$child" || true
done
sleep 2
rest_after=$(at_rest)

code=0
kill -INT "$host" && wait "$host" || code=$?
[[ $code -eq 0 ]] || { fail "the host ended with $code"; tail -n 30 "$OUT/host-errors.txt"; }

# Median of a column over the samples from FIRST to LAST, given as fractions.
median() {
  tail -n +2 "$OUT/samples.csv" | awk -F, -v c="$1" -v from="$2" -v to="$3" '
    { v[NR] = $c } END { for (i = int(NR * from) + 1; i <= NR * to; i++) print v[i] }' |
    sort -n | awk '{ v[NR] = $1 } END { print NR ? v[int((NR + 1) / 2)] : 0 }'
}

trends=
column=2
for name in rss_kb descriptors threads; do
  early=$(median "$column" 0.2 0.467)
  late=$(median "$column" 0.733 1)
  if [[ $name == rss_kb ]]; then
    limit=$((early + early / 10 + MEMORY_TOLERANCE_KB))
  else
    limit=$((early + early / 5 + COUNT_TOLERANCE))
  fi
  trends+=" $name $early to $late (limit $limit),"
  [[ $late -gt 0 && $late -le $limit ]] || fail "$name grows: $early to $late, above $limit"
  column=$((column + 1))
done

[[ ${rest_after%,*} -le ${rest_before%,*} && ${rest_after#*,} -le ${rest_before#*,} ]] ||
  fail "descriptors,threads at rest: $rest_before before, $rest_after after"

# Which exit codes each traffic had: it must have got through (0), and 6 means a wrong answer.
counts=
for name in stress push pair listen discover address; do
  good=$(grep -cx 0 "$OUT/$name.codes" || true)
  all=$(wc -l <"$OUT/$name.codes")
  counts+=" $name $good of $all,"
  [[ $good -gt 0 ]] || fail "$name never got through"
done
if grep -qx 6 "$OUT/stress.codes"; then
  fail "bad scanners got wrong answers"
  grep '"good":false' "$OUT/stress.log" | tail -n 3
fi

printf 'soak: %d s, %s build;%s at rest descriptors,threads %s to %s;%s restarts %s\n' "$seconds" \
  "$preset" "$trends" "$rest_before" "$rest_after" "$counts" \
  "$(awk '$2 == "started" { print $1 - 1 }' "$OUT/host-events.txt")"
[[ $failed == no ]] || {
  printf 'soak: FAILED\n'
  exit 1
}
printf 'soak: passed\n'
