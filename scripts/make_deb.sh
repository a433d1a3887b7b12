#!/usr/bin/env bash
# Makes the Debian packages: libzvqrn0.1, libzvqrn-dev, quorin-tools, quorin-stand-in, and one with the
# debug symbols of each.  They are built of these sources, beside the other builds; the same sources
# give the same bytes.  lintian looks at them; an error of its ends this.
# Usage: scripts/make_deb.sh [FOLDER], by default build/packages
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

out=${1:-$PWD/build/packages}
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || printf 0)}
export SOURCE_DATE_EPOCH
export LC_ALL=C.UTF-8 TZ=UTC
readonly out version work=$PWD/build/debian

rm -rf -- "$work"
mkdir -p "$work/zvqrn" "$out"
cp -R CMakeLists.txt CHANGELOG.md cmake docs examples include packaging scripts src tools "$work/zvqrn"
cd "$work/zvqrn"
mv packaging/debian debian
# What the check of the documents reads in them.
sed -i '/^<!-- try: .* -->$/d' docs/*.md docs/hosts/*.md
printf 'zvqrn (%s) unstable; urgency=medium\n\n  * The changes are in CHANGELOG.md.\n\n -- %s  %s\n' \
  "$version" "$(sed -n 's/^Maintainer: //p' debian/control)" "$(date -R --date "@$SOURCE_DATE_EPOCH")" \
  >debian/changelog
if ! dpkg-buildpackage --build=binary --no-sign >"$work/log" 2>&1; then
  tail -n 60 "$work/log" >&2
  exit 1
fi
cd ..
lintian --fail-on error,warning --tag-display-limit 0 ./*.changes
rm -f -- "$out"/libzvqrn*.deb "$out"/quorin-*.deb
mv -- *.deb "$out/"
(cd "$out" && sha256sum -- *.deb)
