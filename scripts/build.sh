#!/usr/bin/env bash
# Configures and builds presets, and says little unless something fails.
# Usage: scripts/build.sh PRESET...
set -euo pipefail
[[ $# -gt 0 ]] || {
  printf 'usage: scripts/build.sh PRESET...\n' >&2
  exit 2
}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

for preset in "$@"; do
  printf 'Building %s ...\n' "$preset"
  log=$(mktemp)
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f -- "$log"
    exit 1
  fi
  rm -f -- "$log"
done
