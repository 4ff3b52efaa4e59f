"""What the scripts that test the packages share: the packages, and how a host is built against one."""

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
OBJDUMP = os.environ["PACKAGE_OBJDUMP"]
TOOLCHAIN = os.environ["PACKAGE_TOOLCHAIN"]
HAS_TOOL = "PACKAGE_HAS_TOOL" in os.environ

# What cmake --install makes, moved since: where it was installed to nothing is left. The space is in the way of
# everything that forgets about spaces.
INSTALLED = FOLDER / "moved here"
# What cpack packs, with its one folder.
UNPACKED = FOLDER / "unpacked"
PACKAGE = UNPACKED / ARCHIVE

# Longer than anything that works takes, and within a test's own time-out.
PATIENCE = 100


def archive():
    return FOLDER / "packed" / (ARCHIVE + (".zip" if TOOLCHAIN else ".tar.gz"))


def names_in_archive():
    if archive().suffix == ".zip":
        with zipfile.ZipFile(archive()) as packed:
            return [name for name in packed.namelist() if not name.endswith("/")]
    with tarfile.open(archive()) as packed:
        return [member.name for member in packed.getmembers() if not member.isdir()]


def run(*command, **options):
    """Standard output of a command that succeeds; what it wrote is the message when it does not."""
    result = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=PATIENCE, **options)
    output = result.stdout.decode(errors="replace")
    if result.returncode != 0:
        raise AssertionError(f"{command[0]} ended with {result.returncode}:\n{output}")
    return output


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


def expected_files(name):
    """The list of a package's files; a line that starts with 'nuveqcam: ' counts where the tool is built."""
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
        """Configures the host's project against the package in prefix; answers its build folder."""
        build = self.scratch / "consumer build"
        compilers = ([f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else
                     [f"-DCMAKE_C_COMPILER={os.environ['PACKAGE_C_COMPILER']}",
                      f"-DCMAKE_CXX_COMPILER={os.environ['PACKAGE_CXX_COMPILER']}"])
        run(CMAKE, "-S", SOURCE / "tests/integration/packaging/consumer", "-B", build, "-G", os.environ["PACKAGE_GENERATOR"],
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
        """Every text in the folder is in its index, and every text that the index names is in the folder."""
        index = (licences / "THIRD-PARTY.md").read_text()
        rows = [line.strip("| ").split(" | ") for line in index.splitlines() if line.startswith("| ")][1:]
        named = {text for row in rows for text in row[4].split(", ")}
        self.assertEqual(named, {path.name for path in licences.glob("*.txt")})
        for row in rows:
            self.assertEqual(len(row), 5, row)
            self.assertRegex(row[1], r"^\d", f"{row[0]} has no version")
        return rows

    def assert_texts_name_no_folder_of_this_machine(self, folder):
        for path in folder.rglob("*"):
            if path.suffix in (".cmake", ".pc", ".md", ".def", ".h", ".c", ".1"):
                text = path.read_text()
                for place in (BUILD, SOURCE, FOLDER):
                    self.assertNotIn(str(place), text, path)
