#!/usr/bin/env bash
# Runs a command in a network namespace of its own, with an address that is not loopback, so that
# nothing it sends leaves the machine and the fixed ports are free.
#
#   scripts/private_network.sh COMMAND [ARGUMENT...]
#   scripts/private_network.sh --with-scanner COMMAND [ARGUMENT...]
#   scripts/private_network.sh --available      exit 0 when such a namespace can be made here
#
# As root it makes a network namespace, as an ordinary user a user namespace around it.  Inside,
# QUORIN_PRIVATE_ADDRESS holds the address.  --with-scanner adds a second one to the same adapter,
# QUORIN_SCANNER_ADDRESS, for a scanner that must own its UDP port while the service holds that port
# at every address.
set -euo pipefail

readonly ADDRESS=10.68.0.2
readonly SCANNER_ADDRESS=10.68.0.3
readonly GATEWAY=10.68.0.1

if [[ ${1:-} == --inside ]]; then
  shift
  ip link set lo up
  # Both ends of the pair stay in here.
  ip link add quorin0 type veth peer name quorin1
  ip address add "$ADDRESS/24" dev quorin0
  ip link set quorin0 up
  ip link set quorin1 up
  ip route add default via "$GATEWAY"
  if [[ ${1:-} == --with-scanner ]]; then
    shift
    ip address add "$SCANNER_ADDRESS/24" dev quorin0
    export QUORIN_SCANNER_ADDRESS=$SCANNER_ADDRESS
  fi
  QUORIN_PRIVATE_ADDRESS=$ADDRESS exec "$@"
fi

[[ $# -gt 0 ]] || {
  printf 'usage: scripts/private_network.sh [--with-scanner] COMMAND [ARGUMENT...]\n' >&2
  exit 2
}

if [[ $(id -u) -eq 0 ]]; then
  unshare_options=(--net)
else
  unshare_options=(--user --map-root-user --net)
fi
if [[ $1 == --available ]]; then
  exec unshare "${unshare_options[@]}" bash "${BASH_SOURCE[0]}" --inside true >/dev/null 2>&1
fi
exec unshare "${unshare_options[@]}" bash "${BASH_SOURCE[0]}" --inside "$@"
