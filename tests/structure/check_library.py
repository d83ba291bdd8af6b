#!/usr/bin/env python3
"""Holds a built library against its public header and its checked-in list of exports.

Checks that it exports exactly what the header declares and the list names, that it needs no library beyond the ones
known here (above all no C++ run-time library), and that none of its object files has a static initialiser.
Prints one line per fault; exits 1 when there is any.
"""
import argparse
import re
import subprocess
import sys
from pathlib import Path

MAY_NEED = {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2", "ld-linux-armhf.so.3",
            "libkelplatform.so.1", "libEGL.so.1", "libGLESv2.so.2", "libfreetype.so.6"}
INITIALISERS = {".init_array", ".ctors", ".preinit_array"}


def readelf(program, option, path):
    command = [program, option, "--wide", path]
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def exported_names(program, library):
    """Names of the defined dynamic symbols, without the version node's own."""
    names = set()
    for line in readelf(program, "--dyn-syms", library).splitlines():
        fields = line.split()
        if len(fields) == 8 and fields[3] in ("FUNC", "OBJECT", "IFUNC", "TLS") and fields[6] not in ("UND", "ABS"):
            names.add(fields[7].split("@")[0])
    return names


def declared_names(header):
    """Names that the header declares with KEL_API: functions, function results and objects."""
    text = re.sub(r"/\*.*?\*/", "", Path(header).read_text(encoding="utf-8"), flags=re.DOTALL)
    text = re.sub(r"^[ \t]*#.*$", "", text, flags=re.MULTILINE)
    return {re.match(r"[^(;[]*?(\w+)\s*[(;[]", declaration).group(1) for declaration in text.split("KEL_API")[1:]}


def compare(what, found, other, wanted):
    for name in sorted(found - wanted):
        yield f"{name}: {what}, not {other}"
    for name in sorted(wanted - found):
        yield f"{name}: {other}, not {what}"


def faults_of(arguments):
    exports = exported_names(arguments.readelf, arguments.library)
    listed = set(Path(arguments.exports).read_text(encoding="utf-8").split())
    yield from compare("exported", exports, "listed (scripts/update-exports.sh)", listed)
    yield from compare("exported", exports, "declared in the header", declared_names(arguments.header))

    dynamic = readelf(arguments.readelf, "--dynamic", arguments.library)
    if re.findall(r"\(SONAME\).*\[(.*)\]", dynamic) != [arguments.soname]:
        yield f"the library's name is not {arguments.soname}"
    for name in set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic)) - MAY_NEED:
        yield f"the library must not need {name}"

    for path in arguments.objects:
        sections = set(re.findall(r"\[ *\d+\] (\S+)", readelf(arguments.readelf, "--sections", path)))
        for name in {section for section in sections if any(section.startswith(i) for i in INITIALISERS)}:
            yield f"{path}: static initialiser in {name}"


def main():
    parser = argparse.ArgumentParser()
    for name in ("readelf", "library", "soname", "header", "exports"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--objects", nargs="+", required=True)
    parser.add_argument("--write-exports", action="store_true", help="write the list instead of checking anything")
    arguments = parser.parse_args()
    if arguments.write_exports:
        names = sorted(exported_names(arguments.readelf, arguments.library))
        Path(arguments.exports).write_text("".join(f"{name}\n" for name in names), encoding="utf-8")
        return
    faults = list(faults_of(arguments))
    print("\n".join(faults) or "the library is as it should be")
    sys.exit(1 if faults else 0)


main()
