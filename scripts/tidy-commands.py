#!/usr/bin/env python3
"""Writes a compilation database for clang-tidy that contains every source once.

usage: tidy-commands.py OUTPUT_FOLDER BUILD_FOLDER [WINDOWS_BUILD_FOLDER]

BUILD_FOLDER was built with clang. Its unity sources are analysed as such, which takes a tenth of the time. A source of
several targets occurs once; precompiled headers are omitted. WINDOWS_BUILD_FOLDER was built with mingw-w64; its
Windows-only sources are added, with clang as the cross compiler.
"""
import json
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

INCLUDE = re.compile(r'^#include "(.*\.cpp)"$', re.MULTILINE)

# The static analyzer skips functions of included files, except for sources that a file with this text in its name includes.
UNITY_NAME = "UnifiedSource"

# Folders with a configuration of their own.
CONFIGURED = ["tests", "tools/nuveqcam"]


def commands_of(build):
    """Yields (file, sources that it includes, arguments, folder) for each compilation of the build."""
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        arguments = shlex.split(entry["command"])
        if file.name.startswith("cmake_pch"):
            continue
        if "Unity" in file.parts:
            yield file, INCLUDE.findall(file.read_text()), arguments, entry["directory"]
        else:
            yield file, [str(file)], arguments, entry["directory"]


def for_windows(arguments):
    """Converts a mingw-w64 command to clang: removes options that clang does not know or that break unity sources."""
    includes = subprocess.run([arguments[0], "-E", "-x", "c++", "-v", "/dev/null"], capture_output=True, text=True,
                              check=True).stderr
    folders = re.search(r"#include <...> search starts here:\n(.*?)End of search", includes, re.DOTALL)[1].split()
    # clang needs its own intrinsics instead of the compiler's.
    folders = [folder for folder in folders if not re.search(r"/lib/gcc/[^/]+/[^/]+/include(-fixed)?$", folder)]
    kept = [a for a in arguments[1:] if a not in ("-fno-keep-inline-dllexport", "-Winvalid-pch", "-Wshadow")]
    # clang does not have GCC's parameters and cannot read the precompiled header; the sources include what they use.
    for at in reversed([i for i, a in enumerate(kept)
                        if a == "--param" or (a == "-include" and "cmake_pch" in kept[i + 1])]):
        del kept[at:at + 2]
    return (["clang++", "--target=x86_64-w64-windows-gnu", "-nostdinc++"] + kept +
            [word for folder in folders for word in ("-isystem", folder)])


def windows_only(build, seen):
    """Yields (file, arguments, folder) for each source of the product that is compiled only for Windows."""
    for file, members, arguments, folder in commands_of(build):
        for member in map(pathlib.Path, members):
            if member.suffix == ".cpp" and str(member) not in seen and "tests" not in member.parts:
                # Other arguments that contain the file's name are those of its output.
                kept = [a for a in arguments if a == str(file) or file.name not in a]
                yield member, [str(member) if a == str(file) else a for a in kept], folder


def make_unity_sources(output, entries):
    """Writes one unity source for each folder of a target, and returns their commands."""
    groups = {}
    for file, arguments, folder in entries:
        common = tuple(a for a in arguments if a != str(file))
        groups.setdefault((common, file.parent, folder), {})[file] = arguments
    chosen = {}
    for number, ((_, _, folder), sources) in enumerate(sorted(groups.items(), key=lambda group: str(group[0][1]))):
        first, arguments = next(iter(sources.items()))
        unity = write_unity_source(output, f"windows_{number}", sorted(sources))
        chosen[unity] = ([str(unity) if a == str(first) else a for a in for_windows(arguments)], folder)
    return chosen


def write_unity_source(output, name, sources):
    """Writes a source that includes others, and returns its path, with their folder's configuration."""
    part = next((part for part in CONFIGURED if any(f"/{part}/" in source for source in map(str, sources))), "")
    unity = output / part / f"{UNITY_NAME}_{name}.cpp"
    unity.write_text("".join(f'#include "{source}"\n' for source in sources))
    return unity


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    output = pathlib.Path(sys.argv[1]).resolve()
    build = pathlib.Path(sys.argv[2])
    shutil.rmtree(output, ignore_errors=True)
    for part in CONFIGURED:
        (output / part).mkdir(parents=True)
        shutil.copy(f"{part}/.clang-tidy", output / part)
    chosen = {}
    seen = set()
    for number, (file, members, arguments, folder) in enumerate(commands_of(build)):
        added = [member for member in members if member not in seen]
        if not added:
            continue
        seen.update(added)
        if members == [str(file)]:
            chosen[file] = (arguments, folder)
        else:
            unity = write_unity_source(output, number, added)
            chosen[unity] = ([str(unity) if a == str(file) else a for a in arguments], folder)
    if len(sys.argv) == 4:
        chosen.update(make_unity_sources(output, windows_only(pathlib.Path(sys.argv[3]), seen)))
    (output / "compile_commands.json").write_text(json.dumps(
        [{"file": str(file), "directory": folder, "arguments": arguments}
         for file, (arguments, folder) in chosen.items()], indent=1))
    print(f"{len(chosen)} compilations")


main()
