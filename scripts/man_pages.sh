#!/usr/bin/env bash
# Makes the manual pages of the tools, one for each program and for each subcommand, of what their
# --help says.
# Usage: scripts/man_pages.sh FOLDER_OF_TOOLS VERSION OUTPUT_FOLDER
set -euo pipefail
[[ $# -eq 3 ]] || {
  printf 'usage: scripts/man_pages.sh FOLDER_OF_TOOLS VERSION OUTPUT_FOLDER\n' >&2
  exit 2
}

# Arguments: page, a line about it, program and subcommand.
make_page() {
  help2man --no-info --version-string "$version" --name "$2" --source "ZVQRN $version" \
    --output "$output/$1.1" "$tools/$3"
  # What man finds a page by is one word.
  sed -i "s/^$3 /$1 /" "$output/$1.1"
}

tools=$1 version=$2 output=$3
mkdir -p "$output"
make_page quorin-host 'host program that prints and answers push-scan requests' quorin-host
make_page quorin-scanner 'play a network scanner' quorin-scanner
"$tools/quorin-scanner" --help | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) +(.*)/\1 \2/p' |
  while read -r word about; do
    make_page "quorin-scanner-$word" "${about,}" "quorin-scanner $word" </dev/null
  done
