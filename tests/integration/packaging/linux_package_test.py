"""The package for Linux: what is in it, and that hosts and people can use it where it was moved to."""

import os
import re
import shlex
import subprocess
import unittest
from pathlib import Path

from package_tool import (ARCHIVE, BUILD, CMAKE, INSTALLED, PACKAGE, SOURCE, VERSION, PackageTest, expected_files,
                          files_below, names_in_archive, run)

# Nothing but the package itself tells where its libraries are.
BARE = {key: value for key, value in os.environ.items() if key not in ("LD_LIBRARY_PATH", "LD_PRELOAD")}
DOC = "share/doc/nuveqcamerahandler"
ANSWERS = "table 0, null -2\n"


def binaries(prefix):
    return [path for path in prefix.rglob("*") if path.is_file() and path.read_bytes()[:4] == b"\x7fELF"]


class Contents(PackageTest):
    def test_the_archive_has_one_folder_with_exactly_the_listed_files(self):
        self.assertEqual(sorted(names_in_archive()), [f"{ARCHIVE}/{name}" for name in expected_files("linux_files.txt")])

    def test_installing_gives_exactly_the_listed_files(self):
        self.assertEqual(files_below(INSTALLED), expected_files("linux_files.txt"))

    def test_a_staged_installation_stays_below_its_stage(self):
        prefix = self.scratch / "never made"
        run(CMAKE, "--install", BUILD, "--prefix", prefix, env={**os.environ, "DESTDIR": str(self.scratch / "stage")})
        self.assertFalse(prefix.exists())
        staged = Path(f"{self.scratch}/stage{prefix}")
        self.assertEqual(files_below(staged), expected_files("linux_files.txt"))

    def test_binaries_look_for_libraries_beside_themselves_only(self):
        found = binaries(PACKAGE)
        self.assertEqual(len(found), 6)
        for path in found:
            for places in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", run("readelf", "-d", path)):
                for place in places.split(":"):
                    self.assertRegex(place, r"^\$ORIGIN(/|$)", path)

    def test_every_library_of_the_project_is_found_in_the_package(self):
        ours = {path.name for path in binaries(PACKAGE)}
        seen = set()
        for path in binaries(PACKAGE):
            for name, place in re.findall(r"^\s*(\S+) => (.*?)(?: \(0x[0-9a-f]+\))?$", run("ldd", path, env=BARE), re.M):
                self.assertNotEqual(place, "not found", f"{path} needs {name}")
                if name in ours:
                    seen.add(name)
                    self.assertEqual(os.path.commonpath([os.path.realpath(place), PACKAGE]), str(PACKAGE), name)
        self.assertIn("liblog4cplus-2.0.so.3", seen)
        self.assertIn("libMultiMediaEncoder.so", seen)
        self.assertIn("libnuveqplatform.so", seen)

    def test_one_function_leaves_the_library(self):
        symbols = run("nm", "-D", "--defined-only", PACKAGE / "lib/libnuveqcamerahandler.so").splitlines()
        self.assertEqual([line.split()[-1].split("@")[0] for line in symbols], ["NUVEQGetCameraHandler"])

    def test_binaries_carry_no_debug_information(self):
        for path in binaries(PACKAGE):
            self.assertNotIn(".debug_info", run("readelf", "-SW", path), path)

    def test_no_text_names_a_folder_of_the_machine_that_made_it(self):
        self.assert_texts_name_no_folder_of_this_machine(PACKAGE)

    def test_the_index_names_every_licence_and_every_bundled_library(self):
        rows = self.assert_index_is_complete(PACKAGE / DOC / "licences")
        for row in rows:
            self.assertTrue((PACKAGE / row[3]).is_file(), row[3])
        bundled = {path.name for path in binaries(PACKAGE) if "nuveq" not in path.name and "MultiMedia" not in path.name}
        self.assertEqual(bundled, {Path(row[3]).name for row in rows})


class Consumer(PackageTest):
    def run_consumer(self, program):
        self.assertEqual(run(program, env=BARE), ANSWERS)

    def test_a_cmake_project_finds_links_and_runs_the_moved_library(self):
        programs = self.build_consumer(INSTALLED)
        self.run_consumer(programs / "consumer_c")
        self.run_consumer(programs / "consumer_cxx")

    def test_a_cmake_project_finds_links_and_runs_the_unpacked_library(self):
        programs = self.build_consumer(PACKAGE)
        self.run_consumer(programs / "consumer_c")
        self.run_consumer(programs / "consumer_cxx")

    def test_a_cmake_project_that_wants_another_version_is_refused(self):
        major, minor, _ = VERSION.split(".")
        for version in (f"{int(major) + 1}.0", f"{major}.{int(minor) + 1}"):
            with self.assertRaisesRegex(AssertionError, "compatible with requested"):
                self.configure_consumer(INSTALLED, version)

    def pkg_config(self, *arguments):
        environment = {**BARE, "PKG_CONFIG_LIBDIR": str(INSTALLED / "lib/pkgconfig")}
        return shlex.split(run("pkg-config", *arguments, "nuveqcamerahandler", env=environment))

    def test_a_pkg_config_project_compiles_links_and_runs_the_moved_library(self):
        self.assertEqual(self.pkg_config("--modversion"), [VERSION])
        program = self.scratch / "consumer"
        folder = self.pkg_config("--variable=libdir")[0]
        run(os.environ["PACKAGE_C_COMPILER"], "-std=c99", *self.pkg_config("--cflags"),
            SOURCE / "tests/integration/packaging/consumer/consumer.c", "-o", program, *self.pkg_config("--libs"),
            f"-Wl,-rpath,{folder}")
        self.run_consumer(program)

    def test_the_packed_example_compiles_and_loads_the_library(self):
        program = self.scratch / "packets"
        run(os.environ["PACKAGE_C_COMPILER"], "-I", PACKAGE / "include", PACKAGE / DOC / "examples/packets.c", "-o", program)
        # 1: the library could not be loaded or gave no table. The rest is up to this PC's cameras.
        result = subprocess.run([program, PACKAGE / "lib/libnuveqcamerahandler.so"], env=BARE, timeout=60,
                                stdin=subprocess.DEVNULL, capture_output=True, check=False)
        self.assertIn(result.returncode, (0, 3, 4), result.stderr)


class Tool(PackageTest):
    def tool(self, *arguments):
        return run(INSTALLED / "bin/nuveqcam", *arguments, env=BARE, cwd=self.scratch)

    def test_it_tells_the_version(self):
        self.assertIn(VERSION, self.tool("--version"))

    def test_it_lists_the_simulated_camera(self):
        self.assertRegex(self.tool("list", "--simulated"), r"Camera 0: .*simulated[\s\S]*640 x   480")

    def test_it_records_packets_with_the_installed_encoder(self):
        self.tool("record", "-o", "camera.h264", "--size", "320x240", "--seconds", "1", "--simulated")
        stream = (self.scratch / "camera.h264").read_bytes()
        self.assertRegex(stream[:5].hex(), "^000000016")  # a sequence parameter set comes first
        self.assertEqual(stream[4] & 31, 7)

    def test_its_man_page_is_where_man_looks(self):
        page = run("mandoc", "-T", "utf8", INSTALLED / "share/man/man1/nuveqcam.1")
        self.assertIn("--simulated", re.sub(".\b", "", page))


if __name__ == "__main__":
    unittest.main()
