#!/usr/bin/env python3
"""Writes compile commands for clang-tidy: every source once.

usage: tidy-commands.py OUTPUT_FOLDER BUILD_FOLDER [WINDOWS_BUILD_FOLDER]

BUILD_FOLDER was built with clang. Sources that were compiled as one there get a command of their own, sources of
several targets count once, and precompiled headers are left out. From WINDOWS_BUILD_FOLDER, which mingw-w64 built,
come the sources that only Windows has, with clang as a compiler for that system.
"""
import json
import pathlib
import re
import shlex
import subprocess
import sys

INCLUDE = re.compile(r'^#include "(.*\.cpp)"$', re.MULTILINE)


def commands_of(build):
    """Yields (source, arguments, folder) for each source, in the order of the build's commands."""
    for entry in json.loads((build / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        arguments = shlex.split(entry["command"])
        if source.name.startswith("cmake_pch"):
            continue
        members = [source]
        if "Unity" in source.parts:
            members = [pathlib.Path(name) for name in INCLUDE.findall(source.read_text())]
        for member in members:
            yield member, [str(member) if a == str(source) else a for a in arguments], entry["directory"]


def for_windows(arguments):
    """The command of a mingw-w64 compiler as one of clang: without what only the former knows."""
    includes = subprocess.run([arguments[0], "-E", "-x", "c++", "-v", "/dev/null"], capture_output=True, text=True,
                              check=True).stderr
    folders = re.search(r"#include <...> search starts here:\n(.*?)End of search", includes, re.DOTALL)[1].split()
    # clang's own intrinsics have to come before the compiler's.
    folders = [folder for folder in folders if not re.search(r"/lib/gcc/[^/]+/[^/]+/include(-fixed)?$", folder)]
    kept = [a for a in arguments[1:] if a not in ("-fno-keep-inline-dllexport", "-Winvalid-pch")]
    for at in reversed([i for i, a in enumerate(kept) if a == "-include" and "cmake_pch" in kept[i + 1]]):
        # The precompiled header of the other compiler; the sources include what they use.
        del kept[at:at + 2]
    return (["clang++", "--target=x86_64-w64-windows-gnu", "-nostdinc++"] + kept +
            [word for folder in folders for word in ("-isystem", folder)])


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    output = pathlib.Path(sys.argv[1])
    chosen = {}
    for source, arguments, folder in commands_of(pathlib.Path(sys.argv[2])):
        chosen.setdefault(source, (arguments, folder))
    if len(sys.argv) == 4:
        for source, arguments, folder in commands_of(pathlib.Path(sys.argv[3])):
            if source.suffix == ".cpp" and source not in chosen:
                chosen[source] = (for_windows(arguments), folder)
    output.mkdir(parents=True, exist_ok=True)
    (output / "compile_commands.json").write_text(json.dumps(
        [{"file": str(source), "directory": folder, "arguments": arguments}
         for source, (arguments, folder) in chosen.items()], indent=1))
    print(f"{len(chosen)} sources")


main()
