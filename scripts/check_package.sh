#!/usr/bin/env bash
# Checks what `make package` has made, as its users get it: unpacks the packages elsewhere, builds
# programs against them in every way that they offer, and runs the examples against the packaged
# scanner, each in a network of its own.  Prints a line a case; ends with 0 when all passed.
#
# Windows programs run under QUORIN_UNDER_WINE (default scripts/under_wine.sh), a command that takes
# the machine (x86 or x64), a program and its arguments.  How those for x86 run, here or in an emulated
# PC, is decided by scripts/prepare_32bit.sh; those for x64 are left out where there is no Wine for
# them.  In the PC this script runs as --x86-programs, where the unpacked package lies.
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top
readonly MACHINES=(x86 x64)
declare -rA CROSS=([x86]=i686-w64-mingw32 [x64]=x86_64-w64-mingw32)
declare -rA FORMAT=([x86]=pei-i386 [x64]=pei-x86-64)
declare -rA OTHER=([x86]=x64 [x64]=x86)
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
  for ((i = 0; i < 1500; ++i)); do
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

seconds=20 # that an example runs
if [[ ${1:-} == --x86-programs ]]; then
  work=$PWD
  seconds=90
else
  version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$top/CMakeLists.txt")
  readonly version
  tar=$top/build/packages/ZVQRN-$version-linux-$(uname -m).tar.gz
  work=$(mktemp -d)
  trap 'rm -rf -- "$work"' EXIT
  for machine in "${MACHINES[@]}"; do
    unzip -q "$top/build/packages/ZVQRN-$version-windows-$machine.zip" -d "$work"
    mv "$work/ZVQRN-$version-windows-$machine" "$work/windows-$machine"
  done
  tar -xzf "$tar" -C "$work"
  mv "$work/ZVQRN-$version-linux-$(uname -m)" "$work/linux"
  cd "$work"
fi
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
  diff <(sed "s/@VERSION@/$version/; s/@INTERFACE@/$interface/" "$top/packaging/${system%%-*}_files.txt") \
    <(find . ! -type d -printf '%P\n' | LC_ALL=C sort)
  diff <(awk '{ print $2 }' SHA256SUMS) \
    <(find . -type f ! -name SHA256SUMS -printf '%P\n' | LC_ALL=C sort)
  # Nothing is left to fill in, and there is no folder of the machine that built it.
  if grep -n '@[A-Z_]*@' README.md; then false; fi
  if grep -rlF -e "$top" -e "${top//[\/-]/_}" .; then false; fi
}

# The bill names every file with its checksums, and what is inside the programs; the notices have the
# words that its authors ask for.
bill() {
  cd "$1"
  python3 - "${1%%-*}" <<'END'
import hashlib, json, os, re, sys
bill = json.load(open("zvqrn.spdx.json"))
notices = open("THIRD-PARTY-NOTICES.txt").read()
names = {file["fileName"]: file for file in bill["files"]}
here = {os.path.join(folder, name) for folder, _, files in os.walk(".") for name in files}
here = {name for name in here if not os.path.islink(name)} - {"./zvqrn.spdx.json", "./SHA256SUMS"}
assert set(names) == here, set(names) ^ here
for name, file in names.items():
    for checksum in file["checksums"]:
        wanted = hashlib.new(checksum["algorithm"].lower(), open(name, "rb").read()).hexdigest()
        assert checksum["checksumValue"] == wanted, name
known = {thing["SPDXID"] for thing in bill["files"] + bill["packages"]} | {"SPDXRef-DOCUMENT"}
assert len(known) == len(bill["files"]) + len(bill["packages"]) + 1
for relationship in bill["relationships"]:
    assert {relationship["spdxElementId"], relationship["relatedSpdxElement"]} <= known
inside = sum(relationship["relationshipType"] == "STATIC_LINK" for relationship in bill["relationships"])
assert inside == (4 if sys.argv[1] == "linux" else 12), inside
for package in bill["packages"][1:]:
    assert re.search(f"^{re.escape(package['name'])} {re.escape(package['versionInfo'])} ", notices, re.M)
for words in ("University of Cincinnati", "Niels Lohmann"):
    assert words in notices, words
assert ("mingw-w64 project" in notices) == (sys.argv[1] == "windows")
END
}

