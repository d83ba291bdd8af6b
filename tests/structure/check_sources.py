#!/usr/bin/env python3
"""Checks what the sources may include, how they are named and how long they are.

usage: check_sources.py PROJECT_FOLDER

The modules of libkel see the public header, src/base, their own folder, the platform's headers and a part of
the standard library; the platform layer never sees libkel. Prints one line per fault; exits 1 when there is any.
"""
import re
import sys
from pathlib import Path

MODULES = ("base", "buffer", "queue", "audio", "gles", "text", "image", "graph")
MAX_LINES = 450
LONG_BY_NATURE = {"include/kel.h"}  # the whole interface in one header

# The standard library of libkel: what needs neither exceptions nor a run-time library.
C_HEADERS = {"cerrno", "cfloat", "cinttypes", "climits", "cmath", "cstdarg", "cstddef", "cstdint", "cstdio", "cstdlib",
             "cstring", "ctime", "dirent.h", "errno.h", "fcntl.h", "pthread.h", "sched.h", "sys/stat.h", "sys/types.h",
             "time.h", "unistd.h"}
CXX_HEADERS = {"algorithm", "array", "bit", "compare", "concepts", "initializer_list", "iterator", "limits", "new",
               "numbers", "numeric", "optional", "span", "string_view", "tuple", "type_traits", "utility"}
PROCESSOR_HEADERS = {"arm_neon.h", "cpuid.h", "emmintrin.h", "immintrin.h"}
KHRONOS_HEADERS = re.compile(r"(EGL|GLES2|KHR)/\w+\.h")
FREETYPE_HEADERS = re.compile(r"ft2build\.h|FT_\w+_H|freetype/\w+\.h")

INCLUDE = re.compile(r'^[ \t]*#[ \t]*include[ \t]*(?:<([^>]+)>|"([^"]+)"|(\w+))', re.MULTILINE)


def quoted_target(root, path, name):
    """The file that a quoted include names, relative to the project, or None."""
    for base in (root / "src",):
        target = (base / name).resolve()
        if target.is_file() and target.is_relative_to(root):
            return target.relative_to(root)
    return None


def allowed_in_module(root, path, module, system, quoted, macro):
    if quoted:
        target = quoted_target(root, path, quoted)
        return target is not None and target.suffix == ".hpp" and target.parts[0] == "src" and target.parts[1] in ("base", module)
    name = system or macro
    if FREETYPE_HEADERS.fullmatch(name):
        return module == "text"
    return (name == "kel.h" or name in C_HEADERS | CXX_HEADERS | PROCESSOR_HEADERS
            or KHRONOS_HEADERS.fullmatch(name) is not None
            or (root / "platform/include" / name).is_file())


def allowed_in_platform(root, path, system, quoted):
    if not quoted:
        return system != "kel.h"
    for base in (path.parent, root / "platform", root / "platform/include"):
        target = (base / quoted).resolve()
        if target.is_file():
            return target.is_relative_to(root / "platform")
    return False


def faults_of(root, path):
    relative = path.relative_to(root)
    folder = relative.parts[0]
    module = relative.parts[1] if folder == "src" else None
    text = path.read_text(encoding="utf-8")
    lines = text.count("\n")
    if lines > MAX_LINES and str(relative) not in LONG_BY_NATURE:
        yield f"{relative}: {lines} lines, more than {MAX_LINES}"
    if module and path.suffix not in (".cpp", ".hpp"):
        yield f"{relative}: a module holds .cpp and .hpp files only"
    for match in INCLUDE.finditer(text):
        system, quoted, macro = match.groups()
        line = text.count("\n", 0, match.start()) + 1
        if module:
            allowed = allowed_in_module(root, path, module, system, quoted, macro)
        elif folder == "platform":
            allowed = allowed_in_platform(root, path, system, quoted)
        else:
            allowed = True
        if not allowed:
            yield f"{relative}:{line}: {folder} must not include {system or quoted or macro}"


def main():
    root = Path(sys.argv[1]).resolve()
    files = [path for path in sorted(root.rglob("*"))
             if path.suffix in (".c", ".h", ".cpp", ".hpp", ".py") and path.is_file()
             and not {"build", ".git"} & set(path.relative_to(root).parts)]
    if not any(path.relative_to(root).parts[0] == "src" for path in files):
        sys.exit(f"no sources in {root}")
    faults = [fault for path in files for fault in faults_of(root, path)]
    print("\n".join(faults) or f"{len(files)} files keep the rules")
    sys.exit(1 if faults else 0)


main()
