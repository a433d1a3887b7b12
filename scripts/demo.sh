#!/usr/bin/env bash
# Shows the library at work: starts the demo host, plays a scanner that finds it and sends to it, and
# checks what both sides saw.  Usage: scripts/demo.sh BUILD_FOLDER (for example build/release)
#
# It runs in a network namespace of its own where the system lets it make one, so that no packet
# leaves the machine.  Where none can be made it does nothing unless QUORIN_DEMO_ON_MACHINE=1 allows
# it to run on this machine's own address, without the discovery: the service joins its multicast
# group, and the network hears of that.  Ends with 0 only if every step went as it should.
set -euo pipefail

readonly HOST_LIFE_SECONDS=120 # so that no host is left behind, whatever happens to this script
private_network=$(dirname "${BASH_SOURCE[0]}")/private_network.sh
readonly private_network

fail_early() {
  printf 'demo: %s\n' "$1" >&2
  exit "${2:-1}"
}

[[ $# -eq 1 && -n $1 ]] || fail_early "usage: scripts/demo.sh BUILD_FOLDER" 2
[[ -d $1 ]] || fail_early "there is no folder '$1'; build first" 2
build=$(cd "$1" && pwd)
for file in quorin-host quorin-scanner libZVQRN.so libDRAVLIB.so DRAVLIB.txt; do
  [[ -e $build/$file ]] || fail_early "$build/$file is missing; build first" 2
done

if [[ -z ${QUORIN_PRIVATE_ADDRESS:-} ]] && "$private_network" --available; then
  exec "$private_network" --with-scanner bash "${BASH_SOURCE[0]}" "$build"
fi

# The service does not start on a PC that has only its loopback address.
if [[ -n ${QUORIN_PRIVATE_ADDRESS:-} ]]; then
  address=$QUORIN_PRIVATE_ADDRESS
  printf 'Runs in a network namespace of its own, at address %s.\n' "$address"
else
  [[ ${QUORIN_DEMO_ON_MACHINE:-} == 1 ]] || fail_early \
    "no network namespace can be made here (it takes root, or user namespaces), and without one the
demo would send a multicast group report into the network around this machine.  Nothing was run.
QUORIN_DEMO_ON_MACHINE=1 allows that: everything but the discovery then runs on this machine."
  address=$(hostname -I | tr ' ' '\n' | grep -m1 -E '^[0-9]+(\.[0-9]+){3}$' || true)
  [[ -n $address ]] || fail_early "this machine has no IPv4 address beside loopback"
  printf 'No network namespace can be made here: runs on this machine, at its address %s.\n' \
    "$address"
fi
port=2968

work=$(mktemp -d)
host_pid=
clean_up() {
  if [[ -n $host_pid ]]; then
    kill "$host_pid" 2>/dev/null || true
    wait "$host_pid" 2>/dev/null || true
  fi
  rm -rf -- "$work"
}
trap clean_up EXIT
trap 'exit 1' INT TERM

readonly host_record=$work/host.jsonl
# What the host has printed, without the times.
recorded() {
  sed 's/,"at":"[^"]*"}$/}/' "$host_record"
}
readonly host_errors=$work/host.errors
shown_lines=0
steps=0
failed_steps=0
step_failed=no

# Prints what the host has recorded since the last call.
show_host() {
  local total
  total=$(wc -l <"$host_record")
  recorded | awk -v from="$shown_lines" -v to="$total" 'NR > from && NR <= to' |
    sed -E 's/^\{"event":"([a-z]+)",/\1: /; s/\}$//; s/,"([A-Za-z]+)":/, \1=/g; s/"([A-Za-z]+)":/\1=/' |
    fold -s -w 88 | sed 's/^/  host    | /'
  shown_lines=$total
}

begin_step() {
  steps=$((steps + 1))
  step_failed=no
  printf '\nStep %d: %s\n' "$steps" "$1"
}

note_failure() {
  step_failed=yes
  printf '  NOT AS IT SHOULD BE: %s\n' "$1"
}

end_step() {
  show_host
  if [[ $step_failed == no ]]; then
    printf '  verdict | as it should be\n'
  else
    failed_steps=$((failed_steps + 1))
    printf '  verdict | FAILED\n'
  fi
}

# Runs the scanner (first argument: the exit code that it must give) and prints its account.
run_scanner() {
  local wanted=$1 code=0
  shift
  printf '  command | quorin-scanner %s\n' "$*"
  "$build/quorin-scanner" "$@" >"$work/scanner.out" 2>&1 || code=$?
  sed 's/^/  scanner | /' "$work/scanner.out"
  printf '  scanner | exit code %d\n' "$code"
  [[ $code -eq $wanted ]] || note_failure "the scanner's exit code is $code, not $wanted"
}

# Sends to the address and port that the discovery has found.
scanner() {
  local wanted=$1
  shift
  # The service takes a moment to see that the scanner before this one has gone.
  sleep 0.6
  run_scanner "$wanted" "$@" --to "$address" --port "$port"
}

# The value of a member of the object that tells of the one PC; texts without their quotes.
learnt() {
  sed -nE "s/^\{\"event\":\"pc\",.*\"$1\":\"?([^\",}]*)[\",}].*/\1/p" "$work/scanner.out"
}

expect_learnt() {
  [[ $(learnt "$1") == "$2" ]] || note_failure "the scanner learnt '$(learnt "$1")' as $1, not '$2'"
}

expect_scanner_saw() {
  grep -qF -- "$1" "$work/scanner.out" || note_failure "the scanner did not print '$1'"
}

# Waits until the host's record holds this whole line.
expect_host_line() {
  local tries
  for ((tries = 0; tries < 50; tries++)); do
    if [[ $(recorded) == *"$1"* ]]; then
      return
    fi
    sleep 0.1
  done
  note_failure "the host's record lacks the line $1"
}

count_requests() {
  grep -c '^{"event":"request",' "$host_record" || true
}

expect_request_count() {
  local count
  count=$(count_requests)
  [[ $count -eq $1 ]] || note_failure "the host got $count requests, not $1"
}

expect_same_bytes() {
  if cmp -s -- "$1" "$2"; then
    printf '  check   | %s: the %d bytes that the host sent\n' "${2##*/}" "$(wc -c <"$2")"
  else
    note_failure "${2##*/} is not what the host sent"
  fi
}

# Every byte value forty times: nothing may be lost, changed or taken for a line end.
make_data() {
  local byte round
  for ((byte = 0; byte < 256; byte++)); do
    # shellcheck disable=SC2059 # the escape is made for this one byte
    printf "\\x$(printf %02x "$byte")"
  done >"$work/all-bytes"
  for ((round = 0; round < 40; round++)); do
    cat "$work/all-bytes"
  done >"$work/sent-1"
  printf 'The PC is ready.' >"$work/sent-2"
}

: >"$host_record"
begin_step "the host loads the library and starts the service"
make_data
printf '  command | quorin-host --json --name DEMO-PC --answer-for "Quorin XD-7500 Duplex=BUSY" ...\n'
"$build/quorin-host" --json --name DEMO-PC --for "$HOST_LIFE_SECONDS" \
  --answer-for "Quorin XD-7500 Duplex=BUSY" \
  --send-file "$work/sent-1" --send "$(cat "$work/sent-2")" \
  >"$host_record" 2>"$host_errors" &
host_pid=$!
expect_host_line '{"event":"started","pcName":"DEMO-PC","waiting":false}'
end_step
if [[ $step_failed == yes ]]; then
  sed 's/^/  host    | /' "$host_errors"
  exit 1
fi

if [[ -n ${QUORIN_PRIVATE_ADDRESS:-} ]]; then
  scanner_address=${QUORIN_SCANNER_ADDRESS:-$QUORIN_PRIVATE_ADDRESS}
  begin_step "the scanner, at $scanner_address, finds the PC by multicast"
  run_scanner 0 discover --from "$scanner_address" --json
  found=$(grep -c '^{"event":"pc",' "$work/scanner.out" || true)
  [[ $found -eq 1 ]] || note_failure "the scanner found $found PCs, not 1"
  expect_learnt name DEMO-PC
  expect_learnt address "$address"
  expect_learnt from "$address"
  expect_learnt eventPort 2968
  expect_learnt datagrams 3
  expect_learnt notes '[]'
  # What follows goes where the scanner has learnt to send it.
  address=$(learnt address)
  port=$(learnt eventPort)
  end_step
  if [[ $step_failed == yes ]]; then
    sed 's/^/  host    | /' "$host_errors"
    exit 1
  fi

  begin_step "a scanner that the PC has already answered gets no second reply"
  run_scanner 3 discover --from "$scanner_address" --previous "192.0.2.7,$address" \
    --timeout 800
  expect_scanner_saw 'no PC answered'
  end_step
else
  printf '\nLeft out: the discovery.  Its multicast would leave this machine; where a network\n'
  printf 'namespace can be made, the demo shows it there.  (The service has joined the group all the\n'
  printf 'same, of which the network around this machine hears.)\n'
fi

begin_step "a version 1 request, with scan settings"
scanner 0 push --uid demo-1 --image-format TIFF --color Monochrome --load-paper Double \
  --paper-type B5_Landscape --paper-width 2570 --paper-height 1820 --scan-x 15 --scan-y 999999999
expect_scanner_saw 'x-status  0001'
expect_scanner_saw 'StatusOut OK'
expect_scanner_saw 'uid       demo-1, protocol version 1.00'
expect_host_line '{"event":"request","number":1,"exchange":"single","uid":"demo-1","protocolVersion":"1.00","kind":1,"size":136,"driverName":"Quorin XS-200","ipAddress":"192.0.2.10","imageFormat":"TIFF","colorType":"Monochrome","loadPaper":"Double","paperType":"B5_Landscape","paperWidth":2570,"paperHeight":1820,"scanX":15,"scanY":999999999}'
expect_host_line '{"event":"answer","number":1,"uid":"demo-1","code":1,"word":"OK"}'
end_step

begin_step "a version 2 request, with a push-scan ID"
scanner 0 push --protocol 2 --uid demo-2 --product XS-300 --ip 192.0.2.11 --id 3
expect_scanner_saw 'x-status  0001'
expect_scanner_saw 'StatusOut OK'
expect_scanner_saw 'uid       demo-2, protocol version 2.00'
expect_host_line '{"event":"request","number":2,"exchange":"single","uid":"demo-2","protocolVersion":"2.00","kind":3,"size":104,"productName":"XS-300","driverName":"Quorin XS-300","ipAddress":"192.0.2.11","pushScanId":3}'
expect_host_line '{"event":"answer","number":2,"uid":"demo-2","code":1,"word":"OK"}'
end_step

begin_step "a START, two pieces of data from the host, the END"
scanner 0 listen --protocol 2 --uid demo-3 --id 1 --count 2 --for 10 --save "$work/received"
expect_scanner_saw 'subevent START'
expect_scanner_saw 'subevent END, parent uid demo-3'
expect_same_bytes "$work/sent-1" "$work/received/data-0001.bin"
expect_same_bytes "$work/sent-2" "$work/received/data-0002.bin"
expect_host_line '{"event":"request","number":3,"exchange":"start","uid":"demo-3","protocolVersion":"2.00","kind":3,"size":104,"productName":"XS-200","driverName":"Quorin XS-200","ipAddress":"192.0.2.10","pushScanId":1}'
sends=$(grep -cE '^\{"event":"send","number":3,"uid":"demo-3",.*"result":1,"at"' "$host_record" || true)
[[ $sends -eq 2 ]] || note_failure "the library took $sends pieces of data, not 2"
ends=$(grep -c '^{"event":"request","number":4,"exchange":"end",' "$host_record" || true)
[[ $ends -eq 1 ]] || note_failure "the host did not get the END"
end_step

begin_step "a request that the host declines as busy"
scanner 4 push --uid demo-5 --product xd-7500
expect_scanner_saw 'x-status  2001 (busy'
expect_host_line '{"event":"answer","number":5,"uid":"demo-5","code":9,"word":"BUSY"}'
expect_request_count 5
end_step

begin_step "a request of a protocol version that does not exist"
scanner 4 push --uid demo-6 --version-text 3.00
expect_scanner_saw 'x-status  1001'
expect_scanner_saw 'uid       demo-6, protocol version 1.00'
expect_request_count 5
end_step

begin_step "a request whose body is no document"
printf 'This is no document.' >"$work/no-document"
scanner 4 push --uid demo-7 --body-file "$work/no-document"
expect_scanner_saw 'x-status  2003'
expect_scanner_saw 'uid       demo-7, protocol version 1.00'
expect_request_count 5
end_step

begin_step "the host stops the service and ends"
kill -TERM "$host_pid"
host_code=0
wait "$host_pid" || host_code=$?
host_pid=
[[ $host_code -eq 0 ]] || note_failure "the host's exit code is $host_code, not 0"
expect_host_line '{"event":"stopped","result":1,"requests":5}'
if [[ -s $host_errors ]]; then
  note_failure "the host complained: $(cat "$host_errors")"
fi
end_step

printf '\n%d of %d steps went as they should.\n' "$((steps - failed_steps))" "$steps"
printf '\nTo look at it: start %s/quorin-host and, beside it,\n  %s/quorin-scanner panel --open\n' "$1" "$1"
[[ $failed_steps -eq 0 ]]
