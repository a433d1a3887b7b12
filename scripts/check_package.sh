#!/usr/bin/env bash
# Checks what `make package` has made, as its users get it: unpacks both packages elsewhere, builds
# programs against them in every way that they offer, and runs the examples against the packaged
# scanner, each in a network of its own.  Prints a line a case; ends with 0 when all passed.
#
# Windows programs run under QUORIN_UNDER_WINE (default scripts/under_wine.sh), a command that takes
# a program and its arguments; they are left out where there is no Wine.
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top
readonly CROSS=i686-w64-mingw32
readonly PORT=2968

# One example against the packaged scanner; runs inside its own network.
# Arguments: interrupt (end it with Ctrl-C) or wait (it ends by itself), the answer that it gives, a
# file for its output, the command.
if [[ ${1:-} == --exchange ]]; then
  ending=$2 answer=$3 output=$4
  shift 4
  verdict=$([[ $answer == 1 ]] && echo 0 || echo 4)
  set -m # a job in the background would ignore the interrupt
  "$@" >"$output" &
  host=$!
  trap 'kill "$host" 2>/dev/null || true' EXIT
  for ((i = 0; i < 300; ++i)); do
    [[ -z $(ss -Hltn "sport = :$PORT") ]] || break
    kill -0 "$host" 2>/dev/null || break
    sleep 0.1
  done
  push() {
    local code=0
    sleep 0.6 # the service takes a moment to see that the scanner before has gone
    "$SCANNER" push --to "$QUORIN_PRIVATE_ADDRESS" "$@" || code=$?
    [[ $code -eq $verdict ]] || printf 'the scanner gave %d, not %d\n' "$code" "$verdict"
    [[ $code -eq $verdict ]]
  }
  driver='driver "Quorin XS-200", scanner 192.0.2.10'
  push --uid 1 --product XS-200
  push --uid 2 --product XS-200 --protocol 2 --id 3
  wanted="Waiting for requests; Ctrl-C ends.
request 1: single, $driver, format 1, colour 110, paper 3
request 2: single, $driver, push-scan ID 3"
  if [[ $answer == 1 ]]; then
    push --uid 3 --product XS-200 --protocol 2 --pair --hold 100
    wanted+="
request 3: START, $driver, push-scan ID 1
request N: END, $driver, push-scan ID 1"
  fi
  [[ $ending == wait ]] || kill -INT "$host"
  wait "$host"
  diff <(printf '%s\n' "$wanted") <(tr -d '\r' <"$output" | sed -E 's/^request [0-9]{9,}:/request N:/')
  exit
fi

version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$top/CMakeLists.txt")
readonly version
zip=$top/build/packages/ZVQRN-$version-windows-x86.zip
tar=$top/build/packages/ZVQRN-$version-linux-$(uname -m).tar.gz
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
unzip -q "$zip" -d "$work"
tar -xzf "$tar" -C "$work"
mv "$work/ZVQRN-$version-windows-x86" "$work/windows"
mv "$work/ZVQRN-$version-linux-$(uname -m)" "$work/linux"
cd "$work"
mkdir logs
export SCANNER=$work/linux/bin/quorin-scanner
under_wine=${QUORIN_UNDER_WINE:-$scripts/under_wine.sh}
failed=0

# Counts a case by its exit code, and shows the end of its log when it failed.
report() {
  if [[ $2 -eq 0 ]]; then
    printf 'passed  package-%s\n' "$1"
  else
    failed=$((failed + 1))
    printf 'FAILED  package-%s\n' "$1"
    tail -n 40 "logs/$1"
  fi
}

# Runs a function as a case; the first command in it that fails ends it.
check() {
  local name=$1 code
  shift
  set +e
  (set -e; "$@") >"logs/$name" 2>&1
  code=$?
  set -e
  report "$name" "$code"
}

# SHA256SUMS names every file, and the files are those that packaging/ lists.
contents() {
  local system=$1 interface=${version%.*}
  [[ $version == 0.* ]] || interface=${version%%.*}
  cd "$system"
  sha256sum --check --strict --quiet SHA256SUMS
  diff <(sed "s/@VERSION@/$version/; s/@INTERFACE@/$interface/" "$top/packaging/${system}_files.txt") \
    <(find . ! -type d -printf '%P\n' | LC_ALL=C sort)
  diff <(awk '{ print $2 }' SHA256SUMS) \
    <(find . -type f ! -name SHA256SUMS -printf '%P\n' | LC_ALL=C sort)
  # No folder of the machine that built it.
  if grep -rlF -e "$top" -e "${top//[\/-]/_}" .; then false; fi
}

