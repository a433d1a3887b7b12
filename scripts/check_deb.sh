#!/usr/bin/env bash
# Checks the Debian packages as their users get them, after `make deb`, in a copy of a clean Debian:
# installed by apt, used by a host in C that pkg-config helps to compile and that serves a request,
# purged again without a trace.  Prints a line a case; ends with 0 when all passed.
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

install_packages() {
  everything >/tmp/before
  apt-get install -y /packages/*[!m]_*.deb # all but the debug symbols
  ldconfig -p | grep -F 'libZVQRN.so.0.1 '
}

manual_pages() {
  local page
  for page in "${FUNCTIONS[@]}" libzvqrn quorin-host quorin-scanner; do
    man "$page" | grep -A1 '^NAME' | grep -F "$page"
  done
  man quorin-scanner push | grep -F -e --protocol
  apropos PC | grep -F 'QRNSetPCName (3)'
}

# Serves until it has been told so often to end; the scanner's exit code counts.
serves() {
  local host i
  "$@" &
  host=$!
  for ((i = 0; i < 200; ++i)); do
    grep -qE '^ *[0-9]+: [0-9A-F]{8}:0B98 00000000:0000 0A' /proc/net/tcp && break
    kill -0 "$host"
    sleep 0.1
  done
  quorin-scanner push --pair --hold 100 --protocol 2
  wait "$host"
}

# What the page for C says, and no more.
host_in_c() {
  local flags
  mkdir -p /tmp/host
  cd /tmp/host
  read -ra flags < <(pkg-config --cflags --libs zvqrn)
  gcc -Wall -Wextra -Werror /usr/share/doc/libzvqrn-dev/examples/c/first_host.c "${flags[@]}" -o host
  # It says which version of the interface it was linked to.
  objdump -T host | grep -E 'ZVQRN_0\.1\)? +QRNStartService'
  serves ./host 1 8 | tee printed
  grep -F 'START, driver "Quorin XS-200"' printed
  grep -F 'END, driver' printed
}

tools() {
  quorin-host --version | grep -E '^library [0-9.]+ \(/usr/.*libZVQRN\.so\.0\.1\)'
  serves quorin-host --requests 2
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
  /tmp/host/host 1 1
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
  check install install_packages
  check manual-pages manual_pages
  check host-in-c host_in_c
  check tools tools
  check completion completion
  check without-headers without_headers
  check purge purge
  [[ $failed -eq 0 ]]
  exit
fi

# ---- Outside ----

base=${QUORIN_DEBIAN_ROOT:-/var/cache/zvqrn/debian}
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$top/CMakeLists.txt")
readonly base version packages=$top/build/packages
[[ $(id -u) -eq 0 ]] || {
  printf 'Only root can make and use a clean Debian.\n' >&2
  exit 1
}
if [[ ! -x $base/usr/bin/gcc ]]; then
  # shellcheck source=/dev/null
  codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
  mirror=$(apt-get indextargets --format "\$(RELEASE) \$(COMPONENT) \$(SITE)" 'Created-By: Packages' |
    awk -v name="$codename" '$1 == name && $2 == "main" { print $3; exit }')
  printf 'Making a clean Debian in %s (a minute or two) ...\n' "$base"
  rm -rf -- "$base.new"
  mkdir -p "${base%/*}"
  PATH=$PATH:/usr/sbin:/sbin debootstrap --variant=minbase \
    --include=gcc,libc6-dev,pkgconf,man-db,bash-completion "$codename" "$base.new" "$mirror" >"$base.log"
  mv -- "$base.new" "$base"
fi

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
cp "$scripts/check_deb.sh" "$work/root/packages/"
"$scripts/private_network.sh" unshare --mount --pid --fork --kill-child \
  chroot "$work/root" /packages/check_deb.sh --inside || failed=1
[[ $failed -eq 0 ]]
