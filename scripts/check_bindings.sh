#!/usr/bin/env bash
# Checks the bindings for other languages as their users get them, after `make package`: the wheels by
# pip, and the package for Python, in an environment that has nothing else; the NuGet package by the
# rules that NuGet documents, and its assembly under Mono; both against the packaged scanner.  Prints a
# line a case; ends with 0 when all passed.
#
# Python for Windows is not to be had here: pip installs the wheels for it as for that platform, and
# what is in them is compared with the packages, whose DLLs are run elsewhere.  Nor is the .NET SDK.
set -euo pipefail

scripts=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=${scripts%/*}
readonly scripts top
version=$(sed -nE 's/^project\(ZVQRN VERSION ([0-9.]+).*/\1/p' "$top/CMakeLists.txt")
readonly version packages=$top/build/packages binding=$top/bindings/python
work=$(mktemp -d)
trap 'rm -rf -- "$work"' EXIT
cd "$work"
mkdir logs
for machine in x86 x64; do
  unzip -q "$packages/ZVQRN-$version-windows-$machine.zip"
done
tar -xzf "$packages/ZVQRN-$version-linux-x86_64.tar.gz"
readonly linux=$work/ZVQRN-$version-linux-x86_64
# Whatever this user has told pip.
export PIP_CONFIG_FILE=/dev/null PIP_DISABLE_PIP_VERSION_CHECK=1
python3 -m venv environment
readonly python=$work/environment/bin/python
linux_wheel=$(echo "$packages/zvqrn-$version-py3-none-manylinux_"*_x86_64.whl)
platform=${linux_wheel##*-}
readonly linux_wheel platform=${platform%.whl}
failed=0

# Runs a function as a case; the first command in it that fails ends it.
check() {
  local name=$1 code
  shift
  set +e
  (set -e; "$@") >"logs/$name" 2>&1
  code=$?
  set -e
  if [[ $code -eq 0 ]]; then
    printf 'passed  bindings-%s\n' "$name"
  else
    failed=$((failed + 1))
    printf 'FAILED  bindings-%s\n' "$name"
    tail -n 40 "logs/$name"
  fi
}

# pip takes the wheel for its platform and for no other; it holds the package's files, and RECORD names
# them all.  Arguments: platform, another one, package, library, stand-in.
wheel() {
  local file=$packages/zvqrn-$version-py3-none-$1.whl
  local pip=("$python" -m pip -q install --no-index --no-compile --only-binary=:all:)
  if "${pip[@]}" --platform="$2" --target=refused "$file"; then false; fi
  "${pip[@]}" --platform="$1" --target="wheel-$1" "$file"
  cd "wheel-$1"
  cmp "zvqrn/lib/${4##*/}" "../$3/$4"
  cmp "zvqrn/stand_in/${5##*/}" "../$3/$5"
  cmp zvqrn/stand_in/DRAVLIB.txt "../$3/${5%/*}/DRAVLIB.txt"
  grep -x "Version: $version" "zvqrn-$version.dist-info/METADATA"
  "$python" - "$file" "$binding/zvqrn" <<'END'
import base64, csv, hashlib, io, os, sys, zipfile
archive = zipfile.ZipFile(sys.argv[1])
names = set(archive.namelist())
(record,) = (name for name in names if name.endswith(".dist-info/RECORD"))
for name, digest, size in csv.reader(io.TextIOWrapper(archive.open(record), "utf-8")):
    data = archive.read(name)
    wanted = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
    assert name == record or (digest, int(size)) == (f"sha256={wanted}", len(data)), name
    names.remove(name)
assert not names, names
sources = {name for name in os.listdir(sys.argv[2]) if not name.startswith("__pycache__")}
assert {f"zvqrn/{name}" for name in sources} <= set(archive.namelist()), sources
END
}

# The system that the wheel for Linux names has every symbol that the libraries in it ask for, as
# binutils see them.
c_library() {
  local named=${platform#manylinux_} asked
  named=${named%_x86_64}
  asked=$(objdump -T "$linux"/lib/*.so | grep -oE 'GLIBC_2\.[0-9]+' | sort -uV | tail -n 1)
  [[ -n $asked ]]
  printf '%s\n' "$asked" "GLIBC_${named/_/.}" | sort -cV
}

# The same wheel, by pip from the sources; without a library one for every system.
from_source() {
  local root
  for root in "$linux" ''; do
    SOURCE_DATE_EPOCH=$(stat -c %Y "$linux/README.md") "$python" -m pip -q wheel --no-index \
      ${root:+"--config-settings=root=$root"} --wheel-dir=made "$binding"
  done
  cmp "$linux_wheel" "made/${linux_wheel##*/}"
  [[ -e made/zvqrn-$version-py3-none-any.whl ]]
}

types() {
  local system
  for system in linux win32; do
    mypy --strict --cache-dir=mypy --python-version=3.8 --platform="$system" "$binding/zvqrn"
  done
  # The oldest Python that is served can read it.
  "$python" - "$binding"/zvqrn/*.py <<'END'
import ast, sys
for name in sys.argv[1:]:
    ast.parse(open(name, encoding="utf-8").read(), name, feature_version=(3, 8))
END
}

# What NuGet's documentation asks of a package, and the packages' own files in it.
nuget() {
  mkdir nuget
  unzip -q "$packages/Zvqrn.$version.nupkg" -d nuget
  cmp nuget/runtimes/linux-x64/native/libZVQRN.so "$linux/lib/libZVQRN.so"
  for machine in x86 x64; do
    cmp "nuget/runtimes/win-$machine/native/ZVQRN.dll" "ZVQRN-$version-windows-$machine/bin/ZVQRN.dll"
  done
  python3 - "$version" "$top/bindings/dotnet/Zvqrn/ScanLibrary.cs" <<'END'
import os, re, sys
import xml.etree.ElementTree as ElementTree
names = {os.path.relpath(os.path.join(folder, name), "nuget")
         for folder, _, files in os.walk("nuget") for name in files}
(nuspec,) = (name for name in names if "/" not in name and name.endswith(".nuspec"))
space = "{http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd}"
metadata = ElementTree.parse(f"nuget/{nuspec}").getroot().find(f"{space}metadata")
said = {element.tag.replace(space, ""): (element.text or "").strip() for element in metadata}
assert {"id", "version", "authors", "description"} <= {word for word, text in said.items() if text}, said
assert re.fullmatch(r"[A-Za-z0-9_.-]{1,100}", said["id"]) and nuspec == said["id"] + ".nuspec"
assert said["version"] == sys.argv[1] and {said["license"], said["readme"]} <= names
assert metadata.find(f"{space}license").get("type") == "file"
frameworks = {name.split("/")[1] for name in names if name.startswith("lib/")}
assert all(name.count("/") == 2 for name in names if name.startswith("lib/"))
groups = {group.get("targetFramework") for group in metadata.iter(f"{space}group")}
full = {"net46": ".NETFramework4.6", "netstandard2.0": ".NETStandard2.0"}
assert frameworks == set(full) and groups == set(full.values())
assert [name for name in names if name.startswith("build/")] == [f"build/{said['id']}.targets"]
for name in names:
    if name.startswith("runtimes/"):
        assert re.fullmatch(r"runtimes/(win-x86|win-x64|linux-x64)/native/[A-Za-z.]+", name), name
    assert name.split("/")[0] in ("lib", "build", "runtimes", "tools", "_rels") or "/" not in name, name
types = ElementTree.parse("nuget/[Content_Types].xml").getroot()
endings = {element.get("Extension") for element in types}
assert {name.rpartition(".")[2] for name in names} - {"xml"} <= endings
(relationship,) = ElementTree.parse("nuget/_rels/.rels").getroot()
assert relationship.get("Target") == f"/{nuspec}" and relationship.get("Type").endswith("/manifest")
assert {f"lib/{folder}/{said['id']}.xml" for folder in full} <= names
# What the targets copy is in the package, and goes where the assembly looks for it.
copied = [element for element in ElementTree.parse(f"nuget/build/{said['id']}.targets").iter()
          if element.get("Folder")]
assert len(copied) == 2, copied
for element in copied:
    folder = re.fullmatch(r"\$\(MSBuildThisFileDirectory\)\.\.\\(.+\\)\*\*\\\*\.\*", element.get("Include"))[1]
    assert any(name.startswith(folder.replace("\\", "/")) for name in names), folder
    assert f'"{element.get("Folder")[:-1]}", runtime' in open(sys.argv[2], encoding="utf-8").read(), folder
END
}

# The numbers that the header for C names have the same names in Python and C#, and are used in C++.
numbers() {
  "$python" - "$linux/include/zvqrn" "$top/bindings/dotnet/Zvqrn/Records.cs" <<'END'
import re, sys, zvqrn
header, wrapper = (open(f"{sys.argv[1]}/zvqrn.{end}", encoding="utf-8").read() for end in ("h", "hpp"))
sharp = open(sys.argv[2], encoding="utf-8").read()
found = re.findall(r"QRN_(IMAGE|COLOR|LOAD|PAPER|RESPONSE|STATUS)_([A-Z0-9_]+) = (\d+)", header)
for enumeration, family in (
    (zvqrn.ImageFormat, "IMAGE"), (zvqrn.ColorType, "COLOR"), (zvqrn.LoadPaper, "LOAD"),
    (zvqrn.PaperType, "PAPER"), (zvqrn.Answer, "RESPONSE"), (zvqrn.StatusCode, "STATUS"),
):
    wanted = {name: int(number) for kind, name, number in found if kind == family}
    for name in wanted.copy():
        if name.startswith("CLASS_"):
            del wanted[name]
        else:
            assert re.search(rf" = QRN_{family}_{name}\b", wrapper), name
    (body,) = re.findall(rf"enum {enumeration.__name__} \{{(.*?)\}}", sharp, re.S)
    pairs = re.findall(r"(\w+) = (\d+)", body)
    assert {name: int(number) for name, number in pairs} == {
        "".join(word.capitalize() for word in name.split("_")): number for name, number in wanted.items()
    }, family
    assert wanted == {member.name: member.value for member in enumeration} and wanted, family
assert zvqrn.__version__ == re.search(r'^#define QRN_VERSION "(.*)"$', header, re.M)[1]
END
}

check wheel-linux wheel "$platform" win32 "${linux##*/}" lib/libZVQRN.so lib/libDRAVLIB.so
check wheel-x86 wheel win32 win_amd64 "ZVQRN-$version-windows-x86" bin/ZVQRN.dll bin/DRAVLIB.dll
check wheel-x64 wheel win_amd64 win32 "ZVQRN-$version-windows-x64" bin/ZVQRN.dll bin/DRAVLIB.dll
check c-library c_library
check from-source from_source
check types types

# The tests of the installed package, a line each.
"$python" -m pip -q install --no-index --find-links "$packages" zvqrn
check numbers numbers
QUORIN_SCANNER=$linux/bin/quorin-scanner timeout 300 "$scripts/private_network.sh" --with-scanner \
  "$python" "$binding/tests/test_zvqrn.py" >logs/python 2>&1 || true
sed -nE 's/^test_([a-z_]+) .* ok$/passed  bindings-python-\1/p
  s/^test_([a-z_]+) .* (FAIL|ERROR)$/FAILED  bindings-python-\1/p' logs/python
if ! tail -n 1 logs/python | grep -qx OK ||
  ! grep -q "^Ran $(grep -cE '^test_.* (ok|FAIL|ERROR)$' logs/python) tests" logs/python; then
  failed=$((failed + 1))
  grep -q '^FAILED ' logs/python || printf 'FAILED  bindings-python\n'
  tail -n 60 logs/python
fi

# The NuGet package, with its files where a project's build puts them.
check nuget nuget
mkdir program program/stand-in
cp -R nuget/lib/net46/Zvqrn.dll nuget/runtimes program
cp -R nuget/tools/stand-in/. program/stand-in
check dotnet-compiles mcs -warnaserror -r:program/Zvqrn.dll -out:program/Tests.exe \
  "$top/bindings/dotnet/tests/Tests.cs"
code=0
LC_ALL=C.UTF-8 QUORIN_SCANNER=$linux/bin/quorin-scanner timeout 300 "$scripts/private_network.sh" \
  --with-scanner mono program/Tests.exe || code=$?
[[ $code -eq 0 && $failed -eq 0 ]]
