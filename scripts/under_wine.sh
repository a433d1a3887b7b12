#!/usr/bin/env bash
# Runs a Windows program under Wine.
# Usage: scripts/under_wine.sh x86|x64 COMMAND [ARGUMENT...]
#
# x86 takes the 32-bit Wine that scripts/wine_root.sh makes, and needs a kernel that runs 32-bit
# programs; x64 takes the machine's own Wine (package wine64) with the prefix that
# scripts/wine64_prefix.sh makes, and runs 64-bit programs only.
#
# The program keeps this shell's network, environment, folder and exit code.  It gets a Wine prefix
# of its own, thrown away at the end, and a PC named QUORIN-PC, whose address is
# QUORIN_PRIVATE_ADDRESS.  The machine is not changed, and whatever is started ends with the program.
# Of the machine's files it sees the current folder only, and with x64 what /usr holds.  Any number
# may run side by side.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here
readonly NAME=quorin-pc

if [[ ${1:-} != --inside ]]; then
  # `folder` holds the prefix, `root` the system's files.
  case ${1:-} in
    x86)
      folder=$(bash "$here/wine_root.sh" --path)
      root=$folder
      maker=wine_root.sh
      ;;
    x64)
      folder=$(bash "$here/wine64_prefix.sh" --path)
      root=
      maker=wine64_prefix.sh
      ;;
    *) set -- ;;
  esac
  [[ $# -ge 2 ]] || {
    printf 'usage: scripts/under_wine.sh x86|x64 COMMAND [ARGUMENT...]\n' >&2
    exit 2
  }
  [[ $2 == --make-prefix || -d $folder/prefix ]] || {
    printf 'There is no Wine prefix at %s; scripts/%s makes it.\n' "$folder" "$maker" >&2
    exit 3
  }
  options=(--mount)
  [[ $(id -u) -eq 0 ]] || options+=(--user --map-root-user)
  exec unshare "${options[@]}" bash "${BASH_SOURCE[0]}" --inside "$root" "$folder" "$@"
fi
root=$2 folder=$3 machine=$4
shift 4

if [[ $machine == x64 ]]; then
  wine=/usr/lib/wine/wine64 server=/usr/lib/wine/wineserver64
  export WINEARCH=win64
else
  wine=/usr/lib/wine/wine server=/usr/lib/wine/wineserver32
  export WINEARCH=win32
fi
export WINEPREFIX=/prefix WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml,winedbg.exe=} HOME=/tmp/home USER=quorin
unset DISPLAY
if [[ $1 == --make-prefix ]]; then
  prefix=$folder/prefix.new
  # The first command makes it, the second waits until all of it is written.
  set -- bash -c "$wine wineboot --init && $server --wait"
  network=(--unshare-net)
else
  # A layer of this run's own over the prefix, in memory.  This mount namespace keeps it.
  mount -t tmpfs tmpfs "$folder/mnt"
  mkdir "$folder/mnt"/{layer,work,prefix}
  mount -t overlay overlay \
    -o "lowerdir=$folder/prefix,upperdir=$folder/mnt/layer,workdir=$folder/mnt/work" \
    "$folder/mnt/prefix"
  prefix=$folder/mnt/prefix
  set -- "$wine" "$@"
  network=()
fi

# Of /etc there is only what Wine looks up; names are looked up nowhere else.
hosts="127.0.0.1 localhost
${QUORIN_PRIVATE_ADDRESS:-127.0.0.1} $NAME"
exec bwrap --unshare-pid --unshare-uts --hostname "$NAME" "${network[@]}" --die-with-parent \
  --ro-bind "$root/usr" /usr --symlink usr/bin /bin --symlink usr/lib /lib --symlink usr/lib64 /lib64 \
  --ro-bind "$root/etc/passwd" /etc/passwd --ro-bind-try "$root/etc/fonts" /etc/fonts \
  --ro-bind-data 8 /etc/nsswitch.conf --ro-bind-data 9 /etc/hosts \
  --proc /proc --dev /dev --tmpfs /tmp --dir "$HOME" \
  --bind "$prefix" "$WINEPREFIX" --bind "$PWD" "$PWD" --chdir "$PWD" \
  "$@" 8< <(printf 'passwd: files\nhosts: files\n') 9< <(printf '%s\n' "$hosts")
