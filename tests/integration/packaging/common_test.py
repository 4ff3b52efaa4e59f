"""The package: its contents, and its use by hosts and from the command line after it was moved."""

import hashlib
import json
import os
import re
import tarfile
import zipfile

import pytest

from package_tool import (ARCHIVE, BUILD, C_COMPILER, CMAKE, CONSUMER, DEBIAN_PACKAGES, FOLDER, INSTALLED, IS_WINDOWS,
                          OBJDUMP, PACKAGE, PACKED, SOURCE, TOOLCHAIN, VERSION, binaries, expected_files, files_below, result_of,
                          run)

LICENCES = PACKAGE / ("share/licences" if IS_WINDOWS else "share/doc/nuveqcamerahandler/licences")
# Binaries without code of other projects. On Windows the encoder library contains its dependencies.
OWN = re.compile("nuveq" if IS_WINDOWS else "nuveq|MultiMediaEncoder")
# The DLLs that a host needs.
HOST_DLLS = {"libnuveqcamerahandler.dll", "MultiMediaEncoder.dll", "liblog4cplus.dll", "libstdc++-6.dll",
             "libgcc_s_seh-1.dll", "libwinpthread-1.dll"} if IS_WINDOWS else set()


def names_in_archive():
    if IS_WINDOWS:
        with zipfile.ZipFile(PACKED) as packed:
            return [name for name in packed.namelist() if not name.endswith("/")]
    with tarfile.open(PACKED) as packed:
        return [member.name for member in packed.getmembers() if not member.isdir()]


def test_archive_contains_exactly_the_listed_files():
    assert sorted(names_in_archive()) == [f"{ARCHIVE}/{name}" for name in expected_files()]


def test_installation_contains_exactly_the_listed_files():
    assert files_below(INSTALLED) == expected_files()


def test_texts_contain_no_local_paths():
    for path in PACKAGE.rglob("*"):
        if path.suffix in (".cmake", ".pc", ".md", ".def", ".h", ".c", ".json"):
            text = path.read_text()
            assert not [place for place in (BUILD, SOURCE, FOLDER) if str(place) in text], path


def test_binaries_have_64_bits_and_no_debug_information():
    assert len(binaries()) >= 5
    for path in binaries():
        headers = run(OBJDUMP, "-f", "-h", path)
        assert re.search("pei-x86-64" if IS_WINDOWS else "elf64-", headers), path
        assert ".debug_" not in headers, path


def index_rows():
    index = (LICENCES / "THIRD-PARTY.md").read_text()
    return [line.strip("| ").split(" | ") for line in index.splitlines() if line.startswith("| ")][1:]


def test_licence_index_lists_every_licence_and_bundled_library():
    rows = index_rows()
    for row in rows:
        assert len(row) == 5, row
        assert re.match(r"\d", row[1]), f"{row[0]} has no version"
    named = {text for row in rows for text in row[4].split(", ")}
    assert named == {path.name for path in LICENCES.glob("*.txt")}
    files = [PACKAGE / name for row in rows for name in re.findall(r"(?:bin|lib)/[^\s,]+", row[3])]
    assert all(file.is_file() for file in files)
    assert ({file.name for file in files if not OWN.search(file.name)} ==
            {file.name for file in binaries() if not OWN.search(file.name)})


def listed_files(components):
    """Maps the names of the files in a bill of materials to their checksums."""
    found = {}
    for component in components:
        if component["type"] == "file":
            [checksum] = component["hashes"]
            assert checksum["alg"] == "SHA-256"
            found[component["name"]] = checksum["content"]
        found |= listed_files(component.get("components", []))
    return found


def read_bill(path):
    bill = json.loads(path.read_text())
    assert (bill["bomFormat"], bill["specVersion"]) == ("CycloneDX", "1.5")
    assert bill["metadata"]["component"]["version"] == VERSION
    return bill["components"]


def test_bills_of_materials_list_every_file_with_its_checksum():
    packages = [INSTALLED, PACKAGE] + ([] if IS_WINDOWS else [path / "usr" for path in DEBIAN_PACKAGES.iterdir()])
    assert len(packages) == (2 if IS_WINDOWS else 5)
    for package in packages:
        [bill] = package.rglob("*.cdx.json")
        files = {str(path.relative_to(package)): hashlib.sha256(path.read_bytes()).hexdigest()
                 for path in package.rglob("*") if path.is_file() and not path.is_symlink() and path != bill}
        assert listed_files(read_bill(bill)) == files, package


def test_bill_of_materials_lists_the_components_of_the_licence_index():
    [bill] = PACKAGE.rglob("*.cdx.json")
    libraries = [component for component in read_bill(bill) if component["type"] == "library"]
    assert ([(library["name"], library["version"], library["licenses"][0]["expression"]) for library in libraries] ==
            [tuple(row[:3]) for row in index_rows()])
    for library in libraries:
        assert "components" in library or "evidence" in library, library["name"]


def configure_consumer(scratch, prefix, version=VERSION):
    """Configures a host against the package in prefix and returns its build folder."""
    build = scratch / "consumer build"
    compilers = ([f"-DCMAKE_TOOLCHAIN_FILE={TOOLCHAIN}"] if TOOLCHAIN else
                 [f"-DCMAKE_C_COMPILER={C_COMPILER}", f"-DCMAKE_CXX_COMPILER={os.environ['PACKAGE_CXX_COMPILER']}"])
    run(CMAKE, "-S", CONSUMER, "-B", build, "-G", os.environ["PACKAGE_GENERATOR"], f"-DCMAKE_PREFIX_PATH={prefix}",
        f"-DWANTED_VERSION={version}", *compilers)
    return build


@pytest.mark.parametrize("prefix", [INSTALLED, PACKAGE], ids=["moved installation", "unpacked archive"])
def test_cmake_projects_in_c_and_cxx_use_the_package(scratch, prefix):
    build = configure_consumer(scratch, prefix)
    run(CMAKE, "--build", build)
    cache = (build / "CMakeCache.txt").read_text()
    assert re.search(r"^nuveqcamerahandler_DIR:PATH=(.*)$", cache, re.M)[1].startswith(str(prefix))
    for name in ("consumer_c", "consumer_cxx"):
        program = build / "bin" / (name + (".exe" if IS_WINDOWS else ""))
        assert result_of(scratch, program) == (0, "table 0, null -2")
    # The DLLs of the tool alone are not among them.
    assert {path.name for path in (build / "bin").glob("*.dll")} == HOST_DLLS


def test_cmake_rejects_a_request_for_another_version(scratch):
    major, minor, _ = map(int, VERSION.split("."))
    for version in (f"{major + 1}.0", f"{major}.{minor + 1}"):
        with pytest.raises(AssertionError, match="compatible with requested"):
            configure_consumer(scratch, INSTALLED, version)


def test_tool_prints_its_version(scratch):
    code, output = result_of(scratch, INSTALLED / ("bin/nuveqcam.exe" if IS_WINDOWS else "bin/nuveqcam"), "--version")
    assert code == 0
    assert VERSION in output
