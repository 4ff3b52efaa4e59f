"""Every shipped binary has the protections against hostile data that compiler and linker offer."""

import json
import os
import platform
import re
import subprocess
import unittest
from pathlib import Path

from hardening import (WINDOWS_BITS, lacks_of_elf, lacks_of_own_elf, lacks_of_own_pe, lacks_of_pe,
                       needs_control_flow_property)
from package_tool import BUILD, HAS_TOOL, PACKAGE, SOURCE, TOOLCHAIN, PackageTest, run

IS_WINDOWS = bool(TOOLCHAIN)
# What this project compiles itself, and whether it makes calls that a checked function serves.
OWN = ({"libnuveqcamerahandler.dll": False, "MultiMediaEncoder.dll": False, "nuveqcam.exe": False} if IS_WINDOWS else
       {"libnuveqcamerahandler.so": True, "libMultiMediaEncoder.so": False, "libnuveqplatform.so": True,
        "libnuveqsimulated.so": False, "nuveqcam": True})
LEAST_BINARIES = 6 if IS_WINDOWS else 5
# Nothing of all this.
WEAK_COMPILING = ["-O2", "-fno-stack-protector", "-U_FORTIFY_SOURCE"]
WEAK_LINKING = (["-Wl,--disable-dynamicbase,--disable-nxcompat,--disable-high-entropy-va,--disable-reloc-section"]
                if IS_WINDOWS else
                ["-fPIC", "-fcf-protection=none", "-Wl,-z,norelro,-z,lazy,-z,execstack"])
WEAK_CODE = """
#include <string.h>
int Weak(const char *data, int size) { char text[64]; memcpy(text, data, size); return text[size / 2]; }
"""


def shipped():
    marks = b"MZ" if IS_WINDOWS else b"\x7fELF"
    return sorted(path for path in PACKAGE.rglob("*")
                  if path.is_file() and path.suffix not in (".a", ".md") and path.read_bytes()[:len(marks)] == marks)


class Hardening(PackageTest):
    def assert_none_lacks(self, lacks):
        self.assertEqual([f"{path.name} lacks {', '.join(missing)}" for path, missing in lacks.items() if missing], [])

    def test_every_shipped_binary_is_linked_with_all_protections(self):
        self.assertGreaterEqual(len(shipped()), LEAST_BINARIES)
        self.assert_none_lacks({path: (lacks_of_pe if IS_WINDOWS else lacks_of_elf)(path) for path in shipped()})

    def test_the_projects_own_are_compiled_with_all_protections(self):
        found = {path.name: path for path in shipped() if path.name in OWN}
        self.assertEqual(set(found), {name for name in OWN if HAS_TOOL or Path(name).stem != "nuveqcam"})
        if IS_WINDOWS:
            unstripped = [BUILD / "bin" / name for name in found]
            self.assert_none_lacks({path: lacks_of_own_pe(path) for path in unstripped})
        else:
            self.assert_none_lacks({path: lacks_of_own_elf(path, OWN[name]) for name, path in found.items()})

    def test_every_source_of_theirs_is_compiled_so(self):
        wanted = ["-fstack-protector-strong"]
        if not IS_WINDOWS:
            wanted.append("_FORTIFY_SOURCE=[23]")
        if not IS_WINDOWS and platform.machine() == "x86_64":
            wanted += ["-fstack-clash-protection", "-fcf-protection=full"]
        lacks = {}
        for command in json.loads((BUILD / "compile_commands.json").read_text()):
            path = Path(command["file"])
            # The stack protector's own part cannot have one.
            if path.suffix == ".rc" or path.name == "StackProtector.cpp" or not path.is_relative_to(SOURCE):
                continue
            if path.relative_to(SOURCE).parts[0] in ("src", "platform", "tools"):
                lacks[path] = [option for option in wanted if not re.search(f"{option}( |$)", command["command"])]
        self.assertGreater(len(lacks), 20)
        self.assert_none_lacks(lacks)

    def build_weak(self, name, *options):
        source = self.scratch / "weak.c"
        source.write_text(WEAK_CODE)
        binary = self.scratch / name
        run(os.environ["PACKAGE_C_COMPILER"], source, *WEAK_COMPILING, *WEAK_LINKING, *options, "-o", binary)
        return binary

    def test_binaries_without_them_are_refused_for_each(self):
        if IS_WINDOWS:
            linked = list(WINDOWS_BITS.values())
            self.assertEqual(lacks_of_own_pe(self.build_weak("weak.dll", "-shared")), [*linked, "a stack protector"])
            # The linker leaves no library without.
            program = self.build_weak("weak.exe", "-DWeak=main", "-w")
            self.assertEqual(lacks_of_pe(program), [*linked, "relocations"])
            return
        linked = ["read-only relocations", "binding at start", "a stack without code"]
        if needs_control_flow_property():
            linked.append("control-flow protection")
        self.assertEqual(lacks_of_own_elf(self.build_weak("weak.so", "-shared"), True),
                         [*linked, "a stack protector", "checked functions", "a marked entry of Weak"])
        program = self.build_weak("weak", "-fno-pic", "-no-pie", "-DWeak=main", "-w")
        self.assertIn("an address of the system's choice", lacks_of_elf(program))


class Overrun(PackageTest):
    """What the stack protector is for, seen at work."""

    def end(self, *arguments):
        program = [str(BUILD / "bin" / ("overrun.exe" if IS_WINDOWS else "overrun")), *arguments]
        if IS_WINDOWS:
            program.insert(0, str(SOURCE / "scripts/wine.sh"))
        with open(self.scratch / "output", "wb") as writer:
            result = subprocess.run(program, stdin=subprocess.DEVNULL, stdout=writer, stderr=subprocess.STDOUT, timeout=100,
                                    check=False, env={**os.environ, "NUVEQ_WINEPREFIX": str(BUILD / "tests/integration/packaging/wine")})
        return result.returncode, (self.scratch / "output").read_text(errors="replace").split()

    def test_of_an_array_on_the_stack_ends_the_process(self):
        self.assertEqual(self.end("8"), (0, ["returned"]))
        code, output = self.end("64")
        self.assertNotEqual(code, 0)
        self.assertNotIn("returned", output)


if __name__ == "__main__":
    unittest.main()
