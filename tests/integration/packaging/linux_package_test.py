"""The Linux package: its contents, and its use by hosts and from the command line after it was moved."""

import os
import re
import shlex
import subprocess
import unittest
from pathlib import Path

from package_tool import (ARCHIVE, BUILD, C_COMPILER, CMAKE, CONSUMER, INSTALLED, PACKAGE, VERSION, PackageTest,
                          expected_files, files_below, names_in_archive, run)

# Without paths to other libraries.
CLEAN_ENVIRONMENT = {key: value for key, value in os.environ.items() if key not in ("LD_LIBRARY_PATH", "LD_PRELOAD")}
DOC = "share/doc/nuveqcamerahandler"
EXPECTED_OUTPUT = "table 0, null -2\n"


def binaries(prefix):
    return [path for path in prefix.rglob("*") if path.is_file() and path.read_bytes()[:4] == b"\x7fELF"]


class Contents(PackageTest):
    def test_archive_contains_exactly_the_listed_files(self):
        self.assertEqual(sorted(names_in_archive()),
                         [f"{ARCHIVE}/{name}" for name in expected_files("linux_files.txt")])

    def test_installation_contains_exactly_the_listed_files(self):
        self.assertEqual(files_below(INSTALLED), expected_files("linux_files.txt"))

    def test_staged_installation_writes_only_below_destdir(self):
        prefix = self.scratch / "unused prefix"
        run(CMAKE, "--install", BUILD, "--prefix", prefix, env={**os.environ, "DESTDIR": str(self.scratch / "stage")})
        self.assertFalse(prefix.exists())
        staged = Path(f"{self.scratch}/stage{prefix}")
        self.assertEqual(files_below(staged), expected_files("linux_files.txt"))

    def test_run_paths_are_relative_to_origin(self):
        found = binaries(PACKAGE)
        self.assertEqual(len(found), 6)
        for path in found:
            for places in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", run("readelf", "-d", path)):
                for place in places.split(":"):
                    self.assertRegex(place, r"^\$ORIGIN(/|$)", path)

    def test_own_libraries_are_loaded_from_the_package(self):
        packaged = {path.name for path in binaries(PACKAGE)}
        loaded = set()
        for path in binaries(PACKAGE):
            output = run("ldd", path, env=CLEAN_ENVIRONMENT)
            for name, place in re.findall(r"^\s*(\S+) => (.*?)(?: \(0x[0-9a-f]+\))?$", output, re.M):
                self.assertNotEqual(place, "not found", f"{path} needs {name}")
                if name in packaged:
                    loaded.add(name)
                    self.assertEqual(os.path.commonpath([os.path.realpath(place), PACKAGE]), str(PACKAGE), name)
        self.assertIn("liblog4cplus-2.0.so.3", loaded)
        self.assertIn("libMultiMediaEncoder.so", loaded)
        self.assertIn("libnuveqplatform.so", loaded)

    def test_library_exports_one_function(self):
        symbols = run("nm", "-D", "--defined-only", PACKAGE / "lib/libnuveqcamerahandler.so").splitlines()
        self.assertEqual([line.split()[-1].split("@")[0] for line in symbols], ["NUVEQGetCameraHandler"])

    def test_binaries_contain_no_debug_information(self):
        for path in binaries(PACKAGE):
            self.assertNotIn(".debug_info", run("readelf", "-SW", path), path)

    def test_texts_contain_no_local_paths(self):
        self.assert_texts_contain_no_local_paths(PACKAGE)

    def test_licence_index_lists_every_licence_and_bundled_library(self):
        rows = self.assert_index_is_complete(PACKAGE / DOC / "licences")
        for row in rows:
            self.assertTrue((PACKAGE / row[3]).is_file(), row[3])
        bundled = {path.name for path in binaries(PACKAGE)
                   if "nuveq" not in path.name and "MultiMedia" not in path.name}
        self.assertEqual(bundled, {Path(row[3]).name for row in rows})


class Consumer(PackageTest):
    def run_consumer(self, program):
        self.assertEqual(run(program, env=CLEAN_ENVIRONMENT), EXPECTED_OUTPUT)

    def test_cmake_project_uses_the_moved_installation(self):
        programs = self.build_consumer(INSTALLED)
        self.run_consumer(programs / "consumer_c")
        self.run_consumer(programs / "consumer_cxx")

    def test_cmake_project_uses_the_unpacked_archive(self):
        programs = self.build_consumer(PACKAGE)
        self.run_consumer(programs / "consumer_c")
        self.run_consumer(programs / "consumer_cxx")

    def test_cmake_rejects_a_request_for_another_version(self):
        major, minor, _ = VERSION.split(".")
        for version in (f"{int(major) + 1}.0", f"{major}.{int(minor) + 1}"):
            with self.assertRaisesRegex(AssertionError, "compatible with requested"):
                self.configure_consumer(INSTALLED, version)

    def pkg_config(self, *arguments):
        environment = {**CLEAN_ENVIRONMENT, "PKG_CONFIG_LIBDIR": str(INSTALLED / "lib/pkgconfig")}
        return shlex.split(run("pkg-config", *arguments, "nuveqcamerahandler", env=environment))

    def test_pkg_config_project_uses_the_moved_installation(self):
        self.assertEqual(self.pkg_config("--modversion"), [VERSION])
        program = self.scratch / "consumer"
        folder = self.pkg_config("--variable=libdir")[0]
        run(C_COMPILER, "-std=c99", *self.pkg_config("--cflags"),
            CONSUMER / "consumer.c", "-o", program, *self.pkg_config("--libs"),
            f"-Wl,-rpath,{folder}")
        self.run_consumer(program)

    def test_packaged_example_compiles_and_loads_the_library(self):
        program = self.scratch / "packets"
        run(C_COMPILER, "-I", PACKAGE / "include", PACKAGE / DOC / "examples/packets.c", "-o", program)
        # 1 means that the library was not loaded. The other codes depend on the cameras of this PC.
        result = subprocess.run([program, PACKAGE / "lib/libnuveqcamerahandler.so"], env=CLEAN_ENVIRONMENT, timeout=60,
                                stdin=subprocess.DEVNULL, capture_output=True, check=False)
        self.assertIn(result.returncode, (0, 3, 4), result.stderr)


class Tool(PackageTest):
    def tool(self, *arguments):
        return run(INSTALLED / "bin/nuveqcam", *arguments, env=CLEAN_ENVIRONMENT, cwd=self.scratch)

    def test_prints_its_version(self):
        self.assertIn(VERSION, self.tool("--version"))

    def test_lists_the_simulated_camera(self):
        self.assertRegex(self.tool("list", "--simulated"), r"Camera 0: .*simulated[\s\S]*640 x   480")

    def test_records_with_the_installed_encoder(self):
        self.tool("record", "-o", "camera.h264", "--size", "320x240", "--seconds", "1", "--simulated")
        stream = (self.scratch / "camera.h264").read_bytes()
        self.assertRegex(stream[:5].hex(), "^000000016")  # starts with a sequence parameter set
        self.assertEqual(stream[4] & 31, 7)

    def test_man_page_is_in_the_man_path(self):
        page = run("mandoc", "-T", "utf8", INSTALLED / "share/man/man1/nuveqcam.1")
        self.assertIn("--simulated", re.sub(".\b", "", page))


if __name__ == "__main__":
    unittest.main()
