"""The package for Windows: what is in it, what its binaries need and show, and that hosts can use it under Wine."""

import os
import re
import shutil
import struct
import subprocess
import unittest

from package_tool import (ARCHIVE, FOLDER, INSTALLED, OBJDUMP, PACKAGE, SOURCE, VERSION, PackageTest, expected_files,
                          files_below, names_in_archive, run)

LIBRARY = PACKAGE / "bin/libnuveqcamerahandler.dll"
RUNTIME = {"libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll"}
# DLLs that every edition of Windows has, by what may need them.
SYSTEM_OF_THE_LIBRARY = {"kernel32.dll", "msvcrt.dll", "ole32.dll", "setupapi.dll", "cfgmgr32.dll"}
SYSTEM = SYSTEM_OF_THE_LIBRARY | {
    "advapi32.dll", "gdi32.dll", "oleaut32.dll", "shell32.dll", "shlwapi.dll", "user32.dll", "windowscodecs.dll",
    "ws2_32.dll"}
ANSWERS = "table 0, null -2"


def binaries():
    return sorted([*PACKAGE.rglob("*.dll"), *PACKAGE.rglob("*.exe")])


def imports(path):
    """The functions that a binary takes from each DLL, by the DLL's name."""
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


def told_version(path):
    """The version that the resource tells as numbers, and the two that it tells as text."""
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
        """Standard output of a program that succeeds, in a Windows where no other test has registered anything."""
        return self.wine_result(program, *arguments, code=0)

    def wine_result(self, program, *arguments, code):
        # Background processes of Wine's hold what they inherit open: only files are waited for.
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
    def test_the_archive_has_one_folder_with_exactly_the_listed_files(self):
        self.assertEqual(sorted(names_in_archive()),
                         [f"{ARCHIVE}/{name}" for name in expected_files("windows_files.txt")])

    def test_installing_gives_exactly_the_listed_files(self):
        self.assertEqual(files_below(INSTALLED), expected_files("windows_files.txt"))

    def test_no_text_names_a_folder_of_the_machine_that_made_it(self):
        self.assert_texts_name_no_folder_of_this_machine(PACKAGE)

    def test_the_index_names_every_licence_and_every_bundled_dll(self):
        rows = self.assert_index_is_complete(PACKAGE / "share/licences")
        named = {name for row in rows for name in re.findall(r"bin/(\S+\.dll)", row[3])}
        self.assertEqual(named, {path.name for path in (PACKAGE / "bin").glob("*.dll")} - {LIBRARY.name})


class Binaries(PackageTest):
    def test_they_are_for_64_bit_windows_and_carry_no_debug_information(self):
        self.assertGreaterEqual(len(binaries()), 6)
        for path in binaries():
            headers = run(OBJDUMP, "-f", "-h", path)
            self.assertIn("pei-x86-64", headers, path)
            self.assertNotIn(".debug_", headers, path)

    def test_every_dll_that_they_need_is_packed_or_the_systems(self):
        packed = {path.name for path in (PACKAGE / "bin").glob("*.dll")}
        for path in binaries():
            needed = imports(path)
            self.assertIn("KERNEL32.dll", needed, path)
            self.assertEqual({name for name in needed if name not in packed and name.lower() not in SYSTEM}, set(), path)

    def test_the_library_needs_its_system_dlls_logging_encoder_and_runtime_alone(self):
        needed = imports(LIBRARY)
        self.assertEqual({name for name in needed if name.lower() not in SYSTEM_OF_THE_LIBRARY},
                         RUNTIME | {"liblog4cplus.dll", "MultiMediaEncoder.dll"})

    def test_the_configuration_manager_is_asked_itself(self):
        needed = imports(LIBRARY)
        self.assertEqual(sorted(needed["CFGMGR32.dll"]), ["CM_Get_Child", "CM_Get_DevNode_Status", "CM_Get_Device_IDA"])
        self.assertIn("SetupDiGetClassDevsW", needed["SETUPAPI.dll"])
        self.assertEqual([name for name in needed["SETUPAPI.dll"] if name.startswith("CM_")], [])

    def test_one_function_leaves_the_library_undecorated(self):
        self.assertEqual(exports(LIBRARY), ["NUVEQGetCameraHandler"])

    def test_the_projects_own_tell_its_version(self):
        major, minor, patch = map(int, VERSION.split("."))
        numbers = [(major, minor), (patch, 0)]
        own = [LIBRARY, PACKAGE / "bin/MultiMediaEncoder.dll", *PACKAGE.rglob("*.exe")]
        for path in own:
            self.assertEqual(told_version(path), (numbers + numbers, VERSION, VERSION), path)


class Consumer(WineTest):
    def test_a_cmake_project_finds_links_and_runs_the_unpacked_library(self):
        programs = self.build_consumer(PACKAGE)
        self.assertEqual(self.wine(programs / "consumer_c.exe"), ANSWERS + "\n")
        self.assertEqual(self.wine(programs / "consumer_cxx.exe"), ANSWERS + "\n")

    def test_a_cmake_project_finds_and_links_the_moved_library(self):
        programs = self.build_consumer(INSTALLED)
        self.assertEqual(self.wine(programs / "consumer_c.exe"), ANSWERS + "\n")

    def test_the_definition_file_makes_an_import_library(self):
        imported = self.scratch / "imported.lib"
        run(os.environ["PACKAGE_DLLTOOL"], "-d", PACKAGE / "lib/libnuveqcamerahandler.def", "-l", imported)
        # Beside the DLLs, where an installer would put the host.
        for dll in (PACKAGE / "bin").glob("*.dll"):
            shutil.copy(dll, self.scratch)
        program = self.scratch / "host.exe"
        run(os.environ["PACKAGE_C_COMPILER"], "-I", PACKAGE / "include", SOURCE / "tests/integration/packaging/consumer/consumer.c",
            imported, "-o", program)
        self.assertEqual(self.wine(program), ANSWERS + "\n")

    def test_the_readmes_program_loads_the_library_from_another_folder(self):
        code = re.search(r"^```c\n(.*?)^```$", (PACKAGE / "README.md").read_text(), re.M | re.S).group(1)
        source = self.scratch / "packets.c"
        source.write_text(code)
        program = self.scratch / "packets.exe"
        run(os.environ["PACKAGE_C_COMPILER"], "-Wall", "-Wextra", "-Werror", "-I", PACKAGE / "include", source, "-o", program)
        # This Windows has no camera: the answer to the query, and what the library reports on the way.
        self.assertEqual(self.wine_result(program, self.windows_path(LIBRARY), code=3), "no usable camera (440)\n")
        # Not a matter of what happens to be found elsewhere.
        self.assertEqual(self.wine_result(program, self.windows_path(self.scratch / "absent.dll"), code=1), "")


class Tool(WineTest):
    def test_it_tells_the_version_from_the_unpacked_folder(self):
        self.assertIn(VERSION, self.wine(PACKAGE / "bin/nuveqcam.exe", "--version"))


if __name__ == "__main__":
    unittest.main()