# Packed once more from the same builds, both have the same bytes.
same_again() {
  SOURCE_DATE_EPOCH=$(stat -c %Y linux/README.md) "$scripts/package.sh" "$work/again"
  cmp "$zip" "again/${zip##*/}"
  cmp "$tar" "again/${tar##*/}"
}

dll() {
  local dll=windows/bin/ZVQRN.dll symbol
  [[ $(stat -c %s "$dll") -lt 102400 ]]
  "$CROSS-objdump" -x "$dll" >dll.txt
  for text in DYNAMIC_BASE NX_COMPAT 'symbols stripped' .gnu_debuglink 'Time/Date.*1970'; do
    grep -q "$text" dll.txt
  done
  strings -el "$dll" >resource.txt
  for text in "$version" ZVQRN.dll FileDescription; do
    grep -qxF "$text" resource.txt
  done
  symbol=$("$CROSS-nm" windows/bin/ZVQRN.debug | awk '/ _?QRNSendData@12$/ { print $1 }')
  "$CROSS-addr2line" -e windows/bin/ZVQRN.debug "$symbol" | grep 'exports.cpp:[1-9]'
}

shared_library() {
  local interface=${version%.*}
  [[ $version == 0.* ]] || interface=${version%%.*}
  readelf -d linux/lib/libZVQRN.so | grep -F "soname: [libZVQRN.so.$interface]"
  ldd linux/lib/libZVQRN.so
}

header() {
  local source=$top/packaging/consumer/header_check.c standard
  local options=(-I linux/include -fsyntax-only -Wall -Wextra -Werror)
  for standard in c89 c99 c11 c17; do
    gcc "-std=$standard" -pedantic "${options[@]}" "$source"
    clang "-std=$standard" -pedantic "${options[@]}" "$source"
    "$CROSS-gcc" "-std=$standard" -pedantic "${options[@]}" "$source"
  done
  for standard in c++98 c++11 c++14 c++17 c++20; do
    g++ -x c++ "-std=$standard" -pedantic "${options[@]}" "$source"
    clang++ -x c++ "-std=$standard" -pedantic "${options[@]}" "$source"
    "$CROSS-g++" -x c++ "-std=$standard" -pedantic "${options[@]}" "$source"
  done
  gcc -fpack-struct=1 -DWANTED_PACKING=1 "${options[@]}" "$source"
  "$CROSS-gcc" -fpack-struct=1 -DWANTED_PACKING=1 "${options[@]}" "$source"
  # Visual C++ 2008, which has no <stdint.h>, and a later one, as LLVM imitates them.
  options+=(--target=i686-pc-windows-msvc -ffreestanding)
  mkdir -p old
  printf '#define offsetof(t, m) __builtin_offsetof(t, m)\n#define NULL 0\n' >old/stddef.h
  clang -fms-compatibility-version=15 -nostdinc -isystem old "${options[@]}" "$source"
  clang -fms-compatibility-version=19 "${options[@]}" "$source"
  clang++ -x c++ -fms-compatibility-version=19 "${options[@]}" "$source"
}

