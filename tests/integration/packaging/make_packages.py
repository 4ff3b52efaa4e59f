"""Makes the packages that the other tests look at: installed and then moved; packed and unpacked elsewhere."""

import shutil

from package_tool import ARCHIVE, BUILD, CMAKE, CPACK, FOLDER, INSTALLED, UNPACKED, archive, run


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    FOLDER.mkdir(parents=True)
    first_place = FOLDER / "installed"
    run(CMAKE, "--install", BUILD, "--prefix", first_place, "--strip")
    first_place.rename(INSTALLED)
    run(CPACK, "--config", BUILD / "CPackConfig.cmake", "-B", FOLDER / "packed")
    shutil.rmtree(FOLDER / "packed/_CPack_Packages")
    shutil.unpack_archive(archive(), UNPACKED)
    print(f"made {ARCHIVE}, {archive().stat().st_size} bytes")


main()
