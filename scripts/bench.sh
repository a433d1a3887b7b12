#!/usr/bin/env bash
# Builds and runs the benchmarks, all in one run, and prints one table: what, ours, the peer beside
# it, and whether the aim is met.  Leaves it in build/bench/results.json and build/bench/results.md.
# Usage: scripts/bench.sh [--quick] [--update-docs]
#   --quick          a few samples of each, to try things out
#   --update-docs    put the table into docs/performance.md
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly OUT=build/bench
readonly PROGRAMS=$OUT/bench

if [[ ${1:-} == --inside ]]; then
  shift
  repetitions=9 seconds=0.2
  [[ " $* " != *" --quick "* ]] || repetitions=3 seconds=0.05
  printf 'Measuring the rooms ...\n'
  "$PROGRAMS/room_bench" --benchmark_out="$OUT/rooms.json" --benchmark_out_format=json \
    --benchmark_min_time="$seconds" --benchmark_repetitions="$repetitions" \
    --benchmark_enable_random_interleaving=true \
    >"$OUT/rooms.txt" 2>&1 || { cat "$OUT/rooms.txt" >&2; exit 1; }
  "$PROGRAMS/allocation_bench" "$OUT/allocations.txt" >/dev/null
  exec "$PROGRAMS/system_bench" --folder "$PROGRAMS" --results "$OUT/system.txt" "$@"
fi

options=()
update_docs=no
for option in "$@"; do
  case $option in
    --quick) options+=(--quick) ;;
    --update-docs) update_docs=yes ;;
    *)
      printf 'usage: scripts/bench.sh [--quick] [--update-docs]\n' >&2
      exit 2
      ;;
  esac
done
scripts/private_network.sh --available || {
  printf 'No network namespace can be made here, and the benchmarks need one: they use fixed\n' >&2
  printf 'ports.  Run them as root, or allow user namespaces.\n' >&2
  exit 1
}

scripts/build.sh bench windows-x64 windows-x86
rm -f -- "$OUT"/{rooms,allocations,system,results}.* "$OUT"/stripped.*
strip -o "$OUT/stripped.so" "$OUT/libZVQRN.so"
options+=(--library "$OUT/stripped.so")

# Wine is used where it can be had; an emulated PC would measure the emulation.
wine_for_x64() {
  scripts/wine64_prefix.sh
}
wine_for_x86() {
  scripts/probe_32bit.sh && scripts/wine_root.sh
}
for machine in x64 x86; do
  folder=build/windows-$machine
  options+=("--library-$machine" "$folder/ZVQRN.dll")
  if why=$("wine_for_$machine" 2>&1); then
    options+=("--host-$machine" "$folder/bench")
  else
    options+=("--no-host-$machine" "${why##*$'\n'}")
  fi
done

scripts/private_network.sh --with-scanner bash "${BASH_SOURCE[0]}" --inside "${options[@]}"

machine="$(sed -nE '0,/^model name/s/^model name\s*: //p' /proc/cpuinfo), $(nproc) core(s),"
machine+=" Linux $(uname -r | cut -d- -f1), $(c++ --version | head -n 1), commit $(git rev-parse --short HEAD)"
printf '\n'
"$PROGRAMS/bench_report" "$OUT" "$machine"
printf 'The table is in %s/results.md and %s/results.json.\n' "$OUT" "$OUT"

if [[ $update_docs == yes ]]; then
  sed -i -e '/^<!-- figures -->$/,/^<!-- end of figures -->$/{//!d}' \
    -e "/^<!-- figures -->\$/r $OUT/results.md" docs/performance.md
fi
