#!/usr/bin/env bash
# Checks ZVQRN.dll itself: what it exports and imports, its flags, size and version.
# Usage: scripts/check_dll.sh LIBRARY.dll
set -euo pipefail
dll=$1
cd "$(dirname "${BASH_SOURCE[0]}")/.."

broken=0
complain() {
  printf '%s: %s\n' "$dll" "$1" >&2
  broken=1
}
headers=$(i686-w64-mingw32-objdump -p "$dll")

wanted=$(grep -oE 'QRN_EXPORT QRN[A-Za-z]+' include/zvqrn/zvqrn.h | awk '{print $2}' | sort)
exported=$(awk '/Ordinal\/Name Pointer/ { on = 1; next } on && NF == 0 { on = 0 } on { print $NF }' \
  <<<"$headers" | sort)
[[ -n $wanted && $exported == "$wanted" ]] || complain "exports ${exported//$'\n'/ }"

strangers=$(awk '/DLL Name:/ { print toupper($3) }' <<<"$headers" |
  grep -vxE '(KERNEL32|MSVCRT|WS2_32|IPHLPAPI)\.DLL' || true)
[[ -z $strangers ]] || complain "imports from $strangers"
grep -q 'DLL Name: KERNEL32.dll' <<<"$headers" || complain 'its imports cannot be read'

# 0x40: an address of the system's choice (ASLR); 0x100: data is not executed (DEP).
flags=$(awk '$1 == "DllCharacteristics" { print $2; exit }' <<<"$headers")
(((0x$flags & 0x140) == 0x140)) || complain "flags are 0x$flags, without ASLR or DEP"
[[ $(i686-w64-mingw32-objdump -h "$dll") == *' .reloc '* ]] || complain 'cannot be moved'
grep -q '^Time/Date.*1970$' <<<"$headers" || complain 'holds the time of its build'
[[ $(i686-w64-mingw32-nm "$dll" 2>&1) == *'no symbols'* ]] || complain 'is not stripped'

size=$(stat -c %s "$dll")
((size < 100000)) || complain "has $size bytes"

# The resource holds UTF-16 text; the fixed part has the three numbers, each in two bytes.
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
tr -d '\0' <"$dll" | grep -qaF "ProductVersion$version" || complain "does not name version $version"

[[ $broken -eq 0 ]]
