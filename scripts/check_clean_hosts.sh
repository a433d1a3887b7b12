#!/usr/bin/env bash
# Does what each language's page in docs/hosts says, from the package to a whole host, in a clean Debian:
# it has the language (a compiler, Python or Mono) and nothing else of this project's.  After `make
# package`.  Prints a line a page; ends with 0 when all passed.  Only root can make and use such a
# Debian, which is kept outside the repository (QUORIN_HOSTS_ROOT, by default
# /var/cache/zvqrn/debian-hosts).
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top base=${QUORIN_HOSTS_ROOT:-/var/cache/zvqrn/debian-hosts}
# The last two are what the check itself needs.
"$scripts/clean_debian.sh" "$base" \
  gcc,g++,cmake,make,pkg-config,mono-mcs,mono-runtime,python3,python3-venv,unzip,iproute2,procps

work=$(mktemp -d)
trap 'rm -rf --one-file-system -- "$work"' EXIT
cp -a --reflink=auto "$base" "$work/root"
mkdir -p "$work/root/check/build" "$work/root/check/scripts"
cp -R "$top/docs" "$work/root/check/"
cp -R "$top/build/packages" "$work/root/check/build/"
cp "$scripts/check_guides.py" "$work/root/check/scripts/"
# There is no Wine for the steps under Windows: the guides' own check runs them.
# shellcheck disable=SC2016 # for the inner shell
"$scripts/private_network.sh" --with-scanner unshare --mount --pid --fork --kill-child \
  chroot "$work/root" bash -ec 'mount -t proc proc /proc
    unset CI
    export LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin
    cd /check && python3 scripts/check_guides.py docs/hosts/*.md'
