#!/usr/bin/env bash
# Finds out whether a 32-bit program runs on this machine: starts one of 96 bytes, made here, that
# ends with 42.  Says in one sentence what it found.
# Usage: scripts/probe_32bit.sh      exit 0 when 32-bit programs run, 1 when they do not
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly FORBIDDEN_CALL=159 # 128 + SIGSYS
# What Linux registers for interpreters of 32-bit programs begins so: ELF, 32 bits, i386.
readonly I386='^magic 7f454c46010101.*02000300'

mkdir -p build
program=$(mktemp build/probe-32bit.XXXXXX)
trap 'rm -f -- "$program"' EXIT
{
  # The header of a program for i386, entered at 0x08048054.
  printf '\x7fELF\1\1\1\0\0\0\0\0\0\0\0\0\2\0\3\0\1\0\0\0\x54\x80\4\x08\x34\0\0\0\0\0\0\0'
  printf '\0\0\0\0\x34\0\x20\0\1\0\0\0\0\0\0\0'
  # Its one segment: these 96 bytes at 0x08048000, to be read and run.
  printf '\1\0\0\0\0\0\0\0\0\x80\4\x08\0\x80\4\x08\x60\0\0\0\x60\0\0\0\5\0\0\0\0\x10\0\0'
  # mov eax, 1; mov ebx, 42; int 0x80: exit(42)
  printf '\xb8\1\0\0\0\xbb\x2a\0\0\0\xcd\x80'
} >"$program"
chmod +x "$program"

code=0
# The shell that waits for it tells of a signal on its standard error, which nobody needs.
message=$({ "$program"; } 2>&1) || code=$?
if [[ $code -eq 42 ]]; then
  if interpreter=$(grep -l "$I386" /proc/sys/fs/binfmt_misc/* 2>/dev/null); then
    printf 'The 32-bit test program runs, but through an interpreter (%s), under which Wine does not.\n' \
      "${interpreter##*/}"
    exit 1
  fi
  printf '32-bit programs run on this machine.\n'
  exit 0
fi
case $code in
  126) printf 'This machine starts no 32-bit program (%s).\n' "${message##*: }" ;;
  "$FORBIDDEN_CALL")
    printf '32-bit programs are forbidden here (one was ended at its first system call, signal SYS).\n' ;;
  *) printf 'A 32-bit program does not run rightly here (it ended with %d instead of 42).\n' "$code" ;;
esac
exit 1
