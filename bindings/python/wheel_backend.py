#!/usr/bin/env python3
"""Makes the wheels, with nothing but Python; also the build backend of pyproject.toml.

    wheel_backend.py FOLDER ROOT...

makes the wheel of each ROOT, an unpacked package or a build tree with the library, in FOLDER and
prints its name.  The same files give the same bytes.  What a wheel may run on is read from its
library: the machine, and under Linux the newest version of the C library that it asks for.
"""

import base64
import hashlib
import os
import re
import struct
import sys
import time
import zipfile
from pathlib import Path

HERE = Path(__file__).resolve().parent
NAMES = {"windows": ("ZVQRN.dll", "DRAVLIB.dll"), "linux": ("libZVQRN.so", "libDRAVLIB.so")}
# The newest versions of the compiler's libraries that systems with a C library of 2.34 have.
RUN_TIME_LIMITS = {"GLIBCXX": (3, 4, 29), "CXXABI": (1, 3, 13), "GCC": (7, 0, 0)}


def project_settings():
    """Of pyproject.toml what the wheel says about itself; plain lines, for Pythons without tomllib."""
    text = (HERE / "pyproject.toml").read_text(encoding="utf-8")
    settings = dict(re.findall(r'^([a-z-]+) = "(.*)"$', text, re.MULTILINE))
    settings["classifiers"] = re.findall(r'^  "(.*)",$', text, re.MULTILINE)
    return settings


def project_version():
    """The version of the library, from where it is written."""
    text = (HERE / "../../CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^project\(ZVQRN VERSION ([0-9.]+)", text, re.MULTILINE)[1]


def platform_tag(libraries):
    """The tag that says on what systems these libraries load."""
    newest = (0, 0)
    for library in libraries:
        data = library.read_bytes()
        if data[:2] == b"MZ":
            start = struct.unpack_from("<I", data, 60)[0]
            return {0x14C: "win32", 0x8664: "win_amd64"}[
                struct.unpack_from("<H", data, start + 4)[0]
            ]
        if data[:6] != b"\x7fELF\2\1" or struct.unpack_from("<H", data, 18)[0] != 62:
            raise SystemExit(f"{library} is not for x86-64")
        for family, version in needed_versions(data):
            if family == "GLIBC":
                newest = max(newest, version[:2])
            elif version > RUN_TIME_LIMITS[family]:
                raise SystemExit(f"{library} needs {family} {version}, newer than its systems have")
    # RUN_TIME_LIMITS are those of this version: an older one would have to be looked up.
    newest = max(newest, (2, 34))
    return f"manylinux_{newest[0]}_{newest[1]}_x86_64"


def needed_versions(data):
    """The families and versions of symbols that an ELF file asks other libraries for."""
    (table,) = struct.unpack_from("<Q", data, 40)
    size, count = struct.unpack_from("<HH", data, 58)
    sections = [struct.unpack_from("<IIQQQQIIQQ", data, table + i * size) for i in range(count)]
    for _, kind, _, _, offset, _, link, entries, _, _ in sections:
        if kind != 0x6FFFFFFE:  # SHT_GNU_verneed
            continue
        strings = sections[link][4]
        for _ in range(entries):
            _, versions, _, first, following = struct.unpack_from("<HHIII", data, offset)
            entry = offset + first
            for _ in range(versions):
                _, _, _, name, next_entry = struct.unpack_from("<IHHII", data, entry)
                text = data[strings + name : data.index(b"\0", strings + name)].decode("ascii")
                family, _, number = text.rpartition("_")
                if number[:1].isdigit():
                    version = tuple(int(part) for part in number.split("."))
                    yield family, version + (0,) * (3 - len(version))
                entry += next_entry
            offset += following


def find(root, name):
    """A file of a package or a build tree."""
    for folder in (".", "bin", "lib"):
        if (root / folder / name).is_file():
            return root / folder / name
    return None


def contents(root):
    """The wheel's files by their names in it, without what describes the wheel, and its tag."""
    files = {}
    for path in sorted((HERE / "zvqrn").iterdir()):
        if path.suffix in (".py", ".typed"):
            files[f"zvqrn/{path.name}"] = path.read_bytes()
    version_line = f'__version__ = "{project_version()}"'.encode()
    files["zvqrn/__init__.py"] = re.sub(
        rb"^__version__ = .*$", version_line, files["zvqrn/__init__.py"], flags=re.MULTILINE
    )
    if root is None:
        return files, "any"
    for library, utility in NAMES.values():
        if find(root, library):
            break
    else:
        raise SystemExit(f"there is no library in {root}")
    libraries = [find(root, library), find(root, utility)]
    if None in libraries:
        raise SystemExit(f"there is no {utility} in {root}")
    files[f"zvqrn/lib/{library}"] = libraries[0].read_bytes()
    files[f"zvqrn/stand_in/{utility}"] = libraries[1].read_bytes()
    files["zvqrn/stand_in/DRAVLIB.txt"] = find(root, "DRAVLIB.txt").read_bytes()
    return files, platform_tag(libraries)


def make_wheel(folder, root):
    """Makes a wheel in a folder and gives its name."""
    settings, version = project_settings(), project_version()
    files, platform = contents(root)
    information = f"{settings['name']}-{version}.dist-info"
    metadata = [
        "Metadata-Version: 2.1",
        f"Name: {settings['name']}",
        f"Version: {version}",
        f"Summary: {settings['description']}",
        "License: none granted yet; ask the owner",
        *(f"Classifier: {classifier}" for classifier in settings["classifiers"]),
        f"Requires-Python: {settings['requires-python']}",
        "Description-Content-Type: text/markdown",
        "",
        re.sub(r"(?m)^<!-- try: .* -->\n", "", (HERE / settings["readme"]).read_text(encoding="utf-8")),
    ]
    files[f"{information}/METADATA"] = "\n".join(metadata).encode("utf-8")
    wheel = [
        "Wheel-Version: 1.0",
        "Generator: zvqrn wheel_backend",
        f"Root-Is-Purelib: {'true' if platform == 'any' else 'false'}",
        f"Tag: py3-none-{platform}",
        "",
    ]
    files[f"{information}/WHEEL"] = "\n".join(wheel).encode("utf-8")
    for text in ("LICENCE.md", "THIRD-PARTY-NOTICES.txt"):
        path = (root and find(root, text)) or HERE / "../.." / text
        if path.is_file():
            files[f"{information}/{text}"] = path.read_bytes()
    record = []
    for name, data in files.items():
        digest = base64.urlsafe_b64encode(hashlib.sha256(data).digest()).rstrip(b"=").decode()
        record.append(f"{name},sha256={digest},{len(data)}")
    record += [f"{information}/RECORD,,", ""]
    files[f"{information}/RECORD"] = "\n".join(record).encode("utf-8")

    # A zip file knows no time before 1980.
    when = time.gmtime(max(int(os.environ.get("SOURCE_DATE_EPOCH", "0")), 315532800))[:6]
    wheel_name = f"{settings['name']}-{version}-py3-none-{platform}.whl"
    with zipfile.ZipFile(Path(folder) / wheel_name, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in files.items():
            entry = zipfile.ZipInfo(name, when)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = (0o100755 if name.endswith(".so") else 0o100644) << 16
            archive.writestr(entry, data)
    return wheel_name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """What pip calls."""
    root = (config_settings or {}).get("root")
    return make_wheel(wheel_directory, Path(root) if root else None)


if __name__ == "__main__":
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    for argument in sys.argv[2:]:
        print(make_wheel(sys.argv[1], Path(argument)))
