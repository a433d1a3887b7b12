#!/usr/bin/env bash
# Checks the Debian packages as their users get them, after `make deb`, in a copy of a clean Debian:
# what the host guide says, from the installation by apt to the first request; manual pages, tools,
# completion; purged again without a trace.  Prints a line a case; ends with 0 when all passed.
#
# The clean Debian is made once, by debootstrap, outside the repository (QUORIN_DEBIAN_ROOT, by default
# /var/cache/zvqrn/debian); beside the base it has what compiles a program in C, man and bash-completion.
# Only root can make and use it.  Nothing sent in it leaves it.
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top
failed=0

# Runs a function as a case; the first command in it that fails ends it.
check() {
  local name=$1 code
  shift
  set +e
  (set -e; "$@") >"/tmp/deb-case.$$" 2>&1
  code=$?
  set -e
  if [[ $code -eq 0 ]]; then
    printf 'passed  deb-%s\n' "$name"
  else
    failed=$((failed + 1))
    printf 'FAILED  deb-%s\n' "$name"
    tail -n 40 "/tmp/deb-case.$$"
  fi
  rm -f -- "/tmp/deb-case.$$"
}

# ---- In the clean Debian ----

readonly FUNCTIONS=(QRNStartService QRNStopService QRNSendData QRNGetPCName QRNSetPCName)

everything() {
  find / -xdev \( -path /proc -o -path /tmp -o -path /packages -o -path /var/cache -o -path /var/log \
    -o -path /var/lib/dpkg -o -path /var/lib/apt \) -prune -o -print | sort
}

# What the host guide says, with the host of C's page; a line a command.
guide() {
  awk '/^<!-- try: elsewhere: scripts\/check_deb.sh/ { on = 1 } /^[^ ]/ { if (on > 1) on = 0 }
    on && /^    / { on = 2; print substr($0, 5) }' /packages/host-guide.md
}

from_nothing() {
  local begin commands host
  everything >/tmp/before
  begin=$(date +%s%N)
  cd /packages
  awk '/^```/ { on = 0 } on; /^```c$/ && !past { on = past = 1 }' c.md >first_host.c
  mapfile -t commands < <(guide)
  [[ ${#commands[@]} -eq 4 ]]
  bash -ec "${commands[0]}" <<<Y # which apt asks for
  bash -ec "${commands[1]}"
  mkfifo keys
  exec 3<>keys
  bash -ec "exec ${commands[2]}" <keys >printed &
  host=$!
  wait_for_port "$host"
  bash -ec "${commands[3]}"
  printf '%d commands, first request after %d ms\n' 4 $((($(date +%s%N) - begin) / 1000000)) >/tmp/time
  sleep 0.6 # the service takes a moment to see that the scanner before has gone
  quorin-scanner push --pair --hold 100 --protocol 2 | grep -x ' *ready'
  echo >&3
  wait "$host"
  grep -cF 'driver Quorin XS-200' printed | grep -x 3
  ldconfig -p | grep -F 'libZVQRN.so.0.1 '
  # It says which version of the interface it was linked to.
  objdump -T first_host | grep -E 'ZVQRN_0\.1\)? +QRNStartService'
}

manual_pages() {
  local page
  for page in "${FUNCTIONS[@]}" libzvqrn quorin-host quorin-scanner; do
    man "$page" | grep -A1 '^NAME' | grep -F "$page"
  done
  man quorin-scanner push | grep -F -e --protocol
  apropos PC | grep -F 'QRNSetPCName (3)'
}

# Until a program that has been started serves at TCP port 2968.
wait_for_port() {
  local i
  for ((i = 0; i < 1000; ++i)); do
    ! grep -qE '^ *[0-9]+: [0-9A-F]{8}:0B98 00000000:0000 0A' /proc/net/tcp || return 0
    kill -0 "$1"
    sleep 0.02
  done
  false
}

tools() {
  quorin-host --version | grep -E '^library [0-9.]+ \(/usr/.*libZVQRN\.so\.0\.1\)'
  quorin-host --requests 2 &
  wait_for_port "$!"
  quorin-scanner push --pair --hold 100 --protocol 2
  wait "$!"
}

# Bash finds the completion by the program's name.
completion() {
  # shellcheck disable=SC2016 # for the inner shell
  bash -ec '. /usr/share/bash-completion/bash_completion
    for tool in quorin-host quorin-scanner; do
      _completion_loader $tool || [[ $? -eq 124 ]]
      complete -p $tool | grep -F _quorin
    done'
}

# Without the headers and the tools a host goes on, and an edited table stays.
without_headers() {
  printf 'XS-900 = Quorin XS-900\n' >>/etc/quorin/DRAVLIB.txt
  apt-get remove -y libzvqrn-dev quorin-stand-in
  [[ ! -e /usr/include/zvqrn && -e /etc/quorin/DRAVLIB.txt ]]
  echo | /packages/first_host
}

purge() {
  apt-get purge -y libzvqrn0.1 quorin-tools quorin-stand-in
  everything >/tmp/after
  diff /tmp/before /tmp/after
  if ldconfig -p | grep -F ZVQRN; then false; fi
}

if [[ ${1:-} == --inside ]]; then
  mount -t proc proc /proc
  export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin MANWIDTH=90
  check from-nothing from_nothing
  check manual-pages manual_pages
  check tools tools
  check completion completion
  check without-headers without_headers
  check purge purge
  [[ ! -s /tmp/time ]] || cat /tmp/time
  [[ $failed -eq 0 ]]
  exit
fi

# ---- Outside ----

base=${QUORIN_DEBIAN_ROOT:-/var/cache/zvqrn/debian}
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$top/CMakeLists.txt")
readonly base version packages=$top/build/packages
"$scripts/clean_debian.sh" "$base" gcc,libc6-dev,pkg-config,man-db,bash-completion

work=$(mktemp -d)
trap 'rm -rf --one-file-system -- "$work"' EXIT

# Each package's debug symbols know the lines of what it has.
debug_symbols() {
  local library symbols
  for package in libzvqrn0.1 libzvqrn0.1-dbgsym; do
    dpkg-deb -x "$packages/${package}_${version}_$(dpkg --print-architecture).deb" "$work/$package"
  done
  library=$(echo "$work"/libzvqrn0.1/usr/lib/*/libZVQRN.so."$version")
  symbols=$work/libzvqrn0.1-dbgsym/usr/lib/debug/.build-id/$(
    readelf -n "$library" | sed -nE 's|.*Build ID: (..)(.*)|\1/\2.debug|p')
  [[ -s $symbols ]]
  if readelf -S "$library" | grep -F .debug_info; then false; fi
  addr2line -e "$symbols" "0x$(nm -D "$library" | awk '$3 ~ /^QRNSendData@/ { print $1 }')" |
    grep -E 'src/service/exports\.cpp:[0-9]+$'
  "$scripts/check_exports.sh" "$library"
}

check debug-symbols debug_symbols
cp -a --reflink=auto "$base" "$work/root"
mkdir "$work/root/packages"
cp "$packages"/*_"$version"_*.deb "$work/root/packages/"
cp "$scripts/check_deb.sh" "$top/docs/host-guide.md" "$top/docs/hosts/c.md" "$work/root/packages/"
"$scripts/private_network.sh" unshare --mount --pid --fork --kill-child \
  chroot "$work/root" /packages/check_deb.sh --inside || failed=1
[[ $failed -eq 0 ]]
