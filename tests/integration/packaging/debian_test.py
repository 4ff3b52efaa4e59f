"""The Debian packages: their contents, dependencies and texts. scripts/package-check.sh installs them."""

import gzip
import os
import re

from package_tool import DEBIAN_PACKAGES, LIBDIR, files_below, lines_of, run

LIBRARY_PACKAGE = "libnuveqcamerahandler1"
PACKAGES = (LIBRARY_PACKAGE, "libnuveqcamerahandler-dev", "nuveqcam")
VERSION = os.environ["PACKAGE_DEBIAN_VERSION"]


def fields(package):
    text = (DEBIAN_PACKAGES / package / "DEBIAN/control").read_text()
    return dict(re.findall(r"^(\S+): (.*)$", text, re.M))


def dependencies(package):
    """The names of the packages that this one depends on, without versions."""
    return {entry.split()[0] for entry in fields(package)["Depends"].split(", ")}


def expected_files():
    lists = {}
    for line in lines_of("debian_files.txt"):
        if line.startswith(" "):
            files.append(line.strip())
        else:
            files = lists.setdefault(line, [])
    return lists


def test_libraries_are_in_the_folder_of_the_architecture():
    assert LIBDIR == "lib/" + run("dpkg-architecture", "-qDEB_HOST_MULTIARCH").strip()


def test_packages_contain_exactly_the_listed_files():
    assert sorted(path.name for path in DEBIAN_PACKAGES.iterdir()) == sorted(PACKAGES)
    for package, files in expected_files().items():
        installed = [name for name in files_below(DEBIAN_PACKAGES / package) if not name.startswith("DEBIAN/")]
        assert installed == sorted(files), package


def test_packages_have_the_version_of_the_project_and_this_release():
    for package in PACKAGES:
        assert fields(package)["Version"] == VERSION
        assert fields(package)["Source"] == "nuveqcamerahandler"


def test_library_depends_on_the_system_libraries_that_it_links():
    names = dependencies(LIBRARY_PACKAGE)
    assert {re.sub(r"-?\d+(t64)?$", "", name) for name in names} >= {"libc", "libopenh264", "libyuv", "libstdc++"}
    assert not [name for name in names if re.search("log4cplus|nuveq|libav", name)]


def test_other_packages_depend_on_the_same_version_of_the_library():
    for package in ("libnuveqcamerahandler-dev", "nuveqcam"):
        assert f"{LIBRARY_PACKAGE} (= {VERSION})" in fields(package)["Depends"].split(", ")
    assert [name for name in dependencies("nuveqcam") if re.match("libavformat[0-9]", name)]


def test_library_provides_its_soname_only():
    control = DEBIAN_PACKAGES / LIBRARY_PACKAGE / "DEBIAN"
    assert (control / "shlibs").read_text() == f"libnuveqcamerahandler 1 {LIBRARY_PACKAGE}\n"
    exported = run("nm", "-D", "--defined-only", DEBIAN_PACKAGES / LIBRARY_PACKAGE / "usr" / LIBDIR /
                   "libnuveqcamerahandler.so.1").split()
    symbols = (control / "symbols").read_text().splitlines()
    assert symbols[0] == f"libnuveqcamerahandler.so.1 {LIBRARY_PACKAGE} #MINVER#"
    assert [line.split("@")[0].strip() for line in symbols if line.startswith(" ")] == [name for name in exported if name.startswith("NUVEQ")]


def test_changelog_starts_with_this_version():
    for package in PACKAGES:
        path = DEBIAN_PACKAGES / package / "usr/share/doc" / package / "changelog.Debian.gz"
        text = gzip.decompress(path.read_bytes()).decode()
        assert text.startswith(f"nuveqcamerahandler ({VERSION}) ")
        assert re.search(r"^ -- .+ <.+@.+>  \w{3}, \d\d \w{3} \d{4} [\d:]{8} \+0000\n\Z", text, re.M)
        assert max(map(len, text.splitlines())) <= 80
        # gzip -n: no time stamp.
        assert path.read_bytes()[4:8] == bytes(4)


def test_copyright_file_has_the_licences_of_the_bundled_libraries():
    texts = {package: (DEBIAN_PACKAGES / package / "usr/share/doc" / package / "copyright").read_text()
             for package in PACKAGES}
    for text in texts.values():
        assert text.startswith("Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n")
        assert "No licence has been chosen" in text
    assert "Files: log4cplus/*\n" in texts[LIBRARY_PACKAGE]
    assert "Two clause BSD license" in texts[LIBRARY_PACKAGE]
    assert "Files: utfcpp/*\n" in texts[LIBRARY_PACKAGE]
    assert "Files: cli11/*\n" in texts["nuveqcam"]
    assert "log4cplus" not in texts["libnuveqcamerahandler-dev"]
