#!/usr/bin/env bash
# Sets up what is wrong in each row of the table in docs/network.md, "From the symptom", each in a
# network of its own, runs the row's command there, and looks for what the row says that it prints.
# Prints a line a row.  Usage: scripts/check_setups.sh BUILD_FOLDER [ROW]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here
[[ -d ${1:-} ]] || {
  printf 'usage: scripts/check_setups.sh BUILD_FOLDER [ROW]\n' >&2
  exit 2
}
build=$(cd "$1" && pwd)
readonly build row=${2:-}
export LC_ALL=C

# Name, command, what it prints; one line a row.
# shellcheck disable=SC2016 # the backticks are the document's
rows() {
  sed -nE '/^## From the symptom/,/^## Ports/s/^\| <a id="([a-z-]+)"><\/a>[^|]*\| `([^`]*)` \| `([^`]*)` \|.*/\1|\2|\3/p' \
    "$here/../docs/network.md"
}

if [[ -z $row ]]; then
  # A row without a state, or a state without a row, proves nothing.
  missing=$(diff <(rows | cut -d'|' -f1 | sort) <(sed -nE 's/^set_up_([a-z_]+)\(\).*/\1/p' "${BASH_SOURCE[0]}" |
    tr _ - | sort)) || { printf 'FAILED  setups-rows: %s\n' "$missing" && exit 1; }
  # They mostly wait.
  rows | cut -d'|' -f1 | xargs -P 4 -I '{}' bash "${BASH_SOURCE[0]}" "$build" '{}'
  exit
fi
if [[ -z ${QUORIN_PRIVATE_ADDRESS:-} ]]; then
  exec "$here/private_network.sh" --with-scanner unshare --uts bash "${BASH_SOURCE[0]}" "$@"
fi

# shellcheck source=scripts/background.sh
. "$here/background.sh"
readonly pc=$QUORIN_PRIVATE_ADDRESS
mkdir "$work/bin"
cp -L "$build"/{quorin-host,quorin-scanner,libZVQRN.so,libDRAVLIB.so,DRAVLIB.txt} "$work/bin"
PATH=$work/bin:$PATH
cd "$work"

start() {
  begin "$work/started" "$@"
}
start_host() {
  start 'The service' quorin-host --name SETUP "$@"
}
hold_port() {
  start held python3 -c "
import socket, time
holder = socket.socket(socket.AF_INET, socket.SOCK_$1)
holder.bind(('', 2968))
if socket.SOCK_$1 == socket.SOCK_STREAM: holder.listen()
print('held', flush=True)
time.sleep(600)"
  quorin-host >/dev/null 2>&1 && return 1 || return 0
}
drop() {
  nft list ruleset >/dev/null 2>&1 || {
    printf 'skipped  setups-%s: this system has no nftables\n' "$row"
    exit
  }
  start_host
  nft add table inet rules
  nft 'add chain inet rules arriving { type filter hook input priority 0; policy accept; }'
  # shellcheck disable=SC2086 # the words of a rule
  nft add rule inet rules arriving $1 drop
}

set_up_no_service() { :; }
set_up_no_address() {
  ip address flush dev quorin0
  start_host
}
set_up_no_default_route() {
  ip route delete default
  start_host
}
set_up_wrong_adapter() {
  ip link add other0 type veth peer name other1
  ip address add 10.99.0.2/24 dev other0
  ip link set other0 up
  ip link set other1 up
  ip route replace default via 10.99.0.1
  start_host
}
set_up_port_taken() { hold_port STREAM; }
set_up_udp_taken() { hold_port DGRAM; }
set_up_firewall_udp() { drop 'udp dport 2968'; }
set_up_firewall_tcp() { drop 'tcp dport 2968'; }
set_up_multicast() { drop 'ip daddr 239.255.255.253'; }
set_up_no_utility_library() {
  rm "$work"/bin/libDRAVLIB.so
  start_host
}
set_up_unknown_product() { start_host; }
set_up_filter_refuses() { start_host --ignore-scanners; }
set_up_same_name() {
  start_host
  start there unshare --net bash -c 'echo there && exec sleep 600'
  ip link set quorin1 netns "${background[-1]}"
  local enter=(nsenter --net="/proc/${background[-1]}/ns/net")
  "${enter[@]}" ip link set lo up
  "${enter[@]}" ip address add 10.68.0.9/24 dev quorin1
  "${enter[@]}" ip link set quorin1 up
  "${enter[@]}" ip route add default via 10.68.0.1
  start 'The service' "${enter[@]}" quorin-host --name SETUP
}
set_up_name() {
  start_host
  python3 -c 'import socket; socket.sethostname("")'
}
set_up_busy() {
  start_host
  start 'answer to the start' quorin-scanner listen --to "$pc"
}
set_up_silence() {
  start_host
  printf '%s\n' 'POST /PushScan HTTP/1.0' 'x-uid : 1' 'Content-Length : 1' '' x >lines
  quorin-scanner push --to "$pc" --raw-file lines --timeout 400 --pcap scan.pcap >/dev/null 2>&1 || true
}

line=$(rows | grep "^$row|")
IFS='|' read -r _ command wanted <<<"$line"
verdict=good
"set_up_${row//-/_}" || verdict='it could not be set up'
begun=$(date +%s%N)
read -ra words <<<"$command"
"${words[@]}" --time >output 2>&1 || true
elapsed=$((($(date +%s%N) - begun) / 1000000))
grep -qF -- "$wanted" output || verdict="'$command' does not print '$wanted'"
# Doctor's hint leads to the row.
[[ $command != *doctor* || $verdict != good ]] || grep -qF "network.md#$row" output || verdict="no hint to docs/network.md#$row"
[[ $elapsed -lt 60000 ]] || verdict="it took $elapsed ms"
if [[ $verdict == good ]]; then
  printf 'passed  setups-%s (%d ms)\n' "$row" "$elapsed"
else
  printf 'FAILED  setups-%s: %s\n' "$row" "$verdict"
  sed 's/^/        /' output
  exit 1
fi
