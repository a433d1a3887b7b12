#!/usr/bin/env bash
# Compares what both libraries export with the list in the public header.
# Usage: scripts/check_exports.sh LIBRARY.so LIBRARY.dll
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

wanted=$(grep -oE 'QRN_EXPORT QRN[A-Za-z]+' include/zvqrn/zvqrn.h | awk '{print $2}' | sort)
from_so=$(nm -D --defined-only "$1" | awk '{print $3}' | sort)
from_dll=$(i686-w64-mingw32-objdump -p "$2" |
  awk '/Ordinal\/Name Pointer/ { on = 1; next } on && NF == 0 { on = 0 } on { print $NF }' | sort)
[[ -n $wanted ]]
for found in "$from_so" "$from_dll"; do
  if [[ $found != "$wanted" ]]; then
    diff <(printf '%s\n' "$wanted") <(printf '%s\n' "$found") >&2
    exit 1
  fi
done
