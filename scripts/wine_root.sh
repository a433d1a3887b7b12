#!/usr/bin/env bash
# Makes sure of a 32-bit Wine in a small Debian of its own (about 1.7 GB), which scripts/under_wine.sh
# uses.  It is made once, outside the repository, from where apt gets this machine's packages.
#
#   scripts/wine_root.sh           make it unless it is there; exit 3 when it cannot be had here
#   scripts/wine_root.sh --path    print where it is, or would be
#
# QUORIN_WINE_ROOT names another place.  A Wine prefix made by this Wine lies in it as /prefix.
set -euo pipefail

readonly CANNOT_BE_HAD=3
readonly WINE=usr/lib/wine/wine

root=${QUORIN_WINE_ROOT:-}
if [[ -z $root ]]; then
  root=/var/cache/zvqrn/wine-root
  # Who cannot write there uses what root has made, or a place of his own.
  if [[ ! -x $root/$WINE && ! -w /var/cache ]]; then
    root=${XDG_CACHE_HOME:-$HOME/.cache}/zvqrn/wine-root
  fi
fi
if [[ ${1:-} == --path ]]; then
  printf '%s\n' "$root"
  exit 0
fi
if [[ -x $root/$WINE && -d $root/prefix ]]; then
  exit 0
fi

cannot() {
  printf 'No Wine at %s: %s\n' "$root" "$1" >&2
  exit "$CANNOT_BE_HAD"
}
as_root=()
if [[ $(id -u) -ne 0 ]]; then
  sudo --non-interactive true 2>/dev/null || cannot 'only root (or sudo) can make it'
  as_root=(sudo)
fi
for tool in debootstrap bwrap flock; do
  PATH=$PATH:/usr/sbin:/sbin command -v "$tool" >/dev/null ||
    cannot "$tool is missing (scripts/install_packages.sh test)"
done

mkdir -p "$(dirname "$root")"
exec {lock}>"$root.lock"
flock "$lock"
new=$root.new

# Both halves are made beside their places and then renamed, so that a half-made one is never used.
if [[ ! -x $root/$WINE ]]; then
  # shellcheck source=/dev/null
  codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
  mirror=$(apt-get indextargets --format "\$(RELEASE) \$(COMPONENT) \$(SITE)" 'Created-By: Packages' |
    awk -v name="$codename" '$1 == name && $2 == "main" { print $3; exit }')
  [[ -n $mirror ]] || cannot 'apt names no mirror of this distribution'
  printf 'Making a 32-bit Wine in %s (about a minute) ...\n' "$root"
  "${as_root[@]}" rm -rf -- "$new"
  log=$(mktemp)
  if ! "${as_root[@]}" env PATH="$PATH:/usr/sbin:/sbin" debootstrap --arch=i386 --variant=minbase \
    --include=wine32,wine "$codename" "$new" "$mirror" >"$log" 2>&1; then
    tail -n 5 "$log" >&2
    rm -f -- "$log"
    cannot 'debootstrap failed (it needs the network)'
  fi
  rm -f -- "$log"
  "${as_root[@]}" rm -rf -- "$new/var/cache/apt/archives" "$root"
  "${as_root[@]}" mv -- "$new" "$root"
fi

if [[ ! -d $root/prefix ]]; then
  "${as_root[@]}" rm -rf -- "$root/prefix.new"
  "${as_root[@]}" mkdir "$root/prefix.new"
  "${as_root[@]}" env QUORIN_WINE_ROOT="$root" bash "$(dirname "${BASH_SOURCE[0]}")/under_wine.sh" x86 \
    --make-prefix || cannot 'Wine cannot make its prefix'
  "${as_root[@]}" mv -- "$root/prefix.new" "$root/prefix"
fi
