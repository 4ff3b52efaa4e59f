"""All shipped binaries have the exploit mitigations of the compiler and the linker."""

import json
import os
import platform
import re
import subprocess
import unittest
from pathlib import Path

from hardening import (WINDOWS_BITS, missing_in_elf, missing_in_own_elf, missing_in_own_pe, missing_in_pe,
                       needs_control_flow_property)
from package_tool import (BUILD, C_COMPILER, FOLDER, HAS_TOOL, PACKAGE, SOURCE, TIMEOUT, TOOLCHAIN, PackageTest,
                          run)

IS_WINDOWS = bool(TOOLCHAIN)
# Binaries of this project, and whether they call functions that have a fortified variant.
OWN = ({"libnuveqcamerahandler.dll": False, "MultiMediaEncoder.dll": False, "nuveqcam.exe": False} if IS_WINDOWS else
       {"libnuveqcamerahandler.so": True, "libMultiMediaEncoder.so": False, "libnuveqplatform.so": True,
        "libnuveqsimulated.so": False, "nuveqcam": True})
MIN_BINARIES = 6 if IS_WINDOWS else 5
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


def shipped():
    magic = b"MZ" if IS_WINDOWS else b"\x7fELF"
    return sorted(path for path in PACKAGE.rglob("*")
                  if path.is_file() and path.suffix not in (".a", ".md") and path.read_bytes()[:len(magic)] == magic)


class Hardening(PackageTest):
    def assert_nothing_missing(self, missing):
        self.assertEqual([f"{path.name} lacks {', '.join(names)}" for path, names in missing.items() if names], [])

    def test_shipped_binaries_are_linked_with_all_mitigations(self):
        self.assertGreaterEqual(len(shipped()), MIN_BINARIES)
        find_missing = missing_in_pe if IS_WINDOWS else missing_in_elf
        self.assert_nothing_missing({path: find_missing(path) for path in shipped()})

    def test_own_binaries_are_compiled_with_all_mitigations(self):
        found = {path.name: path for path in shipped() if path.name in OWN}
        self.assertEqual(set(found), {name for name in OWN if HAS_TOOL or Path(name).stem != "nuveqcam"})
        if IS_WINDOWS:
            unstripped = [BUILD / "bin" / name for name in found]
            self.assert_nothing_missing({path: missing_in_own_pe(path) for path in unstripped})
        else:
            self.assert_nothing_missing({path: missing_in_own_elf(path, OWN[name]) for name, path in found.items()})

    def test_own_sources_are_compiled_with_all_mitigations(self):
        wanted = ["-fstack-protector-strong"]
        if not IS_WINDOWS:
            wanted.append("_FORTIFY_SOURCE=[23]")
        if not IS_WINDOWS and platform.machine() == "x86_64":
            wanted += ["-fstack-clash-protection", "-fcf-protection=full"]
        missing = {}
        for command in json.loads((BUILD / "compile_commands.json").read_text()):
            path = Path(command["file"])
            # The stack protector cannot protect its own functions.
            if path.suffix == ".rc" or path.name == "StackProtector.cpp" or not path.is_relative_to(SOURCE):
                continue
            if path.relative_to(SOURCE).parts[0] in ("src", "platform", "tools"):
                missing[path] = [option for option in wanted if not re.search(f"{option}( |$)", command["command"])]
        self.assertGreater(len(missing), 20)
        self.assert_nothing_missing(missing)

    def build_weak(self, name, *options):
        source = self.scratch / "weak.c"
        source.write_text(WEAK_CODE)
        binary = self.scratch / name
        run(C_COMPILER, source, *WEAK_COMPILE_OPTIONS, *WEAK_LINK_OPTIONS, *options, "-o", binary)
        return binary

    def test_each_missing_mitigation_is_found(self):
        if IS_WINDOWS:
            linked = list(WINDOWS_BITS.values())
            self.assertEqual(missing_in_own_pe(self.build_weak("weak.dll", "-shared")), [*linked, "stack protector"])
            # The linker always adds relocations to a DLL.
            program = self.build_weak("weak.exe", "-DWeak=main", "-w")
            self.assertEqual(missing_in_pe(program), [*linked, "relocations"])
            return
        linked = ["read-only relocations", "immediate binding", "non-executable stack"]
        if needs_control_flow_property():
            linked.append("control-flow protection")
        self.assertEqual(missing_in_own_elf(self.build_weak("weak.so", "-shared"), True),
                         [*linked, "stack protector", "fortified functions", "endbr64 in Weak"])
        program = self.build_weak("weak", "-fno-pic", "-no-pie", "-DWeak=main", "-w")
        self.assertIn("position-independent executable", missing_in_elf(program))


class StackProtector(PackageTest):
    def run_overrun(self, *arguments):
        program = [str(BUILD / "bin" / ("overrun.exe" if IS_WINDOWS else "overrun")), *arguments]
        if IS_WINDOWS:
            program.insert(0, str(SOURCE / "scripts/wine.sh"))
        with open(self.scratch / "output", "wb") as writer:
            result = subprocess.run(program, stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.STDOUT,
                                    timeout=TIMEOUT, check=False,
                                    env={**os.environ, "NUVEQ_WINEPREFIX": str(FOLDER.parent / "wine")})
        return result.returncode, (self.scratch / "output").read_text(errors="replace").split()

    def test_overrun_of_a_stack_array_ends_the_process(self):
        self.assertEqual(self.run_overrun("8"), (0, ["returned"]))
        code, output = self.run_overrun("64")
        self.assertNotEqual(code, 0)
        self.assertNotIn("returned", output)


if __name__ == "__main__":
    unittest.main()
