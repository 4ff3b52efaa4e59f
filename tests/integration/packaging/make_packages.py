"""Creates the packages for the tests: an installation that is then moved, and packages that are unpacked."""

import shutil

from package_tool import (ARCHIVE, BUILD, CMAKE, CPACK, DEBIAN_PACKAGES, FOLDER, INSTALLED, IS_WINDOWS, PACKED, UNPACKED,
                          run)

shutil.rmtree(FOLDER, ignore_errors=True)
FOLDER.mkdir(parents=True)
install_folder = FOLDER / "installed"
run(CMAKE, "--install", BUILD, "--prefix", install_folder, "--strip")
install_folder.rename(INSTALLED)
run(CPACK, "--config", BUILD / "CPackConfig.cmake", "-B", FOLDER / "packed")
shutil.rmtree(FOLDER / "packed/_CPack_Packages")
shutil.unpack_archive(PACKED, UNPACKED)
if not IS_WINDOWS:
    DEBIAN_PACKAGES.mkdir()
    for package in (FOLDER / "packed").glob("*.deb"):
        run("dpkg-deb", "--raw-extract", package, DEBIAN_PACKAGES / package.name.split("_")[0])
print(f"created {ARCHIVE}, {PACKED.stat().st_size} bytes")
