#!/usr/bin/env python3
"""Writes compile commands for clang-tidy: every source once.

usage: tidy-commands.py OUTPUT_FOLDER BUILD_FOLDER [WINDOWS_BUILD_FOLDER]

BUILD_FOLDER was built with clang. Sources that are compiled as one there are looked at as one, which takes a tenth of
the time; sources of several targets count once, and precompiled headers are left out. From WINDOWS_BUILD_FOLDER, which
mingw-w64 built, come the sources that only Windows has, with clang as a compiler for that system.
"""
import json
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

INCLUDE = re.compile(r'^#include "(.*\.cpp)"$', re.MULTILINE)


# The static analyzer passes over functions of included files unless it is told otherwise.
AS_ONE = ["-Xclang", "-analyzer-opt-analyze-headers"]


def commands_of(build):
    """Yields (file, the sources in it, arguments, folder) for each compilation of the build."""
    for entry in json.loads((build / "compile_commands.json").read_text()):
        file = pathlib.Path(entry["file"])
        arguments = shlex.split(entry["command"])
        if file.name.startswith("cmake_pch"):
            continue
        if "Unity" in file.parts:
            yield file, INCLUDE.findall(file.read_text()), arguments + AS_ONE, entry["directory"]
        else:
            yield file, [str(file)], arguments, entry["directory"]


def for_windows(arguments):
    """The command of a mingw-w64 compiler as one of clang: without what only the former knows, and without what
    sources that are compiled as one would trip over."""
    includes = subprocess.run([arguments[0], "-E", "-x", "c++", "-v", "/dev/null"], capture_output=True, text=True,
                              check=True).stderr
    folders = re.search(r"#include <...> search starts here:\n(.*?)End of search", includes, re.DOTALL)[1].split()
    # clang's own intrinsics have to come before the compiler's.
    folders = [folder for folder in folders if not re.search(r"/lib/gcc/[^/]+/[^/]+/include(-fixed)?$", folder)]
    kept = [a for a in arguments[1:] if a not in ("-fno-keep-inline-dllexport", "-Winvalid-pch", "-Wshadow")]
    for at in reversed([i for i, a in enumerate(kept) if a == "-include" and "cmake_pch" in kept[i + 1]]):
        # The precompiled header of the other compiler; the sources include what they use.
        del kept[at:at + 2]
    return (["clang++", "--target=x86_64-w64-windows-gnu", "-nostdinc++"] + kept +
            [word for folder in folders for word in ("-isystem", folder)])


def as_one(output, entries):
    """The sources of a target, which are compiled alike, included into one file for each folder."""
    groups = {}
    for file, _, arguments, folder in entries:
        # What differs from source to source: its name and the names made of it.
        alike = tuple(a for a in arguments if file.name not in a)
        groups.setdefault((alike, file.parent, folder), {})[file] = arguments
    chosen = {}
    for number, ((_, _, folder), sources) in enumerate(sorted(groups.items(), key=lambda group: str(group[0][1]))):
        first, arguments = next(iter(sources.items()))
        unity = output / ("tests" if "tests" in first.parts else "") / f"windows_{number}.cpp"
        unity.write_text("".join(f'#include "{source}"\n' for source in sorted(sources)))
        chosen[unity] = ([str(unity.resolve()) if a == str(first) else a for a in for_windows(arguments)] + AS_ONE, folder)
    return chosen


def main():
    if len(sys.argv) not in (3, 4):
        sys.exit(__doc__)
    output = pathlib.Path(sys.argv[1]).resolve()
    build = pathlib.Path(sys.argv[2])
    for tests in (output / "tests", build / "tests"):
        # What holds for the tests' sources holds where they are compiled as one.
        tests.mkdir(parents=True, exist_ok=True)
        shutil.copy("tests/.clang-tidy", tests)
    chosen = {}
    seen = set()
    for file, members, arguments, folder in commands_of(build):
        if not seen.issuperset(members):
            chosen[file] = (arguments, folder)
            seen.update(members)
    if len(sys.argv) == 4:
        chosen.update(as_one(output, [entry for entry in commands_of(pathlib.Path(sys.argv[3]))
                                      if entry[0].suffix == ".cpp" and not seen.issuperset(entry[1])]))
    (output / "compile_commands.json").write_text(json.dumps(
        [{"file": str(file), "directory": folder, "arguments": arguments}
         for file, (arguments, folder) in chosen.items()], indent=1))
    print(f"{len(chosen)} compilations")


main()
