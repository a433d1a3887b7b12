#!/usr/bin/env bash
# Compares what libZVQRN.so exports with the list in the public header, and each version with that in
# the soname; scripts/check_dll.sh does so for the DLLs.
# Usage: scripts/check_exports.sh LIBRARY.so
set -euo pipefail
[[ -f ${1:-} ]] || {
  printf 'usage: scripts/check_exports.sh LIBRARY.so\n' >&2
  exit 2
}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

interface=$(readelf -d "$1" | sed -nE 's/.*soname: \[libZVQRN\.so\.([0-9.]+)\]/ZVQRN_\1/p')
[[ -n $interface ]]
wanted=$(grep -oE 'QRN_EXPORT QRN[A-Za-z]+' include/zvqrn/zvqrn.h |
  awk -v interface="$interface" '{ print $2 "@@" interface }' | sort)
found=$(nm -D --defined-only "$1" | awk '$2 != "A" { print $3 }' | sort)
[[ -n $wanted ]]
diff <(printf '%s\n' "$wanted") <(printf '%s\n' "$found") >&2
