"""Creates the packages for the tests: an installation that is then moved, and an archive that is unpacked."""

import shutil

from package_tool import ARCHIVE, BUILD, CMAKE, CPACK, FOLDER, INSTALLED, PACKED, UNPACKED, run

shutil.rmtree(FOLDER, ignore_errors=True)
FOLDER.mkdir(parents=True)
install_folder = FOLDER / "installed"
run(CMAKE, "--install", BUILD, "--prefix", install_folder, "--strip")
install_folder.rename(INSTALLED)
run(CPACK, "--config", BUILD / "CPackConfig.cmake", "-B", FOLDER / "packed")
shutil.rmtree(FOLDER / "packed/_CPack_Packages")
shutil.unpack_archive(PACKED, UNPACKED)
print(f"created {ARCHIVE}, {PACKED.stat().st_size} bytes")
