"""Common code of the package tests: paths of the packages, and builds of a host."""

import os
import re
import shutil
import subprocess
import tarfile
import tempfile
import unittest
import zipfile
from pathlib import Path

BUILD = Path(os.environ["PACKAGE_BUILD"])
SOURCE = Path(os.environ["PACKAGE_SOURCE"])
FOLDER = Path(os.environ["PACKAGE_FOLDER"])
VERSION = os.environ["PACKAGE_VERSION"]
ARCHIVE = os.environ["PACKAGE_ARCHIVE"]
CMAKE = os.environ["PACKAGE_CMAKE"]
CPACK = os.environ["PACKAGE_CPACK"]
C_COMPILER = os.environ["PACKAGE_C_COMPILER"]
OBJDUMP = os.environ["PACKAGE_OBJDUMP"]
TOOLCHAIN = os.environ["PACKAGE_TOOLCHAIN"]
HAS_TOOL = "PACKAGE_HAS_TOOL" in os.environ

CONSUMER = SOURCE / "tests/integration/packaging/consumer"
# The output of cmake --install, moved from its install prefix. The space finds missing quotes.
INSTALLED = FOLDER / "moved here"
# The unpacked archive of cpack, which contains one folder.
UNPACKED = FOLDER / "unpacked"
PACKAGE = UNPACKED / ARCHIVE

# Seconds; below the timeout of a test in ctest.
TIMEOUT = 100


def archive():
    return FOLDER / "packed" / (ARCHIVE + (".zip" if TOOLCHAIN else ".tar.gz"))


def names_in_archive():
    if archive().suffix == ".zip":
        with zipfile.ZipFile(archive()) as packed:
            return [name for name in packed.namelist() if not name.endswith("/")]
    with tarfile.open(archive()) as packed:
        return [member.name for member in packed.getmembers() if not member.isdir()]


def run(*command, **options):
    """Returns the output of a command; raises AssertionError with the output if the command fails."""
    result = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=TIMEOUT, **options)
    output = result.stdout.decode(errors="replace")
    if result.returncode != 0:
        raise AssertionError(f"{command[0]} exited with {result.returncode}:\n{output}")
    return output


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


def expected_files(name):
    """Returns a package's file list. Lines that start with 'nuveqcam: ' apply only if the tool is built."""
    lines = (Path(__file__).parent / name).read_text().splitlines()
    wanted = []
    for line in lines:
        if line.startswith("nuveqcam: "):
            if HAS_TOOL:
                wanted.append(line.split(": ", 1)[1])
        elif line and not line.startswith("#"):
            wanted.append(line)
    return sorted(wanted)


class PackageTest(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        self.scratch = Path(tempfile.mkdtemp(prefix="test-", dir=FOLDER))
        self.addCleanup(shutil.rmtree, self.scratch, ignore_errors=True)

    def configure_consumer(self, prefix, version=VERSION):
        """Configures the host against the package in prefix and returns its build folder."""
        build = self.scratch / "consumer build"
        compilers = ([f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else
                     [f"-DCMAKE_C_COMPILER={C_COMPILER}",
                      f"-DCMAKE_CXX_COMPILER={os.environ['PACKAGE_CXX_COMPILER']}"])
        run(CMAKE, "-S", CONSUMER, "-B", build, "-G", os.environ["PACKAGE_GENERATOR"],
            f"-DCMAKE_PREFIX_PATH={prefix}", f"-DWANTED_VERSION={version}", *compilers)
        return build

    def build_consumer(self, prefix):
        build = self.configure_consumer(prefix)
        run(CMAKE, "--build", build)
        cache = (build / "CMakeCache.txt").read_text()
        found = re.search(r"^nuveqcamerahandler_DIR:PATH=(.*)$", cache, re.M).group(1)
        self.assertTrue(found.startswith(str(prefix)), found)
        return build / "bin"

    def assert_index_is_complete(self, licences):
        """Checks that THIRD-PARTY.md lists exactly the texts in the folder, and returns its rows."""
        index = (licences / "THIRD-PARTY.md").read_text()
        rows = [line.strip("| ").split(" | ") for line in index.splitlines() if line.startswith("| ")][1:]
        named = {text for row in rows for text in row[4].split(", ")}
        self.assertEqual(named, {path.name for path in licences.glob("*.txt")})
        for row in rows:
            self.assertEqual(len(row), 5, row)
            self.assertRegex(row[1], r"^\d", f"{row[0]} has no version")
        return rows

    def assert_texts_contain_no_local_paths(self, folder):
        for path in folder.rglob("*"):
            if path.suffix in (".cmake", ".pc", ".md", ".def", ".h", ".c", ".1"):
                text = path.read_text()
                for place in (BUILD, SOURCE, FOLDER):
                    self.assertNotIn(str(place), text, path)
