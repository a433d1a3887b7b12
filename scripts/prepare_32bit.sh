#!/usr/bin/env bash
# Decides how 32-bit programs for Windows run here, makes sure of what that needs, and prints the way:
#
#   native      under the Wine of scripts/wine_root.sh, where a probe finds that 32-bit programs run
#   emulated    in the PC of scripts/emulated_pc.sh, with the same Wine, where it finds that they do not
#   none        not at all; only who asks for it gets it
#
# QUORIN_32BIT names the way; without it the probe decides.  What was found, and what is made, is told
# on standard error.  Exit 1: the way cannot be had here, for the reason told.  --check only sees that
# QUORIN_32BIT names one.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

declare -rA MEANING=([native]='run under Wine' [emulated]='run in an emulated PC'
  [none]='are left out')
way=${QUORIN_32BIT:-}
[[ -z $way || -n ${MEANING[$way]:-} ]] || {
  printf 'QUORIN_32BIT is native, emulated or none, not %s\n' "$way" >&2
  exit 1
}
[[ ${1:-} != --check ]] || exit 0
possible=native
scripts/probe_32bit.sh >&2 || possible=emulated
way=${way:-$possible}
printf 'The 32-bit tests %s%s.\n' "${MEANING[$way]}" "${QUORIN_32BIT:+, as QUORIN_32BIT says}" >&2

# Several tests may ask at once.
mkdir -p build
exec {lock}>build/prepare-32bit.lock
flock "$lock"
code=0
case $way in
  # A Wine that is there already does not make it possible.
  native)
    [[ $possible == native ]] || code=1
    [[ $code -ne 0 ]] || scripts/wine_root.sh >&2 || code=$?
    ;;
  emulated)
    scripts/install_packages.sh emulated >&2 || code=$?
    [[ $code -ne 0 ]] || scripts/emulated_pc.sh >&2 || code=$?
    ;;
esac
if [[ $code -ne 0 ]]; then
  printf 'So the 32-bit tests cannot run; QUORIN_32BIT=none leaves them out.\n' >&2
  exit 1
fi
printf '%s\n' "$way"
