#!/usr/bin/env bash
# Tries the completion of bash on the tools, by its own functions: for each beginning of a command line
# what it is completed to.
# Usage: scripts/check_completion.sh FOLDER_OF_TOOLS
set -euo pipefail
[[ -d ${1:-} ]] || {
  printf 'usage: scripts/check_completion.sh FOLDER_OF_TOOLS\n' >&2
  exit 2
}
tools=$(cd "$1" && pwd)
cd "$(dirname "${BASH_SOURCE[0]}")/.."
set +eu # bash-completion is not written for them
# shellcheck source=/dev/null
. /usr/share/bash-completion/bash_completion
# shellcheck source=tools/completion/quorin.bash
. tools/completion/quorin.bash
compopt() { true; } # works within a real completion only
compared=0
failed=0

# Words in lines or beside each other, sorted.
sorted() {
  tr -s ' \n' '\n' | sort | paste -sd ' '
}

# What a command line is completed to.
completed() {
  COMP_LINE=$1
  COMP_POINT=${#COMP_LINE}
  # Bash takes '=' for a word of its own.
  read -ra COMP_WORDS <<<"${COMP_LINE//=/ = }"
  [[ $COMP_LINE != *[\ =] ]] || COMP_WORDS+=('')
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _quorin "$tools/${COMP_WORDS[0]}" </dev/null
  printf '%s\n' "${COMPREPLY[@]}" | sorted
}

same() {
  local found wanted
  found=$(completed "$1")
  wanted=$(sorted <<<"$2")
  compared=$((compared + 1))
  if [[ $found != "$wanted" ]]; then
    printf "'%s' is completed to '%s', not to '%s'\n" "$1" "$found" "$wanted" >&2
    failed=1
  fi
}

# The options of a tool, or of its subcommand.
options() {
  "$tools/$1" ${2:+"$2"} --help | grep -oE '^  -[^ ]+' | tr , '\n' | grep -oE -- '--[a-z-]+'
}

words=$("$tools/quorin-scanner" --help | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p')
same 'quorin-scanner ' "$words"
same 'quorin-scanner --' "$(options quorin-scanner)"
same 'quorin-host --' "$(options quorin-host)"
for word in $words; do
  same "quorin-scanner $word --" "$(options quorin-scanner "$word")"
done
same 'quorin-scanner d' 'discover doctor'
same 'quorin-host ' ''
same 'quorin-host --json --ans' '--answer --answer-for'
same 'quorin-host --answer B' BUSY
same 'quorin-host --answer P' 'PARAM_ERR PARSE_ERR PM_EXECUTE_ERR PM_NOT_INSTALL'
same 'quorin-host --send-to s' 'start single'
same 'quorin-host --send-file LIC' LICENCE.md
same 'quorin-host --name ' ''
same 'quorin-scanner push --protocol ' '1 2'
same 'quorin-scanner push --protocol=' '1 2'
same 'quorin-scanner push --json --color M' Monochrome
same 'quorin-scanner push --paper-type L' 'Letter Letter_Landscape Legal'
same 'quorin-scanner push --paper-type A4_' A4_Landscape
same 'quorin-scanner discover --bind localho' localhost
same 'quorin-scanner listen --save docs/m' docs/man
same 'quorin-scanner stress --kinds ga' garbage
same 'quorin-scanner stress --kinds slow,re' slow,reset
same 'quorin-scanner explain LIC' LICENCE.md
same 'quorin-scanner explain --json LIC' LICENCE.md
[[ $compared -ge 25 && $failed -eq 0 ]]
