#!/usr/bin/env bash
# Makes sure of a 32-bit Wine in a small Debian of its own, which scripts/under_wine.sh uses.  It is
# made once, outside the repository, from where apt gets this machine's packages.  Nothing of it runs
# while it is made but the Wine that makes its prefix; so the rest can be made on machines that run no
# 32-bit programs, for scripts/emulated_pc.sh.
#
#   scripts/wine_root.sh                    make it unless it is there; exit 3 when it cannot be had
#   scripts/wine_root.sh --without-prefix   the same, but for the prefix
#   scripts/wine_root.sh --path             print where it is, or would be
#
# QUORIN_WINE_ROOT names another place.  A Wine prefix made by this Wine lies in it as /prefix.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
readonly here

readonly CANNOT_BE_HAD=3
readonly WINE=usr/lib/wine/wine
# Beside Wine, what the scripts use that run it in the emulated PC.
readonly PACKAGES=wine32,wine,bubblewrap,iproute2

# Unpacks the packages of a folder as a Debian: unpack PACKAGES ROOT.
unpack() {
  local packages=$1 new=$2 folder package dll
  mkdir -p "$new"/usr/{bin,sbin,lib} "$new/mnt"
  for folder in bin sbin lib; do
    ln -s "usr/$folder" "$new/$folder"
  done
  for package in "$packages"/*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$new"
  done
  # What the packages would have made themselves, as far as Wine needs it.
  cp "$new/usr/share/base-passwd/passwd.master" "$new/etc/passwd"
  for dll in "$new"/usr/i686-w64-mingw32/lib/zlib*.dll; do
    { head -c 64 "$dll"; printf 'Wine builtin DLL'; head -c 16 /dev/zero; tail -c +97 "$dll"; } \
      >"$new/usr/lib/i386-linux-gnu/wine/i386-windows/${dll##*/}"
  done
}
if [[ ${1:-} == --unpack ]]; then
  unpack "$2" "$3"
  exit 0
fi

root=${QUORIN_WINE_ROOT:-}
if [[ -z $root ]]; then
  root=/var/cache/zvqrn/wine32
  # Who cannot write there uses what root has made, or a place of his own.
  if [[ ! -x $root/$WINE && ! -w /var/cache ]]; then
    root=${XDG_CACHE_HOME:-$HOME/.cache}/zvqrn/wine32
  fi
fi
case ${1:-} in
  --path)
    printf '%s\n' "$root"
    exit 0
    ;;
  --without-prefix) made=$root/$WINE ;;
  '') made=$root/prefix/system.reg ;;
  *)
    printf 'usage: scripts/wine_root.sh [--without-prefix | --path]\n' >&2
    exit 2
    ;;
esac
[[ ! -e $made ]] || exit 0

cannot() {
  printf 'No 32-bit Wine at %s: %s\n' "$root" "$1" >&2
  exit "$CANNOT_BE_HAD"
}
# Before anything is fetched for it.
if [[ -z ${1:-} ]]; then
  found=$("$here/probe_32bit.sh") || cannot "$found"
fi
as_root=()
if [[ $(id -u) -ne 0 ]]; then
  sudo --non-interactive true 2>/dev/null || cannot 'only root (or sudo) can make it'
  as_root=(sudo)
fi

mkdir -p "$(dirname "$root")"
exec {lock}>"$root.lock"
flock "$lock"
new=$root.new
log=$(mktemp)
trap 'rm -f -- "$log"' EXIT

# Both halves are made beside their places and then renamed, so that a half-made one is never used.
if [[ ! -x $root/$WINE ]]; then
  PATH=$PATH:/usr/sbin:/sbin command -v debootstrap >/dev/null ||
    cannot 'debootstrap is missing (scripts/install_packages.sh test)'
  # shellcheck source=/dev/null
  codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
  mirror=$(apt-get indextargets --format "\$(RELEASE) \$(COMPONENT) \$(SITE)" 'Created-By: Packages' |
    awk -v name="$codename" '$1 == name && $2 == "main" { print $3; exit }')
  [[ -n $mirror ]] || cannot 'apt names no mirror of this distribution'
  printf 'Making a 32-bit Wine in %s (a minute or two) ...\n' "$root"
  "${as_root[@]}" rm -rf -- "$new" "$new.packages"
  if ! "${as_root[@]}" env PATH="$PATH:/usr/sbin:/sbin" debootstrap --arch=i386 --variant=minbase \
    --include="$PACKAGES" --download-only "$codename" "$new.packages" "$mirror" >"$log" 2>&1; then
    cat "$log" >&2
    reason=$(grep '^E: ' "$log" | tail -n 1) || true
    cannot "debootstrap could not fetch the packages from $mirror${reason:+ (${reason#E: })}"
  fi
  "${as_root[@]}" bash "$here/wine_root.sh" --unpack "$new.packages/var/cache/apt/archives" "$new" \
    >"$log" 2>&1 || { cat "$log" >&2; cannot 'a package could not be unpacked'; }
  "${as_root[@]}" rm -rf -- "$new.packages" "$root"
  "${as_root[@]}" mv -- "$new" "$root"
fi

if [[ ! -e $made ]]; then
  # Wine ends well also when it has made half of it, as its own limits of time make it do on a machine
  # that is very busy.
  whole() {
    [[ -e $root/prefix.new/drive_c/windows/system32/msvcrt.dll ]] &&
      grep -q '^\[.*Protocol_Catalog9' "$root/prefix.new/system.reg"
  }
  for ((attempt = 0; attempt < 3; ++attempt)); do
    "${as_root[@]}" rm -rf -- "$root/prefix.new" "$root/prefix"
    "${as_root[@]}" mkdir "$root/prefix.new"
    "${as_root[@]}" env QUORIN_WINE_ROOT="$root" bash "$here/under_wine.sh" x86 \
      --make-prefix >"$log" 2>&1 || true
    if whole; then
      break
    fi
  done
  whole || { cat "$log" >&2; cannot 'Wine could not make its prefix'; }
  # Without the services that no test uses, Wine starts twice as fast.
  "${as_root[@]}" sed -i -E '/\\\\Services\\\\(Eventlog|MountMgr|NDIS|PlugPlay)\]/,/^$/ {
    s/^("Start"=dword:0000000)2/\14/
  }' "$root/prefix.new/system.reg"
  "${as_root[@]}" mv -- "$root/prefix.new" "$root/prefix"
fi
