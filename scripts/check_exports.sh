#!/usr/bin/env bash
# Compares what libZVQRN.so exports with the list in the public header; scripts/check_dll.sh does so
# for the DLLs.
# Usage: scripts/check_exports.sh LIBRARY.so
set -euo pipefail
[[ -f ${1:-} ]] || {
  printf 'usage: scripts/check_exports.sh LIBRARY.so\n' >&2
  exit 2
}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

wanted=$(grep -oE 'QRN_EXPORT QRN[A-Za-z]+' include/zvqrn/zvqrn.h | awk '{print $2}' | sort)
found=$(nm -D --defined-only "$1" | awk '{print $3}' | sort)
[[ -n $wanted ]]
diff <(printf '%s\n' "$wanted") <(printf '%s\n' "$found") >&2
