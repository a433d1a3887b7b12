#!/usr/bin/env bash
# Runs a Windows program under the Wine that scripts/wine_root.sh makes.
# Usage: scripts/under_wine.sh COMMAND [ARGUMENT...]
#
# The program keeps this shell's network, environment, folder and exit code.  It gets a Wine prefix
# of its own, thrown away at the end, and a PC named QUORIN-PC, whose address is
# QUORIN_PRIVATE_ADDRESS.  The machine is not changed, and whatever is started ends with the program.
# Of the machine's files it sees the current folder only.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here
readonly NAME=quorin-pc

[[ $# -gt 0 ]] || {
  printf 'usage: scripts/under_wine.sh COMMAND [ARGUMENT...]\n' >&2
  exit 2
}
if [[ $1 != --inside ]]; then
  root=$(bash "$here/wine_root.sh" --path)
  [[ $1 == --make-prefix || -d $root/prefix ]] || {
    printf 'There is no Wine at %s; scripts/wine_root.sh makes it.\n' "$root" >&2
    exit 3
  }
  options=(--mount)
  [[ $(id -u) -eq 0 ]] || options+=(--user --map-root-user)
  exec unshare "${options[@]}" bash "${BASH_SOURCE[0]}" --inside "$root" "$@"
fi
root=$2
shift 2

export WINEPREFIX=/prefix WINEARCH=win32 WINEDEBUG=${WINEDEBUG:--all}
export WINEDLLOVERRIDES=${WINEDLLOVERRIDES:-mscoree,mshtml=} HOME=/tmp/home USER=quorin
unset DISPLAY
if [[ $1 == --make-prefix ]]; then
  prefix=$root/prefix.new
  # The first line makes it, the second waits until all of it is written.
  set -- bash -c '/usr/lib/wine/wine wineboot --init && /usr/lib/wine/wineserver32 --wait'
  network=(--unshare-net)
else
  # A layer of this run's own over the prefix, in memory.  This mount namespace keeps it.
  mount -t tmpfs tmpfs "$root/mnt"
  mkdir "$root/mnt"/{layer,work,prefix}
  mount -t overlay overlay \
    -o "lowerdir=$root/prefix,upperdir=$root/mnt/layer,workdir=$root/mnt/work" "$root/mnt/prefix"
  prefix=$root/mnt/prefix
  set -- /usr/lib/wine/wine "$@"
  network=()
fi

# The root's /etc holds only what Wine looks up.
hosts="127.0.0.1 localhost
${QUORIN_PRIVATE_ADDRESS:-127.0.0.1} $NAME"
exec bwrap --unshare-pid --unshare-uts --hostname "$NAME" "${network[@]}" --die-with-parent \
  --ro-bind "$root/usr" /usr --symlink usr/bin /bin --symlink usr/lib /lib \
  --ro-bind "$root/etc/passwd" /etc/passwd --ro-bind "$root/etc/nsswitch.conf" /etc/nsswitch.conf \
  --ro-bind-try "$root/etc/fonts" /etc/fonts --ro-bind-data 9 /etc/hosts --proc /proc --dev /dev --tmpfs /tmp --dir "$HOME" \
  --bind "$prefix" "$WINEPREFIX" --bind "$PWD" "$PWD" --chdir "$PWD" \
  "$@" 9< <(printf '%s\n' "$hosts")
