#!/usr/bin/env python3
"""Makes the NuGet package, with nothing but Python and Mono's compiler.

    nuget_package.py FOLDER LINUX X86 X64

compiles the assembly and makes the package in FOLDER, of the three unpacked packages for host
programmers; prints its name.  The same files give the same bytes.
"""

import os
import re
import subprocess
import sys
import tempfile
import time
import zipfile
from pathlib import Path
from xml.sax.saxutils import escape

HERE = Path(__file__).resolve().parent
ID = "Zvqrn"
# One assembly serves both: it uses nothing that .NET Standard 2.0 lacks.
FRAMEWORKS = {"net46": ".NETFramework4.6", "netstandard2.0": ".NETStandard2.0"}
MIME = {"rels": "application/vnd.openxmlformats-package.relationships+xml"}


def project_version():
    """The version of the library, from where it is written."""
    text = (HERE / "../../CMakeLists.txt").read_text(encoding="utf-8")
    return re.search(r"^project\(ZVQRN VERSION ([0-9.]+)", text, re.MULTILINE)[1]


def compiled(version):
    """The assembly and its documentation, compiled as for the project file."""
    with tempfile.TemporaryDirectory() as folder:
        information = Path(folder, "Version.cs")
        information.write_text(
            'using System.Reflection;\n[assembly: AssemblyTitle("Zvqrn")]\n'
            f'[assembly: AssemblyVersion("{version}.0")]\n'
            f'[assembly: AssemblyFileVersion("{version}.0")]\n',
            encoding="utf-8",
        )
        assembly, documentation = Path(folder, f"{ID}.dll"), Path(folder, f"{ID}.xml")
        subprocess.run(
            ["mcs", "-target:library", "-optimize", "-define:TRACE", "-warnaserror", "-nowarn:1591",
             f"-out:{assembly}", f"-doc:{documentation}", str(information), *map(str, sorted(HERE.glob("Zvqrn/*.cs")))],
            check=True,
            stdout=sys.stderr,
        )
        return assembly.read_bytes(), documentation.read_bytes()


def manifest(version):
    """What NuGet reads first.  Nothing else is needed, on any framework."""
    groups = "".join(f'<group targetFramework="{name}" />' for name in FRAMEWORKS.values())
    about = "Lets network scanners send push-scan requests to this PC, and answers them."
    return (
        '<?xml version="1.0" encoding="utf-8"?>\n'
        '<package xmlns="http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd">\n'
        "  <metadata>\n"
        f"    <id>{ID}</id>\n    <version>{version}</version>\n    <authors>ZVQRN maintainers</authors>\n"
        f"    <description>{escape(about)}</description>\n"
        '    <license type="file">LICENCE.md</license>\n'
        "    <requireLicenseAcceptance>false</requireLicenseAcceptance>\n"
        "    <readme>README.md</readme>\n    <tags>scanner push-scan native</tags>\n"
        f"    <dependencies>{groups}</dependencies>\n"
        "  </metadata>\n</package>\n"
    ).encode("utf-8")


def contents(version, roots):
    """The package's files by their names in it."""
    files = {f"{ID}.nuspec": manifest(version)}
    assembly, documentation = compiled(version)
    for framework in FRAMEWORKS:
        files[f"lib/{framework}/{ID}.dll"] = assembly
        files[f"lib/{framework}/{ID}.xml"] = documentation
    files[f"build/{ID}.targets"] = (HERE / f"{ID}.targets").read_bytes()
    for runtime, root in roots.items():
        prefix, folder, ending = ("lib", "lib", "so") if runtime == "linux-x64" else ("", "bin", "dll")
        native, utility = f"{prefix}ZVQRN.{ending}", f"{prefix}DRAVLIB.{ending}"
        files[f"runtimes/{runtime}/native/{native}"] = (root / folder / native).read_bytes()
        for name in (utility, "DRAVLIB.txt"):
            files[f"tools/stand-in/{runtime}/{name}"] = (root / folder / name).read_bytes()
    readme = (HERE / "README.md").read_text(encoding="utf-8")
    files["README.md"] = re.sub(r"(?m)^<!-- try: .* -->\n", "", readme).encode("utf-8")
    for name in ("LICENCE.md", "THIRD-PARTY-NOTICES.txt"):
        files[name] = (roots["win-x86"] / name).read_bytes()
    relationship = "http://schemas.microsoft.com/packaging/2010/07/manifest"
    files["_rels/.rels"] = (
        '<?xml version="1.0" encoding="utf-8"?>\n'
        '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
        f'<Relationship Type="{relationship}" Target="/{ID}.nuspec" Id="R1" /></Relationships>\n'
    ).encode("utf-8")
    endings = sorted({name.rpartition(".")[2] for name in files})
    types = "".join(
        f'<Default Extension="{ending}" ContentType="{MIME.get(ending, "application/octet")}" />'
        for ending in endings
    )
    files["[Content_Types].xml"] = (
        '<?xml version="1.0" encoding="utf-8"?>\n'
        '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
        f"{types}</Types>\n"
    ).encode("utf-8")
    return files


def main():
    folder, linux, x86, x64 = map(Path, sys.argv[1:])
    version = project_version()
    files = contents(version, {"linux-x64": linux, "win-x86": x86, "win-x64": x64})
    moment = time.gmtime(max(int(os.environ.get("SOURCE_DATE_EPOCH", "0")), 315532800))[:6]
    name = f"{ID}.{version}.nupkg"
    with zipfile.ZipFile(folder / name, "w", zipfile.ZIP_DEFLATED) as archive:
        for path in sorted(files):
            entry = zipfile.ZipInfo(path, moment)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            archive.writestr(entry, files[path])
    print(name)


if __name__ == "__main__":
    main()