# Packed once more from the same builds, all have the same bytes.
same_again() {
  SOURCE_DATE_EPOCH=$(stat -c %Y linux/README.md) "$scripts/package.sh" "$work/again"
  local package
  for package in again/*; do
    cmp "$top/build/packages/${package##*/}" "$package"
  done
  [[ $(find again -type f | wc -l) -eq 8 && $(wc -l <again/SHA256SUMS) -eq 7 ]]
}

# The library, checked on its own by scripts/check_dll.sh, is built once more, elsewhere: the same
# bytes.
built_again() {
  local machine=$1 file
  local elsewhere=$work/elsewhere-$machine
  mkdir -p "$elsewhere"
  (cd "$top" && cp -R CMakeLists.txt CMakePresets.json cmake include src "$elsewhere")
  cd "$elsewhere"
  cmake --preset "windows-$machine" -DZVQRN_BUILD_TOOLS=OFF -DZVQRN_BUILD_BENCH=OFF
  cmake --build --preset "windows-$machine"
  for file in bin/ZVQRN.dll bin/ZVQRN.debug lib/ZVQRN.lib lib/libZVQRN.dll.a; do
    cmp "build/windows-$machine/${file##*/}" "$work/windows-$machine/$file"
  done
}

# What is for one machine only.
machine_files() {
  local machine=$1 file
  cd "windows-$machine"
  for file in bin/*.dll bin/*.exe; do
    "${CROSS[$machine]}-objdump" -f "$file" | grep "file format ${FORMAT[$machine]}\$"
  done
  grep -F "<PlatformTarget>$machine</PlatformTarget>" examples/csharp/FirstHost.csproj
  # Each says what it is, and its version; the stand-in that it is none of the maker's.
  for file in bin/*.dll bin/*.exe; do
    tr -d '\0' <"$file" | grep -aF "ProductVersion$version" >/dev/null
  done
  tr -d '\0' <bin/DRAVLIB.dll | grep -aF "stand-in, not the maker's" >/dev/null
}

shared_library() {
  local interface=${version%.*}
  [[ $version == 0.* ]] || interface=${version%%.*}
  readelf -d linux/lib/libZVQRN.so | grep -F "soname: [libZVQRN.so.$interface]"
  ldd linux/lib/libZVQRN.so
}

header() {
  local source=$top/packaging/consumer/header_check.c standard compiler target
  local options=(-I linux/include -fsyntax-only -Wall -Wextra -Werror)
  for standard in c89 c99 c11 c17; do
    for compiler in gcc clang "${CROSS[x86]}-gcc" "${CROSS[x64]}-gcc"; do
      "$compiler" "-std=$standard" -pedantic "${options[@]}" "$source"
    done
  done
  # The one for C++, which has functions of its own that a warning could come from.
  for compiler in g++ clang++ "${CROSS[x86]}-g++" "${CROSS[x64]}-g++"; do
    for standard in c++17 c++20; do
      "$compiler" "-std=$standard" -pedantic -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast \
        "${options[@]}" "$top/packaging/consumer/wrapper_check.cpp"
    done
    "$compiler" -std=c++17 -fno-exceptions -fno-rtti "${options[@]}" \
      "$top/packaging/consumer/wrapper_check.cpp"
  done
  for standard in c++98 c++11 c++14 c++17 c++20; do
    for compiler in g++ clang++ "${CROSS[x86]}-g++" "${CROSS[x64]}-g++"; do
      "$compiler" -x c++ "-std=$standard" -pedantic "${options[@]}" "$source"
    done
  done
  for compiler in gcc "${CROSS[x86]}-gcc" "${CROSS[x64]}-gcc"; do
    "$compiler" -fpack-struct=1 -DWANTED_PACKING=1 "${options[@]}" "$source"
  done
  # Visual C++ 2008, which has no <stdint.h>, and a later one, as LLVM imitates them.
  mkdir -p old
  printf '#define offsetof(t, m) __builtin_offsetof(t, m)\n#define NULL 0\n' >old/stddef.h
  for target in i686-pc-windows-msvc x86_64-pc-windows-msvc; do
    clang "--target=$target" -ffreestanding -fms-compatibility-version=15 -nostdinc -isystem old \
      "${options[@]}" "$source"
    clang "--target=$target" -ffreestanding -fms-compatibility-version=19 "${options[@]}" "$source"
    clang++ "--target=$target" -ffreestanding -x c++ -fms-compatibility-version=19 "${options[@]}" \
      "$source"
  done
}

# There is a page for each tool and subcommand, with the options that its --help has, and no other.
man_pages() {
  local page command words
  groff -man -Tutf8 -ww -z linux/share/man/man?/* 2>&1 | tee warnings.txt
  [[ ! -s warnings.txt ]]
  for page in linux/share/man/man1/*; do
    command=$(basename "$page" .1)
    words=${command#quorin-scanner-}
    [[ $words != "$command" ]] || words=
    diff <("linux/bin/${command%"${words:+-$words}"}" ${words:+"$words"} --help |
      grep -oE '^  -[^ ]+' | tr , '\n' | tr -d ' ') \
      <(sed -nE '/^\.TP/ { n; s/\\f[A-Z]|\\//g; p }' "$page" | grep -oE '^-[^ ]+' | tr , '\n')
    lexgrog "$page" | grep -F "\"$command - "
  done
  diff <(linux/bin/quorin-scanner --help | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p' | sort) \
    <(find linux/share/man -name 'quorin-scanner-*' -printf '%f\n' | sed -E 's/quorin-scanner-|\.1//g' |
      sort)
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

# make install, and programs that find what it has put there; make uninstall leaves nothing.
installed() {
  local root=$work/installed flags
  make -C "$top" install "DESTDIR=$root" PREFIX=/opt/zvqrn
  diff <(cd "$root/opt/zvqrn" && find . ! -type d | sort) \
    <(cd linux && find bin include lib share ! -type d ! -name '*DRAVLIB*' ! -path '*/man1/*' -printf './%p\n' |
      sort)
  cp -R "$top/packaging/conan/test_package" version_check
  cmake -S version_check -B version_check/build -DCMAKE_PREFIX_PATH="$root/opt/zvqrn"
  cmake --build version_check/build
  [[ $(version_check/build/version_check) == "ZVQRN $version" ]]
  export PKG_CONFIG_PATH=$root/opt/zvqrn/lib/pkgconfig
  read -ra flags < <(pkg-config --cflags --libs zvqrn)
  gcc version_check/version_check.c "${flags[@]}" -o version_check/by_pkg_config
  make -C "$top" uninstall "DESTDIR=$root"
  [[ -z $(find "$root" ! -type d -o -iname zvqrn -empty) ]]
}

# Neither vcpkg nor Conan is to be had here.  What can be tried without: the port has the version, and
# the sources that the recipe exports, called by functions that imitate Conan's, suffice to configure.
ports() {
  python3 - "$top/packaging" "$version" exported <<'END'
import glob, importlib.util, json, os, shutil, sys, types
packaging, version, target = sys.argv[1:]
assert json.load(open(packaging + "/vcpkg/zvqrn/vcpkg.json"))["version"] == version
def copy(recipe, pattern, src, dst):
    found = [path for path in glob.glob(os.path.join(src, pattern), recursive=True)]
    found += [path for path in glob.glob(os.path.join(src, pattern, "**"), recursive=True)]
    for path in filter(os.path.isfile, found):
        place = os.path.join(dst, os.path.relpath(path, src))
        os.makedirs(os.path.dirname(place), exist_ok=True)
        shutil.copy(path, place)
    assert found, pattern
names = {"conan": {"ConanFile": object}, "conan.errors": {"ConanInvalidConfiguration": Exception},
         "conan.tools": {}, "conan.tools.files": {"copy": copy, "load": lambda recipe, path: open(path).read(),
         "rmdir": None}, "conan.tools.cmake": dict.fromkeys(["CMake", "CMakeDeps", "CMakeToolchain", "cmake_layout"])}
for name, content in names.items():
    sys.modules[name] = types.ModuleType(name)
    vars(sys.modules[name]).update(content)
spec = importlib.util.spec_from_file_location("recipe", packaging + "/conan/conanfile.py")
module = importlib.util.module_from_spec(spec)
spec.loader.exec_module(module)
recipe = module.ZvqrnRecipe()
recipe.recipe_folder, recipe.export_sources_folder = packaging + "/conan", target
recipe.set_version()
recipe.export_sources()
assert recipe.version == version
END
  cmake -S exported -B exported/build -DZVQRN_BUILD_TOOLS=OFF
}

cmake_for_windows() {
  local machine=$1 language=$2
  with_cmake "windows-$machine" "$language" -DCMAKE_SYSTEM_NAME=Windows \
    -DCMAKE_C_COMPILER="${CROSS[$machine]}-gcc" -DCMAKE_CXX_COMPILER="${CROSS[$machine]}-g++"
}

# A program of the other bitness is told at the configuration, not at its user's.
refuses_other_bitness() {
  local machine=$1 code=0
  cp -R "windows-$machine/examples/c" "refused-$machine"
  cmake -S "refused-$machine" -B "refused-$machine/build" -DCMAKE_SYSTEM_NAME=Windows \
    -DCMAKE_C_COMPILER="${CROSS[${OTHER[$machine]}]}-gcc" \
    -DCMAKE_PREFIX_PATH="$work/windows-$machine" 2>&1 | tee "refused-$machine.txt" || code=$?
  [[ $code -ne 0 ]]
  grep -q '\(32\|64\)bit' "refused-$machine.txt"
}

with_makefiles() {
  local machine
  # In a folder with a space in its name.
  cp -R linux 'linux elsewhere'
  make -C 'linux elsewhere/examples/c'
  make -C 'linux elsewhere/examples/cpp'
  make -C linux/examples/c
  make -C linux/examples/cpp
  for machine in "${MACHINES[@]}"; do
    make -C "windows-$machine/examples/c" CC="${CROSS[$machine]}-gcc"
    make -C "windows-$machine/examples/cpp" CXX="${CROSS[$machine]}-g++"
  done
}

# The other import library, with two linkers.
with_msvc_library() {
  local machine=$1 options=()
  # The tables of safe handlers are a thing of 32 bits.
  [[ $machine != x86 ]] || options=(/safeseh:no)
  cd "windows-$machine"
  "${CROSS[$machine]}-gcc" -Iinclude examples/c/first_host.c lib/ZVQRN.lib -o bin/lib_host.exe
  clang --target="${CROSS[$machine]%%-*}-pc-windows-msvc" -ffreestanding -Iinclude -Wall -Wextra \
    -Werror -c "$top/packaging/consumer/no_run_time.c" -o no_run_time.obj
  lld-link /entry:start /subsystem:console /nodefaultlib "${options[@]}" no_run_time.obj \
    lib/ZVQRN.lib /out:bin/no_run_time.exe
}

runs_without_run_time() {
  local machine=$1 code=0
  cd "windows-$machine/bin"
  "$under_wine" "$machine" ./no_run_time.exe || code=$?
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
    timeout "$((seconds + 200))" "$scripts/private_network.sh" "$scripts/check_package.sh" \
      --exchange "$ending" "$answer" "$work/logs/$name.out" "$@" >"$work/logs/$name" 2>&1
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

# The Windows programs of one machine, under Wine.
run_under_wine() {
  local machine=$1 bin=windows-$1/bin
  exchange "$machine-run-c" wait 1 "$bin" "$under_wine" "$machine" ./c_host.exe 1 "$seconds"
  exchange "$machine-run-cpp" wait 1 "$bin" "$under_wine" "$machine" ./cpp_host.exe 1 "$seconds"
  exchange "$machine-run-msvc-library" wait 9 "$bin" "$under_wine" "$machine" ./lib_host.exe 9 \
    "$seconds"
  check "$machine-run-lld-link" runs_without_run_time "$machine"
}
if [[ ${1:-} == --x86-programs ]]; then
  run_under_wine x86
  finish_exchanges
  [[ $failed -eq 0 ]]
  exit
fi

# The same in the emulated PC, with the scanner of this machine's package and what that is linked with.
run_in_pc() {
  local pc=$work/pc
  mkdir -p "$pc/linux/bin" "$pc/libraries"
  cp -r "$scripts" windows-x86 "$pc"
  cp linux/bin/quorin-scanner "$pc/libraries"
  ldd linux/bin/quorin-scanner | grep -oE '/[^ ]+' | xargs cp -L -t "$pc/libraries"
  # shellcheck disable=SC2016 # for the inner shell
  printf '#!/bin/sh\ncd "${0%%/*}/../../libraries" && exec ./ld-linux-x86-64.so.2 --library-path . %s\n' \
    './quorin-scanner "$@"' >"$pc/linux/bin/quorin-scanner"
  chmod +x "$pc/linux/bin/quorin-scanner"
  "$scripts/emulated_pc.sh" 900 "$pc" env QUORIN_WINE_ROOT=/ scripts/check_package.sh --x86-programs
}

# Wherever they run; without Wine for x64 its programs are left out, unless CI is set.
run_windows_programs() {
  local machine=$1 way=native name
  if [[ -z ${QUORIN_UNDER_WINE:-} && $machine == x86 ]]; then
    { way=$("$scripts/prepare_32bit.sh" 2>&3) || way=impossible; } 3>&1
  elif [[ -z ${QUORIN_UNDER_WINE:-} && -z ${CI:-} ]] && ! "$scripts/wine64_prefix.sh"; then
    printf 'left out  the programs of the package for x64: no Wine for them here\n'
    return
  fi
  cp "cmake-windows-$machine-c/build/first_host.exe" "windows-$machine/bin/c_host.exe"
  cp "windows-$machine/examples/cpp/first_host.exe" "windows-$machine/bin/cpp_host.exe"
  case $way in
    native) run_under_wine "$machine" ;;
    emulated) run_in_pc || failed=$((failed + 1)) ;;
    impossible) # and said why
      failed=$((failed + 1))
      printf 'FAILED  package-%s-run\n' "$machine"
      ;;
    none)
      for name in c cpp msvc-library lld-link; do
        printf 'skipped  package-%s-run-%s\n' "$machine" "$name"
      done
      ;;
  esac
}

# Before anything is built in them.
for system in linux "${MACHINES[@]/#/windows-}"; do
  check "contents-$system" contents "$system"
  check "bill-$system" bill "$system"
done
check same-again same_again
check shared-library shared_library
check header header
check man-pages man_pages
check makefiles with_makefiles
check cmake-linux-c with_cmake linux c
check cmake-linux-cpp with_cmake linux cpp
for machine in "${MACHINES[@]}"; do
  check "built-again-$machine" built_again "$machine"
  check "machine-$machine" machine_files "$machine"
  check "cmake-$machine-c" cmake_for_windows "$machine" c
  check "cmake-$machine-cpp" cmake_for_windows "$machine" cpp
  check "cmake-$machine-refuses-${OTHER[$machine]}" refuses_other_bitness "$machine"
  check "msvc-library-$machine" with_msvc_library "$machine"
done
check pkg-config with_pkg_config
check installed installed
check ports ports
check c-sharp c_sharp

export LD_LIBRARY_PATH=$work/linux/lib
exchange run-c interrupt 1 . cmake-linux-c/build/first_host
exchange run-c-declining wait 9 . linux/examples/c/first_host 9 10
exchange run-cpp interrupt 1 . cmake-linux-cpp/build/first_host 1
exchange run-c-sharp wait 1 . mono FirstHost.exe 1 12 # Mono hears Ctrl-C from a terminal only
exchange run-python interrupt 6 . python3 linux/examples/python/first_host.py --answer 6
finish_exchanges
unset LD_LIBRARY_PATH

for machine in "${MACHINES[@]}"; do
  run_windows_programs "$machine"
done
finish_exchanges
[[ $failed -eq 0 ]]
