# shellcheck shell=bash
# A run in parts, many of them side by side.  scripts/run_tests.sh sources it, after
# scripts/test_results.sh.
#
#   part KIND NAME AFTER COMMAND [ARGUMENT...]
#
# makes a part known; it begins when the parts AFTER (separated by commas; "-" for none) have ended.
# Its KIND says what its end means:
#   compile  no test; when it fails, that is a failure, and what comes after it is not begun
#   check    one test, by the exit code
#   tests    prints a line for each of its cases, "passed  NAME", "FAILED  NAME" or "skipped  NAME",
#            with ": N tests" behind the name of several.  One that ends badly without saying why,
#            or has no case, is a failure of its own; exit code 3 says that it cannot run here.
#
# run_parts runs them all.  It tells of each when it has ended, with how long that took, how much of
# the processors, and with whatever is not a passed case; on a terminal also what is running, and how far.

parts=()
declare -A part_kind part_after part_command part_state part_begun part_of_pid

part() {
  local name=$2
  parts+=("$name")
  part_kind[$name]=$1
  part_after[$name]=
  [[ $3 == - ]] || part_after[$name]=${3//,/ }
  shift 3
  part_command[$name]=${*@Q}
}

# A line of the account, with the time since the beginning; what runs on a terminal is shown below.
tell() {
  [[ ! -t 1 ]] || printf '\r\033[K'
  printf '%3d:%02d  %s\n' $((SECONDS / 60)) $((SECONDS % 60)) "$1"
}

begin_parts() {
  local name other state
  for name in "${parts[@]}"; do
    [[ -z ${part_state[$name]:-} ]] || continue
    state=running
    for other in ${part_after[$name]}; do
      case ${part_state[$other]:-waiting} in
        ended) ;;
        failed) state=failed && break ;;
        *) state= ;;
      esac
    done
    part_state[$name]=$state
    if [[ $state == failed ]]; then
      failed=$((failed + 1))
      tell "$name: FAILED, not begun without $other"
    elif [[ $state == running ]]; then
      part_begun[$name]=$SECONDS
      (
        TIMEFORMAT='%U %S'
        time { (eval "${part_command[$name]}") >"$LOGS/$name.log" 2>"$LOGS/$name.err"; }
      ) 2>"$LOGS/$name.times" &
      part_of_pid[$!]=$name
      [[ -t 1 ]] || tell "$name ..."
    fi
  done
}

# How many of the cases in a log begin with a word.
count_cases() {
  awk -v word="$1" '$1 == word { n += $NF == "tests" ? $(NF - 1) : 1 } END { print n + 0 }' "$2"
}

# The seconds of the processor that a part has taken, with what it started and waited for.
processor_seconds() {
  awk '{ sum += $1 + $2 } END { printf "%.0f", sum }' "$LOGS/$1.times"
}

# Counts a part that has ended, and tells of it.
end_part() {
  local name=$1 code=$2 log=$LOGS/$1.log good=0 bad=0 left=0 verdict
  part_state[$name]=ended
  case ${part_kind[$name]} in
    compile) [[ $code -eq 0 ]] || part_state[$name]=failed bad=1 ;;
    check) if [[ $code -eq 0 ]]; then good=1; else bad=1; fi ;;
    tests)
      good=$(count_cases passed "$log")
      bad=$(count_cases FAILED "$log")
      left=$(count_cases skipped "$log")
      [[ $bad -gt 0 || $code -eq 3 || ($code -eq 0 && $((good + left)) -gt 0) ]] || bad=1
      ;;
  esac
  passed=$((passed + good))
  failed=$((failed + bad))
  skipped=$((skipped + left))
  verdict="$good passed"
  [[ ${part_kind[$name]} != compile ]] || verdict="done"
  [[ $bad -eq 0 ]] || verdict+=", $bad FAILED"
  [[ $left -eq 0 ]] || verdict+=", $left skipped"
  tell "$name: $verdict, $((SECONDS - part_begun[$name])) s, processor $(processor_seconds "$name") s"
  if [[ ${part_kind[$name]} == tests ]]; then
    grep -vE '^passed  |^[0-9]+ passed, [0-9]+ failed(, [0-9]+ skipped)?$' "$log" | sed 's/^/        /' || true
  elif [[ $bad -gt 0 ]]; then
    tail -n 40 "$log"
  fi
  [[ $code -eq 0 ]] || tail -n 40 "$LOGS/$name.err"
}

# On a terminal, the last line says what is running, each with what its log says last of how far.
show_progress() {
  local name far line ended=0
  line=
  for name in "${parts[@]}"; do
    case ${part_state[$name]:-} in
      running)
        far=$(tail -n 1 "$LOGS/$name.log" | grep -oE '^ *\[?[0-9]+/[0-9]+' | tr -d ' [' || true)
        line+=", $name${far:+ $far}"
        ;;
      ended | failed) ended=$((ended + 1)) ;;
    esac
  done
  line=$(printf '%3d:%02d  %d of %d parts; %s' $((SECONDS / 60)) $((SECONDS % 60)) "$ended" \
    "${#parts[@]}" "${line:2}")
  printf '\r\033[K%.*s' $(($(tput cols 2>/dev/null || echo 80) - 1)) "$line"
}

# Ends a process and what it has started.  It is stopped first, or it would go on with its next
# command when the present one ends.
end_tree() {
  local child children=()
  kill -STOP "$1" 2>/dev/null || return 0
  read -ra children 2>/dev/null <"/proc/$1/task/$1/children" || true
  for child in "${children[@]}"; do
    end_tree "$child"
  done
  kill "$1" 2>/dev/null || true
  kill -CONT "$1" 2>/dev/null || true
}
end_parts() {
  local pid
  for pid in "${!part_of_pid[@]}"; do
    end_tree "$pid"
  done
}

run_parts() {
  local pid code tick=()
  trap end_parts EXIT
  trap 'exit 1' INT TERM
  begin_parts
  while [[ ${#part_of_pid[@]} -gt 0 ]]; do
    if [[ -t 1 ]]; then
      show_progress
      sleep 1 &
      tick=("$!")
    fi
    code=0
    wait -n -p pid "${!part_of_pid[@]}" "${tick[@]}" || code=$?
    if [[ -n ${part_of_pid[$pid]:-} ]]; then
      end_part "${part_of_pid[$pid]}" "$code"
      unset "part_of_pid[$pid]"
      begin_parts
    fi
  done
}
