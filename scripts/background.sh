# shellcheck shell=bash
# Programs in the background of a script, which end with it, and a folder that goes with it too.  A
# script sources it when it runs in its own network.
#
#   $work                              the folder; new, unless the script has made one of its own
#   begin LOG TEXT PROGRAM [ARGUMENT...]   starts a program, and waits until its output, which goes
#                                      into LOG, has TEXT; shows the output when it never has
#   end_last                           ends the program that was started last

[[ -n ${work:-} ]] || work=$(mktemp -d)
background=()
end_background() {
  local process
  for process in "${background[@]}"; do
    kill "$process" 2>/dev/null || true
  done
  wait
  rm -rf -- "$work"
}
trap end_background EXIT

begin() {
  local log=$1 text=$2 tries
  shift 2
  : >"$log"
  "$@" >"$log" 2>&1 &
  background+=("$!")
  for ((tries = 0; tries < 600; ++tries)); do
    ! grep -qF -- "$text" "$log" || return 0
    sleep 0.05
  done
  printf 'nothing says: %s\n' "$text" >&2
  cat "$log" >&2
  return 1
}

end_last() {
  kill "${background[-1]}" 2>/dev/null || true
  wait "${background[-1]}" || true
  unset 'background[-1]'
}
