"""The Windows package: its contents, imports and exports, and its use by hosts under Wine."""

import os
import re
import shutil
import struct
import subprocess
import unittest

from package_tool import (ARCHIVE, C_COMPILER, CONSUMER, FOLDER, INSTALLED, OBJDUMP, PACKAGE, SOURCE, VERSION,
                          PackageTest, expected_files, files_below, names_in_archive, run)

LIBRARY = PACKAGE / "bin/libnuveqcamerahandler.dll"
RUNTIME = {"libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll"}
# DLLs of Windows that the library and the other binaries may import.
LIBRARY_SYSTEM_DLLS = {"kernel32.dll", "msvcrt.dll", "ole32.dll", "setupapi.dll", "cfgmgr32.dll"}
SYSTEM_DLLS = LIBRARY_SYSTEM_DLLS | {
    "advapi32.dll", "gdi32.dll", "oleaut32.dll", "shell32.dll", "shlwapi.dll", "user32.dll", "windowscodecs.dll",
    "ws2_32.dll"}
EXPECTED_OUTPUT = "table 0, null -2"


def binaries():
    return sorted([*PACKAGE.rglob("*.dll"), *PACKAGE.rglob("*.exe")])


def imports(path):
    """Maps the name of each imported DLL to its imported functions."""
    found = {}
    for line in run(OBJDUMP, "-p", path).splitlines():
        if name := re.match(r"\s*DLL Name: (\S+)", line):
            functions = found.setdefault(name.group(1), [])
        elif function := re.match(r"\t[0-9a-f]+\s+\d+\s+(\w+)", line):
            if found:
                functions.append(function.group(1))
    return found


def exports(path):
    text = run(OBJDUMP, "-p", path)
    table = text[text.index("[Ordinal/Name Pointer] Table"):]
    return re.findall(r"^\t\[\s*\d+\](?: \+base\[\s*\d+\]\s+[0-9a-f]+)? (\S+)", table, re.M)


def version_resource(path):
    """Returns the numeric versions, FileVersion and ProductVersion of a version resource."""
    content = path.read_bytes()
    fixed = content.index(struct.pack("<I", 0xFEEF04BD))
    _, _, high, low, product_high, product_low = struct.unpack_from("<6I", content, fixed)
    numbers = [(word >> 16, word & 0xFFFF) for word in (high, low, product_high, product_low)]

    def text(name):
        start = content.index((name + "\0").encode("utf-16-le")) + 2 * len(name) + 2
        return re.match(r"\0*([^\0]*)\0", content[start:start + 64].decode("utf-16-le", "replace")).group(1)

    return numbers, text("FileVersion"), text("ProductVersion")


class WineTest(PackageTest):
    def wine(self, program, *arguments):
        """Returns the output of a successful program, run in the Wine prefix of the package tests."""
        return self.wine_result(program, *arguments, code=0)

    def wine_result(self, program, *arguments, code):
        # Wine's background processes inherit the output. A pipe would stay open after the program's exit.
        output = self.scratch / "output"
        with open(output, "wb") as writer:
            result = subprocess.run(
                [SOURCE / "scripts/wine.sh", program, *arguments], stdin=subprocess.DEVNULL, stdout=writer,
                stderr=subprocess.STDOUT, timeout=110, check=False,
                env={**os.environ, "NUVEQ_WINEPREFIX": str(FOLDER.parent / "wine")})
        text = output.read_text().replace("\r\n", "\n")
        self.assertEqual(result.returncode, code, text)
        return text

    @staticmethod
    def windows_path(path):
        return "Z:" + str(path).replace("/", "\\")


class Contents(PackageTest):
    def test_archive_contains_exactly_the_listed_files(self):
        self.assertEqual(sorted(names_in_archive()),
                         [f"{ARCHIVE}/{name}" for name in expected_files("windows_files.txt")])

    def test_installation_contains_exactly_the_listed_files(self):
        self.assertEqual(files_below(INSTALLED), expected_files("windows_files.txt"))

    def test_texts_contain_no_local_paths(self):
        self.assert_texts_contain_no_local_paths(PACKAGE)

    def test_licence_index_lists_every_licence_and_bundled_dll(self):
        rows = self.assert_index_is_complete(PACKAGE / "share/licences")
        named = {name for row in rows for name in re.findall(r"bin/(\S+\.dll)", row[3])}
        self.assertEqual(named, {path.name for path in (PACKAGE / "bin").glob("*.dll")} - {LIBRARY.name})


