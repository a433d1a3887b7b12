#!/usr/bin/env bash
# Checks what the tools do where they are used wrongly or where the machine is not as usual: wrong
# words, output that cannot be written, letters beyond ASCII, taken ports, a terminal that closes.
# Prints a line a case.  Usage: scripts/check_tools.sh BUILD_FOLDER [RUNNER...]
# RUNNER starts a Windows program, for a folder of such: scripts/under_wine.sh x64.  Ends with 3 when
# there is no Wine.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here

[[ -d ${1:-} ]] || {
  printf 'usage: scripts/check_tools.sh BUILD_FOLDER [RUNNER...]\n' >&2
  exit 2
}
if [[ -z ${QUORIN_PRIVATE_ADDRESS:-} ]]; then
  exec "$here/private_network.sh" bash "${BASH_SOURCE[0]}" "$@"
fi
build=$(cd "$1" && pwd)
runner=("${@:2}")
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$here/../CMakeLists.txt")
files=(quorin-host quorin-scanner libZVQRN.so libDRAVLIB.so)
suffix=
if [[ ${#runner[@]} -gt 0 ]]; then
  suffix=.exe
  files=(quorin-host.exe quorin-scanner.exe ZVQRN.dll DRAVLIB.dll)
fi

# Everything runs in a folder whose name has a letter beyond ASCII.  The user has chosen no locale, as
# in a service or a container; Wine needs one to know the names of files.
readonly work=$build/Prüfstand-$$
mkdir "$work"
# shellcheck source=scripts/background.sh
. "$here/background.sh"
cp -L "${files[@]/#/$build/}" "$build/DRAVLIB.txt" "$work"
export LC_ALL=C
[[ -z $suffix ]] || export LC_ALL=C.UTF-8

tool() {
  "${runner[@]}" "$work/$1$suffix" "${@:2}"
}

code=0
tool quorin-host --version >/dev/null || code=$?
[[ -z $suffix || $code -ne 3 ]] || exit 3

failed=0
report() {
  if [[ $2 == good ]]; then
    printf 'passed  tools%s-%s\n' "${suffix:+-windows}" "$1"
  else
    failed=$((failed + 1))
    printf 'FAILED  tools%s-%s: %s\n' "${suffix:+-windows}" "$1" "$2"
    sed 's/^/        /' "$work/output"
  fi
}

# Runs a tool as a case: its exit code, and a text that its output has.
check() {
  local name=$1 wanted=$2 text=$3 code=0 verdict=good
  shift 3
  tool "$@" >"$work/output" 2>&1 || code=$?
  grep -qF -- "$text" "$work/output" || verdict="the output lacks '$text'"
  [[ $code -eq $wanted ]] || verdict="exit code $code, not $wanted"
  report "$name" "$verdict"
}

# The same with one of its outputs on a full disk: 1 or 2.
check_full() {
  local name=$1 output=$2 code=0 verdict=good
  shift 2
  case $output in
    1) tool "$@" >/dev/full 2>"$work/output" || code=$? ;;
    2) tool "$@" >"$work/output" 2>/dev/full || code=$? ;;
  esac
  [[ $output -eq 2 ]] || grep -q 'cannot be written' "$work/output" || verdict='it does not say so'
  [[ $code -eq 1 ]] || verdict="exit code $code, not 1"
  report "$name" "$verdict"
}

check no-such-command 2 "'foo' is none of" quorin-scanner foo
check command-help 2 "'help' is none of" quorin-scanner help
check no-such-option 2 "'--josn' is none of" quorin-scanner --josn
check no-such-host-option 2 'foo' quorin-host foo
check no-such-host 2 'no host of this name is known' quorin-scanner push --to no-such-host.invalid
check slip-of-the-pen 2 "'192.0.2.300' is no IPv4 address" quorin-scanner discover --to 192.0.2.300
check host-name 3 'nothing listens at 127.0.0.1' quorin-scanner push --to localhost
check times 3 'Z  quorin-scanner: nothing' quorin-scanner push --time
check json-times 3 ',"at":"20' quorin-scanner push --json
check foreign-source 1 'is no address of this machine' quorin-scanner push --bind 192.0.2.1
check full-capture 1 "cannot write '/dev/full'" quorin-scanner push --pcap /dev/full
check no-capture 1 "cannot read 'nothing'" quorin-scanner explain nothing
check rules-and-file 2 "'extra' was given" quorin-scanner explain --rules extra
check no-product 2 '1 to 31 bytes' quorin-scanner doctor --product ''
check long-product 2 '1 to 31 bytes' quorin-scanner doctor --product "$(printf '%0100d' 0)"
printf 'HTTP/1.0 200 OK\r\n' | gzip >"$work/packed"
check packed-capture 6 'unpack it first' quorin-scanner explain "$work/packed"
check empty-file 3 '0 judged' quorin-scanner explain /dev/null
check wrong-words 2 'not expected: --foo 1' quorin-scanner push --foo 1
check scanner-version 0 "quorin-scanner $version" quorin-scanner --version
check host-version 0 "library $version ($build/" quorin-host --version --library "$build/${files[2]}"
check missing-library 3 "ßo'; --library says where" quorin-host --library "nichts/ßo"
[[ -z $suffix ]] || check foreign-letters 2 "'日本' has letters" quorin-host --name 日本
check_full full-help 1 quorin-scanner --help
check_full full-version 1 quorin-host --version
check_full full-host 1 quorin-host --for 20

# A host whose name, data and library's folder have letters beyond ASCII.
printf 'Daten' >"$work/Prüfdaten"
named=good
begin "$work/host.out" 'PC name: Büro' "${runner[@]}" "$work/quorin-host$suffix" --name Büro \
  --send-file "$work/Prüfdaten" || named=missing
cp "$work/host.out" "$work/output"
report name-printed "$named"
address=$QUORIN_PRIVATE_ADDRESS
check name-found 0 'PC 1: Büro' quorin-scanner discover --to "$address" --count 1
# Replies to another's requests come to the same port meanwhile.  A loopback address that nobody has
# taken leads to the service.
search_on() {
  echo searching
  while :; do
    printf '\x02\x06\x00\x00\x35\x20\x00\x00\x00\x00\x12\x34\x00\x02en\x00\x00\x00\x14%s\x00\x07%s\x00\x00\x00\x00' \
      service:Quorin-agent default >/dev/udp/127.0.0.5/2968
    sleep 0.2
  done
}
begin "$work/other.out" searching search_on
check anothers-replies 3 'answered another request' \
  quorin-scanner discover --to "$address" --service-type service:printer
end_last
check table-found 0 'StatusOut OK' quorin-scanner push --timeout 30000
check saved 0 "saved in $work/Körbe" quorin-scanner listen --count 1 --save "$work/Körbe"
check_full full-push 1 quorin-scanner push
check_full full-trace 2 quorin-scanner push --trace
check_full full-json 1 quorin-scanner discover --to "$address" --count 1 --json
check full-file 1 "cannot write '/dev/full'" quorin-scanner listen --count 1 --output /dev/full
# Each Wine knows its own processes only.
holder=${suffix:+a program}
check taken-port 4 "TCP port 2968 is held by ${holder:-quorin-host}" quorin-host
if [[ -n $suffix ]]; then # a Windows program has no signals
  [[ $failed -eq 0 ]]
  exit
fi
check report 0 'The report is in' quorin-scanner doctor --local --report "$work/ticket.txt"
cp "$work/ticket.txt" "$work/output"
for text in "$work/libZVQRN.so" 'UDP 2968: quorin-host' 'via 10.68.0.1' 'entPort=2968'; do
  if grep -qF -- "$text" "$work/ticket.txt"; then continue; fi
  report report-text "it lacks '$text'"
done
kill -HUP "${background[-1]}"
host_code=0
wait "${background[-1]}" || host_code=$?
unset 'background[-1]'
cp "$work/host.out" "$work/output"
if [[ $host_code -eq 0 ]] && grep -q 'The service has ended' "$work/output"; then
  report hang-up good
else
  report hang-up "exit code $host_code"
fi

asked=good
/usr/bin/python3 "$here/check_ask.py" "$work/quorin-host" "$work/quorin-scanner" \
  "$here/../docs/ask.schema.json" "$address" >"$work/output" 2>&1 || asked='it said otherwise'
report ask "$asked"
check ask-alone 2 'leaves answers' quorin-host --ask --answer OK

# What bash completes is read from --help.
if [[ -z $suffix ]]; then
  completion=good
  "$here/check_completion.sh" "$work" >"$work/output" 2>&1 || completion='something is completed to the wrong words'
  report completion "$completion"
fi

# Doctor watches until the host is there.
begin "$work/watch.out" 'does not answer' "$work/quorin-scanner" doctor --local --watch --timeout 500
watcher=${background[-1]}
begin "$work/host.out" 'The service' "$work/quorin-host"
watch_code=0
wait "$watcher" || watch_code=$?
cp "$work/watch.out" "$work/output"
if [[ $watch_code -eq 0 ]] && grep -q '^now  *ok  *request' "$work/watch.out"; then
  report watch good
else
  report watch "exit code $watch_code, or no change told of"
fi
[[ $failed -eq 0 ]]
