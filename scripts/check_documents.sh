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
readonly documents=(README.md docs/*.md docs/hosts/*.md packaging/*.md)
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

# ---- Manual pages of the functions ----
# Prototypes, with one way of writing spaces.
prototypes() {
  tr -s ' \n' ' ' | grep -oE 'int32_t QRN[A-Za-z]+\([^)]*\);'
}
functions=$(sed -E 's/QRN_(PUBLIC|EXPORT) //g' include/zvqrn/zvqrn.h | prototypes)
while read -r function; do
  page=docs/man/$function.3.in
  same "prototype of $function, header and $page" "$(grep -F " $function(" <<<"$functions")" \
    "$([[ ! -e $page ]] || groff -man -Tascii -P-cbou "$page" | prototypes)"
done < <(grep -oE 'QRN[A-Za-z]+' <<<"$functions")
same 'prototypes, header and docs/man/libzvqrn.3.in' "$functions" \
  "$(groff -man -Tascii -P-cbou docs/man/libzvqrn.3.in | prototypes)"
same 'functions, header and pages' "$(grep -oE 'QRN[A-Za-z]+' <<<"$functions" | sort)" \
  "$(find docs/man -name 'QRN*' -printf '%f\n' | sed 's/\.3\.in$//' | sort)"
while read -r name; do
  compared=$((compared + 1))
  grep -qw "$name" include/zvqrn/zvqrn.h || complain "docs/man uses $name, which the header lacks"
done < <(grep -ohE '(QRN|DOCUMENT|SUBEVENT)_[A-Z0-9_]+[A-Z0-9]\b' docs/man/* | sort -u)
same 'functions, header and the list of symbols for Debian' \
  "$(grep -oE 'QRN[A-Za-z]+' <<<"$functions" | sort)" \
  "$(sed -nE 's/^ (QRN[A-Za-z]+)@.*/\1/p' packaging/debian/libzvqrn*.symbols | sort)"

# ---- One vocabulary: the library's, the tools', the documents', the dissector's ----
readonly library_words=src/pushscan/vocabulary.cpp tool_words=tools/common/vocabulary.cpp
readonly dissector=tools/wireshark/zvqrn.lua

# The words of a table in the library or in the tools, with the names of their numbers.
words_in() {
  sed -n "/$2\[\]/,/;\$/p" "$1" | grep -oE '"[A-Za-z0-9_]+", QRN_[A-Z0-9_]+'
}
# The numbers that the header gives to names.
numbered() {
  local word name
  while IFS=', ' read -r word name; do
    printf '%s %s\n' "$(grep -oE "$name = [0-9]+" include/zvqrn/zvqrn.h | head -n 1 | grep -oE '[0-9]+$')" \
      "${word//\"/}"
  done
}
# The words of a list in the dissector.
dissector_words() {
  tr '\n' ' ' <"$dissector" | grep -oE "local $1 = \{[^}]*\}" | grep -oE '"[A-Za-z0-9_]+"' | tr -d '"'
}
# A column of the table of words in docs/protocol.md, with the numbers.
documented_words() {
  sed -n '/^| number | `ImageFormatIn`/,/^$/p' docs/protocol.md | cut -d'|' -f"2,$1" |
    sed -nE 's/^ ([0-9]+) \| `([A-Za-z0-9_]+)` ?$/\1 \2/p'
}
column=3
for table in IMAGE_FORMAT LOAD_PAPER PAPER_TYPE COLOR_TYPE RESPONSE_CODE; do
  tool_table=${table/RESPONSE_CODE/ANSWER}
  known=$(words_in "$library_words" "${table}_WORDS")
  same "$table, library and tools" "$known" "$(words_in "$tool_words" "${tool_table}_WORDS")"
  list=${table}S
  known=$(numbered <<<"$known")
  same "$table, library and dissector" "$(cut -d' ' -f2 <<<"$known")" \
    "$(dissector_words "${list/RESPONSE_CODES/STATUS_OUT_WORDS}")"
  case $table in
    COLOR_TYPE)
      same "$table, library and docs/protocol.md" "$known" \
        "$(grep -oE '`(Color|Mono[a-z]+)`( is)? [0-9]+' docs/protocol.md | sed -E 's/`(.*)`( is)? ([0-9]+)/\3 \1/')"
      ;;
    RESPONSE_CODE) same "$table, library and header" "$known" "$answers" ;;
    *)
      same "$table, library and docs/protocol.md" "$known" "$(documented_words "$column")"
      column=$((column + 1))
      ;;
  esac
