"""All shipped binaries have the exploit mitigations of the compiler and the linker."""

import json
import platform
import re
from pathlib import Path

from hardening import (WINDOWS_BITS, missing_in_elf, missing_in_own_elf, missing_in_own_pe, missing_in_pe,
                       needs_control_flow_property)
from package_tool import BUILD, C_COMPILER, IS_WINDOWS, SOURCE, VERSION, binaries, result_of, run

# Binaries of this project, and whether they call functions that have a fortified variant.
OWN = ({"libnuveqcamerahandler.dll": False, "MultiMediaEncoder.dll": False, "nuveqcam.exe": False} if IS_WINDOWS else
       {f"libnuveqcamerahandler.so.{VERSION}": True, "libMultiMediaEncoder.so": False, "libnuveqplatform.so": True,
        "libnuveqsimulated.so": False, "nuveqcam": True})
MIN_BINARIES = 10 if IS_WINDOWS else 5
# Options that disable all mitigations.
WEAK_COMPILE_OPTIONS = ["-O2", "-fno-stack-protector", "-U_FORTIFY_SOURCE"]
WEAK_LINK_OPTIONS = (
    ["-Wl,--disable-dynamicbase,--disable-nxcompat,--disable-high-entropy-va,--disable-reloc-section"]
    if IS_WINDOWS else
    ["-fPIC", "-fcf-protection=none", "-Wl,-z,norelro,-z,lazy,-z,execstack"])
WEAK_CODE = """
#include <string.h>
int Weak(const char *data, int size) { char text[64]; memcpy(text, data, size); return text[size / 2]; }
"""


def lacking(missing):
    return [f"{path.name} lacks {', '.join(names)}" for path, names in missing.items() if names]


def test_shipped_binaries_are_linked_with_all_mitigations():
    assert len(binaries()) >= MIN_BINARIES
    find_missing = missing_in_pe if IS_WINDOWS else missing_in_elf
    assert lacking({path: find_missing(path) for path in binaries()}) == []


def test_own_binaries_are_compiled_with_all_mitigations():
    found = {path.name: path for path in binaries() if path.name in OWN}
    assert set(found) == set(OWN)
    if IS_WINDOWS:
        # The packaged ones are stripped.
        assert lacking({path: missing_in_own_pe(path) for path in (BUILD / "bin" / name for name in found)}) == []
    else:
        assert lacking({path: missing_in_own_elf(path, OWN[name]) for name, path in found.items()}) == []


def sources_of(command):
    """The sources that a command of the compilation database compiles."""
    path = Path(command["file"])
    return [Path(name) for name in re.findall(r'^#include "(.*)"$', path.read_text(), re.M)] \
        if "Unity" in path.parts else [path]


def test_own_sources_are_compiled_with_all_mitigations():
    wanted = ["-fstack-protector-strong"]
    if not IS_WINDOWS:
        wanted.append("_FORTIFY_SOURCE=[23]")
    if not IS_WINDOWS and platform.machine() == "x86_64":
        wanted += ["-fstack-clash-protection", "-fcf-protection=full"]
    missing = {}
    for command in json.loads((BUILD / "compile_commands.json").read_text()):
        for path in sources_of(command):
            # The stack protector cannot protect its own functions.
            if path.suffix == ".rc" or path.name == "StackProtector.cpp" or not path.is_relative_to(SOURCE):
                continue
            if path.relative_to(SOURCE).parts[0] in ("encoder", "platform", "src", "tools"):
                missing[path] = [option for option in wanted if not re.search(f"{option}( |$)", command["command"])]
    assert len(missing) > 20
    assert lacking(missing) == []


def build_weak(scratch, name, *options):
    source = scratch / "weak.c"
    source.write_text(WEAK_CODE)
    binary = scratch / name
    run(C_COMPILER, source, *WEAK_COMPILE_OPTIONS, *WEAK_LINK_OPTIONS, *options, "-o", binary)
    return binary


def test_each_missing_mitigation_is_found(scratch):
    if IS_WINDOWS:
        linked = list(WINDOWS_BITS.values())
        assert missing_in_own_pe(build_weak(scratch, "weak.dll", "-shared")) == [*linked, "stack protector"]
        # The linker always adds relocations to a DLL.
        assert missing_in_pe(build_weak(scratch, "weak.exe", "-DWeak=main", "-w")) == [*linked, "relocations"]
        return
    linked = ["read-only relocations", "immediate binding", "non-executable stack"]
    if needs_control_flow_property():
        linked.append("control-flow protection")
    assert (missing_in_own_elf(build_weak(scratch, "weak.so", "-shared"), True) ==
            [*linked, "stack protector", "fortified functions", "endbr64 in Weak"])
    program = build_weak(scratch, "weak", "-fno-pic", "-no-pie", "-DWeak=main", "-w")
    assert "position-independent executable" in missing_in_elf(program)


def test_overrun_of_a_stack_array_ends_the_process(scratch):
    program = BUILD / "bin" / ("overrun.exe" if IS_WINDOWS else "overrun")
    assert result_of(scratch, program, "8") == (0, "returned")
    code, output = result_of(scratch, program, "64")
    assert code != 0
    assert "returned" not in output
