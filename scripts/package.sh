#!/usr/bin/env bash
# Makes the packages for host programmers, a ZVQRN-VERSION-SYSTEM.zip each for 32-bit and 64-bit
# Windows and a .tar.gz for Linux, a Python wheel of each, and a NuGet package of all, of what the presets windows-x86,
# windows-x64 and release have built, with their checksums.  The same sources give the same bytes:
# files are sorted, belong to nobody, and carry the time of the last commit (SOURCE_DATE_EPOCH).
# Usage: scripts/package.sh [FOLDER], by default build/packages
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

out=${1:-$PWD/build/packages}
readonly out
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' CMakeLists.txt)
readonly version
export SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct 2>/dev/null || printf 0)}
export LC_ALL=C TZ=UTC

work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
mkdir -p "$out"
rm -f -- "$out/zvqrn-$version-"*.whl "$out"/*.nupkg

# Installs a preset into a folder named like the package, with all that every package holds.
# Arguments: preset, system, README, options of cmake --install.
gather() {
  local preset=$1 readme=$3
  root=$work/ZVQRN-$version-$2
  shift 3
  cmake --install "build/$preset" --prefix "$root" "$@" >/dev/null
  cmake --install "build/$preset" --prefix "$root" --component stand-in "$@" >/dev/null
  mkdir -p "$root/docs" "$root/wireshark"
  cp tools/wireshark/zvqrn.lua "$root/wireshark/"
  cp -R examples CHANGELOG.md LICENCE.md "$root/"
  mkdir "$root/docs/hosts"
  cp docs/hosts/*.md "$root/docs/hosts/"
  cp docs/ask.md docs/ask.schema.json docs/host-guide.md docs/network.md docs/protocol.md "$root/docs/"
  sed "s/@VERSION@/$version/g" "packaging/$readme" >"$root/README.md"
  # What scripts/check_guides.py is told about the blocks of code.
  sed -i '/^<!-- try: .* -->$/d' "$root/README.md" "$root"/docs/*.md "$root"/docs/hosts/*.md
}

# The rest of the package in `root`: what it is made of, checksums, one time for all, plain permissions.
finish() {
  python3 packaging/bill_of_materials.py "$root" "$version"
  (cd "$root" && find . -type f -printf '%P\n' | sort | xargs sha256sum) >"$work/sums"
  mv "$work/sums" "$root/SHA256SUMS"
  find "$root" -type f -exec chmod u=rw,go=r {} + -o -type d -exec chmod u=rwx,go=rx {} +
  find "$root" \( -path '*/bin/*' ! -name '*.txt' -o -name '*.so.*.*.*' -o -name '*.py' \) -type f \
    -exec chmod a+x {} +
  find "$root" -exec touch --no-dereference --date "@$SOURCE_DATE_EPOCH" {} +
}

# The Python package with the library of the package in `root`.
make_wheel() {
  python3 bindings/python/wheel_backend.py "$out" "$root" >/dev/null
}

# What differs between the two for Windows: in the README, and in the C# project.
for machine in x86 x64; do
  case $machine in
    x86) bits=32 other=x64 other_bits=64 platform=Win32 mingw=i686-w64-mingw32 ;;
    x64) bits=64 other=x86 other_bits=32 platform=x64 mingw=x86_64-w64-mingw32 ;;
  esac
  gather "windows-$machine" "windows-$machine" windows.md
  sed -i -e "s/@MACHINE@/$machine/g; s/@BITS@/$bits/g; s/@OTHER@/$other/g; s/@OTHER_BITS@/$other_bits/g" \
    -e "s/@PLATFORM@/$platform/g; s/@MINGW@/$mingw/g" "$root/README.md"
  sed -i "s|<PlatformTarget>.*</PlatformTarget>|<PlatformTarget>$machine</PlatformTarget>|" \
    "$root/examples/csharp/FirstHost.csproj"
  finish
  rm -f -- "$out/${root##*/}.zip"
  (cd "$work" && find "${root##*/}" | sort | zip -X -9 -q "$out/${root##*/}.zip" -@)
  make_wheel
done

gather release "linux-$(uname -m)" linux.md --strip
scripts/man_pages.sh "$root/bin" "$version" "$root/share/man/man1"
finish
tar -C "$work" --sort=name --owner=0 --group=0 --numeric-owner --format=gnu -cf - "${root##*/}" |
  gzip -n9 >"$out/${root##*/}.tar.gz"
if [[ $(uname -m) == x86_64 ]]; then
  make_wheel
  python3 bindings/dotnet/nuget_package.py "$out" "$root" "$work/ZVQRN-$version-windows-"x{86,64} >/dev/null
fi

(cd "$out" && sha256sum -- *"-$version-"* *".$version.nupkg" | tee SHA256SUMS)