man_pages() {
  groff -man -Tutf8 -ww -z linux/share/man/man?/* 2>&1 | tee warnings.txt
  [[ ! -s warnings.txt ]]
}

# Builds examples/LANGUAGE of a package with CMake, in a folder of its own.
with_cmake() {
  local system=$1 language=$2
  shift 2
  cp -R "$system/examples/$language" "cmake-$system-$language"
  cmake -S "cmake-$system-$language" -B "cmake-$system-$language/build" \
    -DCMAKE_PREFIX_PATH="$work/$system" "$@"
  cmake --build "cmake-$system-$language/build"
}

with_pkg_config() {
  local flags
  export PKG_CONFIG_PATH=$work/linux/lib/pkgconfig
  read -ra flags < <(pkg-config --cflags --libs zvqrn)
  [[ $(pkg-config --modversion zvqrn) == "$version" ]]
  gcc -std=c89 -pedantic -Wall -Wextra -Werror linux/examples/c/first_host.c "${flags[@]}" -o pc_host
  LD_LIBRARY_PATH=$work/linux/lib ldd ./pc_host | grep -F "$work/linux/lib/libZVQRN.so"
}

# A 64-bit program is told at the configuration, not at its user's.
refuses_64_bits() {
  local code=0
  cp -R windows/examples/c refused
  cmake -S refused -B refused/build -DCMAKE_PREFIX_PATH="$work/windows" 2>&1 | tee refused.txt ||
    code=$?
  [[ $code -ne 0 ]]
  grep -q '32bit' refused.txt
}

with_makefiles() {
  make -C linux/examples/c
  make -C linux/examples/cpp
  make -C windows/examples/c CC="$CROSS-gcc"
  make -C windows/examples/cpp CXX="$CROSS-g++"
  "$CROSS-gcc" -Wall -Wextra -Werror -Iwindows/include windows/examples/c/first_host.c \
    -Lwindows/lib -lZVQRN -o windows/bin/plain_host.exe
}

# The first hosts of the documents, as they stand there.
documents() {
  local document
  for document in README.md docs/host-guide.md; do
    awk '/^```c$/ && !done { on = 1; next } /^```$/ { done += on; on = 0 } on' "$top/$document" \
      >first_host.c
    gcc -Ilinux/include first_host.c -Llinux/lib -lZVQRN -o first_host
    "$CROSS-gcc" -Iwindows/include first_host.c -Lwindows/lib -lZVQRN -o first_host.exe
  done
}

# The other import library, with two linkers.
with_msvc_library() {
  "$CROSS-gcc" -Iwindows/include windows/examples/c/first_host.c windows/lib/ZVQRN.lib \
    -o windows/bin/lib_host.exe
  clang --target=i686-pc-windows-msvc -ffreestanding -Iwindows/include -Wall -Wextra -Werror \
    -c "$top/packaging/consumer/no_run_time.c" -o no_run_time.obj
  lld-link /entry:start /subsystem:console /nodefaultlib /safeseh:no no_run_time.obj \
    windows/lib/ZVQRN.lib /out:windows/bin/no_run_time.exe
}

runs_without_run_time() {
  local code=0
  cd windows/bin
  "$under_wine" ./no_run_time.exe || code=$?
  [[ $code -eq 7 ]]
}

c_sharp() {
  mcs -unsafe -warnaserror+ -out:FirstHost.exe linux/examples/csharp/FirstHost.cs
}

# Starts a case in the background: an example against the scanner.
running=()
exchange() {
  local name=$1 ending=$2 answer=$3 folder=$4
  shift 4
  (
    set +e
    cd "$folder" || exit
    timeout 120 "$scripts/private_network.sh" "$scripts/check_package.sh" --exchange "$ending" \
      "$answer" "$work/logs/$name.out" "$@" >"$work/logs/$name" 2>&1
    printf '%d\n' "$?" >"$work/logs/$name.exit"
  ) &
  running+=("$name")
}
finish_exchanges() {
  local name
  wait
  for name in "${running[@]}"; do
    report "$name" "$(<"logs/$name.exit")"
  done
  running=()
}

check contents-linux contents linux
check contents-windows contents windows
check same-again same_again
check shared-library shared_library
check dll dll
check header header
check man-pages man_pages
check makefiles with_makefiles
check cmake-linux-c with_cmake linux c
check cmake-linux-cpp with_cmake linux cpp
check cmake-windows-c with_cmake windows c -DCMAKE_SYSTEM_NAME=Windows \
  -DCMAKE_C_COMPILER="$CROSS-gcc"
check cmake-windows-cpp with_cmake windows cpp -DCMAKE_SYSTEM_NAME=Windows \
  -DCMAKE_CXX_COMPILER="$CROSS-g++"
check cmake-refuses-64-bits refuses_64_bits
check pkg-config with_pkg_config
check documents documents
check msvc-library with_msvc_library
check c-sharp c_sharp

export LD_LIBRARY_PATH=$work/linux/lib
exchange run-c interrupt 1 . cmake-linux-c/build/first_host
exchange run-c-declining wait 9 . linux/examples/c/first_host 9 10
exchange run-cpp interrupt 1 . cmake-linux-cpp/build/first_host 1
exchange run-c-sharp wait 1 . mono FirstHost.exe 1 12 # Mono hears Ctrl-C from a terminal only
exchange run-python interrupt 6 . python3 linux/examples/python/first_host.py --answer 6
finish_exchanges
unset LD_LIBRARY_PATH

# Where no Wine can be had, what needs it is left out, unless CI is set: then it must run.
if [[ -z ${QUORIN_UNDER_WINE:-} && -z ${CI:-} ]] && ! "$scripts/wine_root.sh"; then
  printf "left out  the package's Windows programs: no Wine here\n"
  [[ $failed -eq 0 ]]
  exit
fi
cp cmake-windows-c/build/first_host.exe windows/bin/c_host.exe
cp windows/examples/cpp/first_host.exe windows/bin/cpp_host.exe
exchange wine-run-c wait 1 windows/bin "$under_wine" ./c_host.exe 1 20
exchange wine-run-cpp wait 1 windows/bin "$under_wine" ./cpp_host.exe 1 20
exchange wine-run-msvc-library wait 9 windows/bin "$under_wine" ./lib_host.exe 9 20
finish_exchanges
check wine-run-lld-link runs_without_run_time
[[ $failed -eq 0 ]]