done

# The texts of constants of one kind.
constants() {
  sed -nE "s/^constexpr char $2_[A-Z_0-9]+\[\] = \"([^\"]+)\";.*/\1/p" "$1" | sort
}
for kind in HEADER STATUS; do
  same "$kind, library and tools" "$(constants src/eventproto/protocol.h "$kind")" \
    "$(constants tools/common/vocabulary.h "$kind")"
done
headers=$(constants src/eventproto/protocol.h HEADER)
same 'headers, library and docs/protocol.md' "$headers" \
  "$(sed -n '/^| # | header |/,/^$/p' docs/protocol.md | sed -nE 's/^\| [1-9] \| `([A-Za-z-]+)` \|.*/\1/p'  | sort)"
same 'headers, library and dissector' "$headers" \
  "$(sed -n '/^local HEADERS/,/^}/s/^  {"\([A-Za-z-]*\)".*/\1/p' "$dissector" | sort)"
same 'x-status, library and dissector' "$(constants src/eventproto/protocol.h STATUS)" \
  "$(sed -n '/^local STATUS_CODES/,/^}/s/^  \["\([0-9]*\)"\].*/\1/p' "$dissector" | sort)"
same 'meanings of x-status, tools and dissector' \
  "$(tr -d '\n' <"$tool_words" | grep -oE '\{STATUS_[A-Z_]+, *"[^"]+"' | sed 's/.*, *"//; s/"//' | sort)" \
  "$(sed -n '/^local STATUS_CODES/,/^}/s/.* = "\(.*\)",/\1/p' "$dissector" | sort)"

elements=$(grep -rohE '"[A-Z][A-Za-z]+(In|Out)"' src/pushscan | tr -d '"' | sort -u)
same 'elements, library and tools' "$elements" \
  "$(grep -rohE '"[A-Z][A-Za-z]+(In|Out)"' tools/scanner/wire/document.cpp tools/scanner/explain | tr -d '"' | sort -u)"
same 'elements, library and dissector' "$elements" \
  "$(grep -ohE '"[A-Z][A-Za-z]+(In|Out)"' "$dissector" | tr -d '"' | sort -u)"
while read -r element; do
  grep -q "\`$element\`" docs/protocol.md || complain "docs/protocol.md lacks the element $element"
done <<<"$elements"

# ---- One table of rules ----
rules=$("$tools/quorin-scanner" explain --rules)
same 'rules, explain and docs/protocol.md' "$rules" \
  "$(sed -nE '/^# The rules by name/,$s/^\| `([a-z-]+)` \| (.*) \| (.*) \|$/\1 | \2 | \3/p' docs/protocol.md)"
same 'rules, explain and dissector' "$rules" \
  "$(sed -n '/^local RULES/,/^}/p' "$dissector" | tr -d '\n' |
    grep -oE '\{"[a-z-]+", "[a-z]+", "[0-9]*", *"[^"]*"\}' |
    sed -E 's/\{"(.*)", "(.*)", "(.*)", *"(.*)"\}/\1 | \2 \3 | \4/; s/  \| / | /')"

# Every place to which doctor's hints lead is there.
while read -r cause; do
  compared=$((compared + 1))
  grep -q "<a id=\"$cause\">" docs/network.md || complain "docs/network.md has no place called $cause"
done < <(grep -ohE '"[a-z]+(-[a-z]+)+"' tools/scanner/doctor/*_checks.cpp | tr -d '"' | sort -u)

while read -r target; do
  grep -qE "^$target:" Makefile || complain "the documents use 'make $target', which the Makefile lacks"
done < <(grep -ohE '(^    |`)make [a-z-]+' "${documents[@]}" | sed 's/.*make //' | sort -u)
same 'commands, Makefile and its help' \
  "$(sed -n 's/^\.PHONY: help //p' Makefile | tr ' ' '\n' | sort)" \
  "$(make -s help | sed -nE 's/^make ([a-z-]+) .*/\1/p' | sort)"

# A check that found nothing to look at proves nothing.
[[ $compared -ge 45 && $broken -eq 0 ]]
