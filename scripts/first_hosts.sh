#!/usr/bin/env bash
# From nothing to the first served request: does what docs/host-guide.md says for its first hosts, each
# in a new folder with nothing but what `make package` has made, and prints how long that took.  Each
# host is then tried with a START and an END, and must print what the guide shows.
# Usage: scripts/first_hosts.sh c|cpp|python...
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top guide=$top/docs/host-guide.md

# Inside a network of its own: --serve FOLDER COMMAND..., which begins at $BEGIN.
if [[ ${1:-} == --serve ]]; then
  cd "$2"
  shift 2
  set -m # a job in the background would ignore the interrupt
  mkfifo keys
  exec 3<>keys
  "$@" <keys >printed 2>&1 &
  host=$!
  trap 'kill "$host" 2>/dev/null || true' EXIT
  until [[ -n $(ss -Hltn 'sport = :2968') ]]; do
    kill -0 "$host"
    sleep 0.02
  done
  push=(bin/quorin-scanner push --to "$QUORIN_PRIVATE_ADDRESS")
  "${push[@]}" --uid 1
  printf '%d\n' $((($(date +%s%N) - BEGIN) / 1000000)) >milliseconds
  sleep 0.6 # the service takes a moment to see that the scanner before has gone
  "${push[@]}" --uid 2 --pair --hold 200 --protocol 2 | tee pair
  grep -qx ' *ready' pair
  echo >&3
  [[ $1 == ./first_host ]] || kill -INT "$host"
  wait "$host"
  exit
fi

# What the guide's section about a language has: its first block of code, its commands, the output.
section() {
  sed -n "/^## A .*host in $1\$/,/^## /p" "$guide"
}
block() {
  # Read to its end: a pipe that is left early ends its writer.
  section "$1" | awk -v begin="\`\`\`$2" '/^```$/ && on { on = 0; past = 1 } on; $0 == begin && !past { on = 1 }'
}

# All of one language, in the folder `work`.
try_language() {
  local title run=(./first_host)
  tar -xzf "$top"/build/packages/ZVQRN-*-linux-*.tar.gz -C "$work" --strip-components=1
  case $1 in
    c)
      title=C
      block C c >"$work/first_host.c"
      (cd "$work" && bash -ec "$(block C sh)")
      ;;
    cpp)
      title='C++'
      block C++ cpp >"$work/first_host.cpp"
      (cd "$work" && bash -ec "$(block C++ sh)")
      ;;
    python)
      title=Python
      block Python python >"$work/first_host.py"
      mkdir "$work/build"
      ln -s "$top/build/packages" "$work/build/packages"
      (cd "$work" && bash -ec "$(section Python | sed -nE 's/^    ((python3|env).*)/\1/p')")
      run=(env/bin/python first_host.py)
      ;;
  esac
  timeout 200 "$scripts/private_network.sh" "$scripts/first_hosts.sh" --serve "$work" "${run[@]}"
  # An END has a uid of its own.
  diff <(section "$title" | grep -E '^(request|SettingsRequest|IdRequest)[ (]' | sed -E 's/[0-9]{9,}/N/') \
    <(sed -E 's/[0-9]{9,}/N/' "$work/printed" | tail -n 3)
}

failed=0
for language; do
  work=$(mktemp -d)
  BEGIN=$(date +%s%N)
  export BEGIN
  set +e
  (set -e; try_language "$language") >"$work.log" 2>&1
  code=$?
  set -e
  if [[ $code -eq 0 ]]; then
    printf '%-8s %5d ms\n' "$language" "$(<"$work/milliseconds")"
  else
    failed=1
    printf 'FAILED  %s\n' "$language"
    tail -n 40 "$work.log"
  fi
  rm -rf -- "$work" "$work.log"
done
exit "$failed"
