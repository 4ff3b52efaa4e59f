"""Common code of the package tests: paths of the packages, and programs that use them."""

import os
import subprocess
from pathlib import Path

BUILD = Path(os.environ["PACKAGE_BUILD"])
SOURCE = Path(os.environ["PACKAGE_SOURCE"])
FOLDER = Path(os.environ["PACKAGE_FOLDER"])
VERSION = os.environ["PACKAGE_VERSION"]
ARCHIVE = os.environ["PACKAGE_ARCHIVE"]
LIBDIR = os.environ["PACKAGE_LIBDIR"]
# File name of the private log4cplus; empty on Windows.
LOG4CPLUS = os.environ["PACKAGE_LOG4CPLUS"]
CMAKE = os.environ["PACKAGE_CMAKE"]
CPACK = os.environ["PACKAGE_CPACK"]
C_COMPILER = os.environ["PACKAGE_C_COMPILER"]
OBJDUMP = os.environ["PACKAGE_OBJDUMP"]
TOOLCHAIN = os.environ["PACKAGE_TOOLCHAIN"]
IS_WINDOWS = bool(TOOLCHAIN)

CONSUMER = SOURCE / "tests/integration/packaging/consumer"
# The output of cmake --install, moved from its install prefix. The space finds missing quotes.
INSTALLED = FOLDER / "moved here"
# The unpacked archive of cpack, which contains one folder.
UNPACKED = FOLDER / "unpacked"
PACKAGE = UNPACKED / ARCHIVE
PACKED = FOLDER / "packed" / (ARCHIVE + (".zip" if IS_WINDOWS else ".tar.gz"))
LIBRARY = PACKAGE / ("bin/libnuveqcamerahandler.dll" if IS_WINDOWS else f"{LIBDIR}/libnuveqcamerahandler.so")
# The Debian packages, in folders of their names: unpacked, with the control files in DEBIAN.
DEBIAN_PACKAGES = FOLDER / "debian"

# The environment of programs that use the package: without paths to other libraries, and with a Wine prefix of the
# package tests, which has no cameras.
ENVIRONMENT = {key: value for key, value in os.environ.items() if key not in ("LD_LIBRARY_PATH", "LD_PRELOAD")}
ENVIRONMENT["NUVEQ_WINEPREFIX"] = str(FOLDER.parent / "wine")

# Seconds; below the timeout of a test in ctest.
TIMEOUT = 110


def run(*command, **options):
    """Returns the output of a command; raises AssertionError with the output if the command fails."""
    result = subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                            stderr=subprocess.STDOUT, timeout=TIMEOUT, **options)
    output = result.stdout.decode(errors="replace")
    assert result.returncode == 0, f"{command[0]} exited with {result.returncode}:\n{output}"
    return output


def result_of(scratch, program, *arguments):
    """Runs a program that uses the package in the folder scratch. Returns its exit code and its output."""
    command = [SOURCE / "scripts/wine.sh"] if IS_WINDOWS else []
    # Wine's background processes inherit the output. A pipe would stay open after the program's exit.
    with open(scratch / "output", "wb") as writer:
        result = subprocess.run([*command, program, *arguments], cwd=scratch, env=ENVIRONMENT, stdin=subprocess.DEVNULL,
                                stdout=writer, stderr=subprocess.STDOUT, timeout=TIMEOUT, check=False)
    return result.returncode, (scratch / "output").read_text(errors="replace").replace("\r\n", "\n").rstrip("\n")


def binaries():
    """The binaries of the package for the target system."""
    magic = b"MZ" if IS_WINDOWS else b"\x7fELF"
    return sorted(path for path in PACKAGE.rglob("*")
                  if path.is_file() and not path.is_symlink() and path.read_bytes()[:len(magic)] == magic)


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if not path.is_dir())


def lines_of(name):
    """Returns the lines of a file list."""
    lines = (Path(__file__).parent / name).read_text().splitlines()
    return [line.format(lib=LIBDIR, version=VERSION, log4cplus=LOG4CPLUS) for line in lines if line and not line.startswith("#")]


def expected_files():
    """Returns the file list of the archive. A pattern in it stands for the file of the build folder that matches."""
    names = []
    for line in lines_of("windows_files.txt" if IS_WINDOWS else "linux_files.txt"):
        if "*" in line:
            [match] = BUILD.glob(line)
            line = str(match.relative_to(BUILD))
        names.append(line)
    return sorted(names)
