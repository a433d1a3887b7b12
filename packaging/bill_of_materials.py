#!/usr/bin/env python3
"""Writes what a package is made of, for package.sh: zvqrn.spdx.json (SPDX 2.3), with every file, and
THIRD-PARTY-NOTICES.txt, with the licences of others' software that is inside the programs.

    bill_of_materials.py PACKAGE VERSION
    bill_of_materials.py --notices FOLDER       only the notices, for the tools for Linux

PACKAGE is the folder of an unpacked package.  What it was built with is asked of the Debian packages
that are installed here.  SOURCE_DATE_EPOCH is the time that it states.
"""

import hashlib
import json
import os
import subprocess
import sys
import time
import uuid
from pathlib import Path

OWN_LICENCE = "LicenseRef-none-granted-yet"
BILL, NOTICES, SUMS = "zvqrn.spdx.json", "THIRD-PARTY-NOTICES.txt", "SHA256SUMS"

# Name, Debian package, licence, and the programs that it is inside of.
TOOLS = ("quorin-host", "quorin-scanner")
HEADERS = [
    ("CLI11", "libcli11-dev", "BSD-3-Clause", TOOLS),
    ("JSON for Modern C++", "nlohmann-json3-dev", "MIT", TOOLS),
]
# A program for Windows has the libraries of its compiler inside.
ALL = (*TOOLS, "ZVQRN", "DRAVLIB")
RUN_TIME = [
    ("MinGW-w64 runtime", "mingw-w64-common", "ZPL-2.1", ALL),
    ("libgcc and libstdc++", "gcc-mingw-w64-base", "GPL-3.0-or-later WITH GCC-exception-3.1", ALL),
]


def debian_version(package):
    command = ["dpkg-query", "-W", "-f", "${Version}", package]
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def write_notices(root, parts):
    lines = [
        "What is inside the programs of this package and is others' work, and what its authors ask to",
        "be told with it.  What may be done with the rest stands in LICENCE.md.",
    ]
    for name, package, licence, programs in parts:
        title = f"{name} {debian_version(package)} ({licence}), in {', '.join(programs)}"
        lines += ["", "=" * 98, title, "=" * 98, ""]
        if "GCC-exception" in licence:
            lines.append(
                "The exception lets programs that were made with the compiler be passed on freely."
            )
        else:
            text = Path(f"/usr/share/doc/{package}/copyright").read_text(encoding="utf-8")
            lines += [line.rstrip() for line in text.splitlines()]
    (root / NOTICES).write_text("\n".join(lines) + "\n", encoding="utf-8")


def package_entry(identifier, name, version, licence, **more):
    return {
        "SPDXID": identifier,
        "name": name,
        "versionInfo": version,
        "downloadLocation": "NOASSERTION",
        "licenseConcluded": licence,
        "licenseDeclared": licence,
        "copyrightText": "NOASSERTION",
        **more,
    }


def write_bill(root, version, parts):
    paths = sorted(
        path.relative_to(root).as_posix()
        for path in root.rglob("*")
        if path.is_file() and not path.is_symlink() and path.name not in (BILL, SUMS)
    )
    files, relationships, digests = [], [], []
    for number, path in enumerate(paths):
        data = (root / path).read_bytes()
        digests.append(hashlib.sha1(data).hexdigest())
        files.append(
            {
                "SPDXID": f"SPDXRef-File-{number}",
                "fileName": f"./{path}",
                "checksums": [
                    {"algorithm": "SHA1", "checksumValue": digests[-1]},
                    {"algorithm": "SHA256", "checksumValue": hashlib.sha256(data).hexdigest()},
                ],
                "licenseConcluded": "NOASSERTION" if path == NOTICES else OWN_LICENCE,
                "copyrightText": "NOASSERTION",
            }
        )
    code = hashlib.sha1("".join(sorted(digests)).encode()).hexdigest()
    packages = [
        package_entry(
            "SPDXRef-ZVQRN",
            root.name,
            version,
            OWN_LICENCE,
            filesAnalyzed=True,
            hasFiles=[file["SPDXID"] for file in files],
            packageVerificationCode={
                "packageVerificationCodeValue": code,
                "packageVerificationCodeExcludedFiles": [f"./{BILL}", f"./{SUMS}"],
            },
        )
    ]
    for number, (name, package, licence, programs) in enumerate(parts):
        identifier = f"SPDXRef-Part-{number}"
        packages.append(
            package_entry(identifier, name, debian_version(package), licence, filesAnalyzed=False)
        )
        for file in files:
            # As a program is called, with or without an ending; in share/ are texts for it.
            if not file["fileName"].startswith("./share/") and file["fileName"].split("/")[-1] in {
                p + end for p in programs for end in ("", ".exe", ".dll")
            }:
                relationships.append((file["SPDXID"], "STATIC_LINK", identifier))
    relationships.append(("SPDXRef-DOCUMENT", "DESCRIBES", "SPDXRef-ZVQRN"))
    created = time.gmtime(int(os.environ.get("SOURCE_DATE_EPOCH", time.time())))
    bill = {
        "spdxVersion": "SPDX-2.3",
        "dataLicense": "CC0-1.0",
        "SPDXID": "SPDXRef-DOCUMENT",
        "name": root.name,
        "documentNamespace": uuid.uuid5(uuid.NAMESPACE_OID, f"{root.name} {code}").urn,
        "creationInfo": {
            "created": time.strftime("%Y-%m-%dT%H:%M:%SZ", created),
            "creators": ["Tool: bill_of_materials.py"],
        },
        "packages": packages,
        "files": files,
        "relationships": [
            {"spdxElementId": element, "relationshipType": kind, "relatedSpdxElement": other}
            for element, kind, other in relationships
        ],
        "hasExtractedLicensingInfos": [
            {
                "licenseId": OWN_LICENCE,
                "name": "No licence granted yet",
                "extractedText": (root / "LICENCE.md").read_text(encoding="utf-8"),
            }
        ],
    }
    (root / BILL).write_text(
        json.dumps(bill, indent=1, ensure_ascii=False) + "\n", encoding="utf-8"
    )


def main():
    if sys.argv[1] == "--notices":
        write_notices(Path(sys.argv[2]), HEADERS)
        return
    root, version = Path(sys.argv[1]), sys.argv[2]
    parts = HEADERS + (RUN_TIME if list(root.glob("bin/*.exe")) else [])
    write_notices(root, parts)
    write_bill(root, version, parts)


if __name__ == "__main__":
    main()