class Binaries(PackageTest):
    def test_are_64_bit_without_debug_information(self):
        self.assertGreaterEqual(len(binaries()), 6)
        for path in binaries():
            headers = run(OBJDUMP, "-f", "-h", path)
            self.assertIn("pei-x86-64", headers, path)
            self.assertNotIn(".debug_", headers, path)

    def test_import_only_dlls_of_the_package_or_windows(self):
        packaged = {path.name for path in (PACKAGE / "bin").glob("*.dll")}
        for path in binaries():
            needed = imports(path)
            self.assertIn("KERNEL32.dll", needed, path)
            others = {name for name in needed if name not in packaged and name.lower() not in SYSTEM_DLLS}
            self.assertEqual(others, set(), path)

    def test_library_imports_only_its_documented_dlls(self):
        needed = imports(LIBRARY)
        self.assertEqual({name for name in needed if name.lower() not in LIBRARY_SYSTEM_DLLS},
                         RUNTIME | {"liblog4cplus.dll", "MultiMediaEncoder.dll"})

    def test_configuration_manager_functions_come_from_cfgmgr32(self):
        needed = imports(LIBRARY)
        self.assertEqual(sorted(needed["CFGMGR32.dll"]), ["CM_Get_Child", "CM_Get_DevNode_Status", "CM_Get_Device_IDA"])
        self.assertIn("SetupDiGetClassDevsW", needed["SETUPAPI.dll"])
        self.assertEqual([name for name in needed["SETUPAPI.dll"] if name.startswith("CM_")], [])

    def test_library_exports_one_undecorated_function(self):
        self.assertEqual(exports(LIBRARY), ["NUVEQGetCameraHandler"])

    def test_own_binaries_have_a_version_resource(self):
        major, minor, patch = map(int, VERSION.split("."))
        numbers = [(major, minor), (patch, 0)]
        own = [LIBRARY, PACKAGE / "bin/MultiMediaEncoder.dll", *PACKAGE.rglob("*.exe")]
        for path in own:
            self.assertEqual(version_resource(path), (numbers + numbers, VERSION, VERSION), path)


class Consumer(WineTest):
    def test_cmake_project_uses_the_unpacked_archive(self):
        programs = self.build_consumer(PACKAGE)
        self.assertEqual(self.wine(programs / "consumer_c.exe"), EXPECTED_OUTPUT + "\n")
        self.assertEqual(self.wine(programs / "consumer_cxx.exe"), EXPECTED_OUTPUT + "\n")

    def test_cmake_project_uses_the_moved_installation(self):
        programs = self.build_consumer(INSTALLED)
        self.assertEqual(self.wine(programs / "consumer_c.exe"), EXPECTED_OUTPUT + "\n")

    def test_def_file_creates_an_import_library(self):
        imported = self.scratch / "imported.lib"
        run(os.environ["PACKAGE_DLLTOOL"], "-d", PACKAGE / "lib/libnuveqcamerahandler.def", "-l", imported)
        # The host loads the DLLs from its own folder.
        for dll in (PACKAGE / "bin").glob("*.dll"):
            shutil.copy(dll, self.scratch)
        program = self.scratch / "host.exe"
        run(C_COMPILER, "-I", PACKAGE / "include", CONSUMER / "consumer.c",
            imported, "-o", program)
        self.assertEqual(self.wine(program), EXPECTED_OUTPUT + "\n")

    def test_readme_program_loads_the_library_from_another_folder(self):
        code = re.search(r"^```c\n(.*?)^```$", (PACKAGE / "README.md").read_text(), re.M | re.S).group(1)
        source = self.scratch / "packets.c"
        source.write_text(code)
        program = self.scratch / "packets.exe"
        run(C_COMPILER, "-Wall", "-Wextra", "-Werror", "-I", PACKAGE / "include", source, "-o", program)
        # The prefix has no camera, so the query fails and reports action 440.
        self.assertEqual(self.wine_result(program, self.windows_path(LIBRARY), code=3), "no usable camera (440)\n")
        # Another copy of the library is not used instead.
        self.assertEqual(self.wine_result(program, self.windows_path(self.scratch / "absent.dll"), code=1), "")


class Tool(WineTest):
    def test_prints_its_version(self):
        self.assertIn(VERSION, self.wine(PACKAGE / "bin/nuveqcam.exe", "--version"))


if __name__ == "__main__":
    unittest.main()
