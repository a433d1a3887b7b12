#!/usr/bin/env bash
# Checks that the documents say what the programs, the header and the sources say, where they state
# the same: options, subcommands, exit codes, status codes, answer codes, commands of make.
# Usage: scripts/check_documents.sh FOLDER      the folder of the built tools
# shellcheck disable=SC2016 # the backticks in the patterns below are those of the documents
set -euo pipefail
[[ -d ${1:-} ]] || {
  printf 'usage: scripts/check_documents.sh FOLDER, where the tools are built\n' >&2
  exit 2
}
cd "$(dirname "${BASH_SOURCE[0]}")/.."

readonly tools=$1
readonly documents=(README.md docs/*.md packaging/*.md)
broken=0
compared=0
complain() {
  printf '%s\n' "$1" >&2
  broken=1
}

# Compares two lists, one entry a line.
same() {
  compared=$((compared + 1))
  [[ -n $2 ]] || complain "$1: nothing was found to compare"
  if [[ $2 != "$3" ]]; then
    complain "$1:"
    diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") >&2 || true
  fi
}

# Every command line of a tool in the documents: its subcommand and its options exist.
while read -r program words; do
  read -ra words <<<"$words"
  command=("$tools/$program")
  if [[ $program == quorin-scanner && ${words[0]:-} =~ ^[a-z]+$ ]]; then
    if ! "$tools/$program" --help | grep "^  ${words[0]} " >/dev/null; then
      complain "the documents use '$program ${words[0]}', which is no subcommand"
      continue
    fi
    command+=("${words[0]}")
  fi
  help=$("${command[@]}" --help)
  for word in "${words[@]}"; do
    [[ $word =~ ^--[a-z-]+ ]] || continue
    compared=$((compared + 1))
    grep -qE -- "(^|[ ,])${BASH_REMATCH[0]}([ ,=|]|$)" <<<"$help" ||
      complain "the documents use '${command[*]##*/} ${BASH_REMATCH[0]}', which --help does not name"
  done
done < <(grep -ohE 'quorin-(host|scanner) [a-z-][^`;|&>)]*' "${documents[@]}" | sort -u)

# Every subcommand is told of where people look first.
for word in $("$tools/quorin-scanner" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
  grep -q "quorin-scanner $word" README.md || complain "README.md does not name quorin-scanner $word"
done

known=$("$tools/quorin-scanner" --help | tr '\n' ' ' | sed 's/.*Exit codes: //' |
  grep -oE '(^|; )[0-9]+ ' | tr -dc '0-9\n' | sort -u)
while read -r code; do
  grep -qx "$code" <<<"$known" || complain "docs/network.md has exit code $code, --help has not"
done < <(sed -nE 's/^ *\| .* \| ([0-9]) \| .*/\1/p' docs/network.md | sort -u)

same 'x-status, sources and docs/protocol.md' \
  "$(sed -nE 's/.*STATUS_[A-Z_]+\[\] = "([0-9]{4})".*/\1/p' src/eventproto/protocol.h | sort)" \
  "$(sed -nE 's/^\| `?([0-9]{4})`? \|.*/\1/p' docs/protocol.md | sort -u)"

answers=$(sed -nE 's/.*QRN_RESPONSE_[A-Z_]+ = ([0-9]),? +\/\* "([A-Z_]+)".*/\1 \2/p' include/zvqrn/zvqrn.h)
same 'answer codes, header and quorin-host --help' "$answers
9 BUSY" "$("$tools/quorin-host" --help | sed -n '/^Answer codes/,/^$/p' | grep -oE '[0-9] [A-Z_]+')"
same 'answer codes, header and docs/protocol.md' "$answers" \
  "$(sed '1,/^bytes.*The words of `StatusOut`/d' docs/protocol.md |
    sed -nE 's/^\| ([0-9]) \| `([A-Z_]+)` .*/\1 \2/p')"
same 'answer codes, header and docs/host-guide.md' "$(cut -d' ' -f1 <<<"$answers")" \
  "$(sed -nE 's/^\| ([1-8]) `QRN_RESPONSE_[A-Z_]+`.*/\1/p' docs/host-guide.md)"

while read -r target; do
  grep -qE "^$target:" Makefile || complain "the documents use 'make $target', which the Makefile lacks"
done < <(grep -ohE '(^    |`)make [a-z]+' "${documents[@]}" | sed 's/.*make //' | sort -u)
same 'commands, Makefile and its help' \
  "$(sed -n 's/^\.PHONY: help //p' Makefile | tr ' ' '\n' | sort)" \
  "$(make -s help | sed -nE 's/^make ([a-z]+) .*/\1/p' | sort)"

# A check that found nothing to look at proves nothing.
[[ $compared -ge 15 && $broken -eq 0 ]]
