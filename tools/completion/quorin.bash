# bash completion for quorin-host and quorin-scanner.  All that it offers is read from their --help
# when it is asked for.

# Completes the value of an option by what --help calls it: words, a file, a folder, a host.
# Arguments: the option, the help text.
_quorin_value() {
  local called words
  called=$(sed -nE "s/^  (--[a-z-]+,)*$1(,--[a-z-]+)* ([^ ].*)/\3/p" <<<"$2")
  called=${called%%  *}
  case $called in
    *'|'*)
      words=${called%%=*}
      words=${words//|/ }
      ;;
    FILE* | PATH*) _filedir ;;
    DIR*) _filedir -d ;;
    HOST*) _known_hosts_real -- "$cur" ;;
    # The words stand in the text after the option.
    WORD*) words=$(sed -nE "s/^  $1 .*: ([A-Za-z0-9_, ]+)\$/\1/p" <<<"$2" | tr -d ,) ;;
    CODE*) words=$(sed -n '/^Answer codes/,/^$/p' <<<"$2" | grep -oE '[0-9] [A-Z_]+' | tr -d '0-9 ') ;;
    LIST*)
      words=$(sed -nE '/^Kinds:/,/^$/s/^  ([a-z-]+) .*/\1/p' <<<"$2")
      # After commas, as many as are wanted.
      [[ $cur != *,* ]] || words=${cur%,*},${words//$'\n'/ "${cur%,*}",}
      compopt -o nospace
      ;;
  esac
  [[ -z ${words:-} ]] || mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}

_quorin() {
  # shellcheck disable=SC2034 # _init_completion sets them
  local cur prev words cword split help command='' i
  _init_completion -s || return
  # The first word that is no option is the subcommand; what stands before has no values.
  if [[ ${1##*/} == quorin-scanner ]]; then
    for ((i = 1; i < cword; ++i)); do
      if [[ ${words[i]} != -* ]]; then
        command=${words[i]}
        break
      fi
    done
  fi
  help=$("$1" ${command:+"$command"} --help 2>/dev/null) || return

  if [[ $prev == --?* ]] && grep -qE -- "^  (--[a-z-]+,)*$prev(,--[a-z-]+)* [^ ]" <<<"$help"; then
    _quorin_value "$prev" "$help"
  elif [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(grep -oE '^  -[^ ]+' <<<"$help" | tr , ' ')" -- "$cur")
  elif grep -q '^Subcommands:' <<<"$help"; then
    mapfile -t COMPREPLY < <(compgen -W \
      "$(sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p' <<<"$help")" -- "$cur")
  elif grep -qE '^Positionals:' <<<"$help"; then
    _filedir
  fi
}

complete -F _quorin quorin-host quorin-scanner
