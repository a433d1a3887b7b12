#!/usr/bin/env bash
# Installs the Debian packages that a command of the Makefile needs and that are missing.
# Usage: scripts/install_packages.sh build|package|deb|check-packages|bench|fuzz|valgrind|emulated|test
set -euo pipefail

packages=(g++ cmake ninja-build libcli11-dev nlohmann-json3-dev iproute2 util-linux hostname)
for_windows=(g++-mingw-w64-i686-win32 g++-mingw-w64-x86-64-win32)
for_packages=("${for_windows[@]}" llvm help2man mono-mcs python3 zip)
for_deb=(debhelper dpkg-dev help2man lintian python3)
for_bench=(libbenchmark-dev libexpat1-dev libhttp-parser-dev libmicrohttpd-dev libpugixml-dev
  llvm wine64 debootstrap bubblewrap "${for_windows[@]}")
for_fuzz=(clang libclang-rt-14-dev llvm)
for_wine=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix googletest wine64 debootstrap bubblewrap)
case ${1:-} in
  build) ;;
  package) packages+=("${for_packages[@]}") ;;
  deb) packages+=("${for_deb[@]}") ;;
  check-packages) packages+=("${for_deb[@]}" debootstrap) ;;
  bench) packages+=("${for_bench[@]}") ;;
  fuzz) packages+=("${for_fuzz[@]}") ;;
  valgrind) packages+=(libgtest-dev valgrind) ;;
  # Beside what the tests need; installed only where the 32-bit DLL is tested in an emulated PC.
  emulated) packages+=(busybox-static debootstrap e2fsprogs qemu-system-x86) ;;
  test)
    # clang-tidy looks at the sources of the benchmarks too.
    packages+=("${for_packages[@]}" "${for_bench[@]}" "${for_fuzz[@]}" "${for_wine[@]}"
      libgtest-dev bash-completion chromium chromium-driver clang-format clang-tidy shellcheck
      groff-base lld make man-db mono-runtime mypy nftables pkg-config python3-jsonschema
      python3-selenium python3-venv tshark unzip wireshark-common)
    ;;
  *)
    printf 'usage: scripts/install_packages.sh build|package|deb|check-packages|bench|fuzz|valgrind|emulated|test\n' >&2
    exit 2
    ;;
esac

missing=()
for package in "${packages[@]}"; do
  if [[ $(dpkg-query -W -f '${Status}' "$package" 2>/dev/null) != "install ok installed" ]]; then
    missing+=("$package")
  fi
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

printf 'Installing: %s\n' "${missing[*]}"
as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || {
    printf 'These packages are missing, and only root may install them: %s\n' "${missing[*]}" >&2
    exit 1
  }
  as_root=(sudo)
fi
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
