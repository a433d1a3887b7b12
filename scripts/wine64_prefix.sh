#!/usr/bin/env bash
# Makes sure of a Wine prefix for 64-bit programs, which scripts/under_wine.sh uses with the machine's
# own Wine (package wine64).  It holds 64-bit programs only and runs on any x86-64 machine, also where
# 32-bit ones cannot run.  It is made once, in ten seconds or so, outside the repository.
#
#   scripts/wine64_prefix.sh           make it unless it is there; exit 3 when it cannot be had
#   scripts/wine64_prefix.sh --path    print the folder that holds it (as prefix/), or would
#
# QUORIN_WINE64_FOLDER names another folder.
set -euo pipefail

readonly CANNOT_BE_HAD=3

[[ $# -eq 0 || $* == --path ]] || {
  printf 'usage: scripts/wine64_prefix.sh [--path]\n' >&2
  exit 2
}
folder=${QUORIN_WINE64_FOLDER:-}
if [[ -z $folder ]]; then
  # Wine uses only a prefix that belongs to its user.
  if [[ $(id -u) -eq 0 ]]; then
    folder=/var/cache/zvqrn/wine64
  else
    folder=${XDG_CACHE_HOME:-$HOME/.cache}/zvqrn/wine64
  fi
fi
if [[ ${1:-} == --path ]]; then
  printf '%s\n' "$folder"
  exit 0
fi
# Made by another version of Wine, a prefix would be brought up to date by every run anew.
version=$(dpkg-query -W -f '${Version}' wine64 2>/dev/null || true)
if [[ -d $folder/prefix && $(cat "$folder/version" 2>/dev/null) == "$version" ]]; then
  exit 0
fi

cannot() {
  printf 'No 64-bit Wine: %s\n' "$1" >&2
  exit "$CANNOT_BE_HAD"
}
for tool in /usr/lib/wine/wine64 bwrap flock; do
  command -v "$tool" >/dev/null || cannot "$tool is missing (scripts/install_packages.sh test)"
done

mkdir -p "$folder/mnt" 2>/dev/null || cannot "$folder cannot be written"
exec {lock}>"$folder/lock"
flock "$lock"
# Another may have made it meanwhile.
if [[ ! -d $folder/prefix || $(cat "$folder/version" 2>/dev/null) != "$version" ]]; then
  printf 'Making a 64-bit Wine prefix in %s ...\n' "$folder"
  # Made beside its place and then renamed, so that a half-made one is never used.
  rm -rf -- "$folder/prefix" "$folder/prefix.new"
  mkdir "$folder/prefix.new"
  log=$(mktemp)
  QUORIN_WINE64_FOLDER=$folder bash "$(dirname "${BASH_SOURCE[0]}")/under_wine.sh" x64 --make-prefix \
    >"$log" 2>&1 || true
  # Wine ends well also when it has made nothing.
  if [[ ! -e $folder/prefix.new/system.reg ]]; then
    cat "$log" >&2
    rm -f -- "$log"
    cannot 'Wine could not make its prefix'
  fi
  rm -f -- "$log"
  printf '%s\n' "$version" >"$folder/version"
  mv -- "$folder/prefix.new" "$folder/prefix"
fi
