#!/usr/bin/env bash
# Makes a clean Debian of this machine's release, by debootstrap, unless it is there already.  Only root
# can.
# Usage: scripts/clean_debian.sh FOLDER PACKAGE,...     the packages beside the base
set -euo pipefail

readonly folder=$1 packages=$2
[[ $(id -u) -eq 0 ]] || {
  printf 'Only root can make and use a clean Debian.\n' >&2
  exit 1
}
if [[ -e $folder/.packages && $(<"$folder/.packages") == "$packages" ]]; then
  exit
fi
# shellcheck source=/dev/null
codename=$(. /etc/os-release && printf '%s' "${VERSION_CODENAME:-}")
mirror=$(apt-get indextargets --format "\$(RELEASE) \$(COMPONENT) \$(SITE)" 'Created-By: Packages' |
  awk -v name="$codename" '$1 == name && $2 == "main" { print $3; exit }')
printf 'Making a clean Debian in %s (a minute or two) ...\n' "$folder"
rm -rf -- "$folder" "$folder.new"
mkdir -p "${folder%/*}"
PATH=$PATH:/usr/sbin:/sbin debootstrap --variant=minbase --include="$packages" "$codename" "$folder.new" \
  "$mirror" >"$folder.log"
printf '%s' "$packages" >"$folder.new/.packages"
mv -- "$folder.new" "$folder"
