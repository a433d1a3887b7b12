#!/usr/bin/env bash
# Checks ZVQRN.dll itself: its machine, what it exports and imports, its flags, size and version, and
# that its symbols lie beside it.
# Usage: scripts/check_dll.sh x86|x64 LIBRARY.dll
set -euo pipefail
[[ $# -eq 2 && $1 =~ ^x(86|64)$ ]] || {
  printf 'usage: scripts/check_dll.sh x86|x64 LIBRARY.dll\n' >&2
  exit 2
}
machine=$1 dll=$2
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Flags: 0x40: an address of the system's choice (ASLR); 0x100: data is not executed (DEP); 0x20: the
# address may be anywhere in 64 bits.
case $machine in
  x86) tools=i686-w64-mingw32 format=pei-i386 wanted_flags=0x140 ;;
  x64) tools=x86_64-w64-mingw32 format=pei-x86-64 wanted_flags=0x160 ;;
esac
readonly LIMIT=100000

broken=0
complain() {
  printf '%s: %s\n' "$dll" "$1" >&2
  broken=1
}
headers=$("$tools-objdump" -p "$dll")

grep -q "file format $format\$" <<<"$headers" || complain "is not for $machine"
wanted=$(grep -oE 'QRN_EXPORT QRN[A-Za-z]+' include/zvqrn/zvqrn.h | awk '{print $2}' | sort)
exported=$(awk '/Ordinal\/Name Pointer/ { on = 1; next } on && NF == 0 { on = 0 } on { print $NF }' \
  <<<"$headers" | sort)
[[ -n $wanted && $exported == "$wanted" ]] || complain "exports ${exported//$'\n'/ }"

strangers=$(awk '/DLL Name:/ { print toupper($3) }' <<<"$headers" |
  grep -vxE '(KERNEL32|MSVCRT|WS2_32|IPHLPAPI)\.DLL' || true)
[[ -z $strangers ]] || complain "imports from $strangers"
grep -q 'DLL Name: KERNEL32.dll' <<<"$headers" || complain 'its imports cannot be read'

# These count seconds in 32 bits, until 2038; their namesakes with 64 in the name do not.
short=$(grep -owE '_?(time|ftime|localtime|gmtime|mktime)(32)?' <<<"$headers" || true)
[[ -z $short ]] || complain "imports ${short//$'\n'/ }"

flags=$(awk '$1 == "DllCharacteristics" { print $2; exit }' <<<"$headers")
(((0x$flags & wanted_flags) == wanted_flags)) || complain "flags are 0x$flags, not $wanted_flags"
[[ $("$tools-objdump" -h "$dll") == *' .reloc '* ]] || complain 'cannot be moved'
grep -q '^Time/Date.*1970$' <<<"$headers" || complain 'holds the time of its build'
[[ $("$tools-nm" "$dll" 2>&1) == *'no symbols'* ]] || complain 'is not stripped'
# The symbols beside it are its own: they know an export's place in the sources, and their checksum
# is the one that the library has written down.
symbols=${dll%.dll}.debug
address=$("$tools-nm" "$symbols" 2>/dev/null | awk '/ T _?QRNSendData(@12)?$/ { print $1 }')
[[ -n $address && $("$tools-addr2line" -e "$symbols" "$address") == */exports.cpp:[1-9]* ]] ||
  complain "its symbols are not in $symbols"
"$tools-objdump" -s -j .gnu_debuglink "$dll" 2>/dev/null | grep 'ZVQRN.deb' >/dev/null ||
  complain 'does not name its symbols'

size=$(stat -c %s "$dll")
((size < LIMIT)) || complain "has $size bytes, $LIMIT or more"

# The resource holds UTF-16 text; the fixed part has the three numbers, each in two bytes.
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
# Read to its end: a pipe that is left early ends its writer with an error.
tr -d '\0' <"$dll" | grep -aF "ProductVersion$version" >/dev/null ||
  complain "does not name version $version"

[[ $broken -eq 0 ]]
