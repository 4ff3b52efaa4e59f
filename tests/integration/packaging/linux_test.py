"""The package for Linux: its libraries, and its use through pkg-config and by its example and tool."""

import os
import re
import shlex
from pathlib import Path

from package_tool import (BUILD, C_COMPILER, CMAKE, CONSUMER, ENVIRONMENT, INSTALLED, LIBDIR, LIBRARY, LOG4CPLUS, PACKAGE,
                          VERSION, binaries, expected_files, files_below, result_of, run)


def test_staged_installation_writes_only_below_destdir(scratch):
    prefix = scratch / "unused prefix"
    run(CMAKE, "--install", BUILD, "--prefix", prefix, env={**os.environ, "DESTDIR": str(scratch / "stage")})
    assert not prefix.exists()
    assert files_below(Path(f"{scratch}/stage{prefix}")) == expected_files()


def test_run_paths_are_relative_to_origin():
    for path in binaries():
        for places in re.findall(r"\((?:RPATH|RUNPATH)\).*\[(.*)\]", run("readelf", "-d", path)):
            for place in places.split(":"):
                assert re.match(r"\$ORIGIN(/|$)", place), path


def test_own_libraries_are_loaded_from_the_package():
    packaged = {path.name for path in binaries()}
    loaded = set()
    for path in binaries():
        output = run("ldd", path, env=ENVIRONMENT)
        for name, place in re.findall(r"^\s*(\S+) => (.*?)(?: \(0x[0-9a-f]+\))?$", output, re.M):
            assert place != "not found", f"{path} needs {name}"
            if name in packaged:
                loaded.add(name)
                assert os.path.commonpath([os.path.realpath(place), PACKAGE]) == str(PACKAGE), name
    assert loaded >= {LOG4CPLUS, "libMultiMediaEncoder.so", "libnuveqplatform.so"}


def test_library_has_a_versioned_soname():
    major = VERSION.split(".", maxsplit=1)[0]
    assert f"[libnuveqcamerahandler.so.{major}]" in run("readelf", "-d", LIBRARY)
    assert LIBRARY.resolve().name == f"libnuveqcamerahandler.so.{VERSION}"


def test_library_exports_one_function():
    symbols = run("nm", "-D", "--defined-only", LIBRARY).splitlines()
    assert [line.split()[-1].split("@")[0] for line in symbols] == ["NUVEQGetCameraHandler"]


def pkg_config(*arguments):
    environment = {**ENVIRONMENT, "PKG_CONFIG_LIBDIR": str(INSTALLED / LIBDIR / "pkgconfig")}
    return shlex.split(run("pkg-config", *arguments, "nuveqcamerahandler", env=environment))


def test_pkg_config_project_uses_the_moved_installation(scratch):
    assert pkg_config("--modversion") == [VERSION]
    program = scratch / "consumer"
    [folder] = pkg_config("--variable=libdir")
    run(C_COMPILER, "-std=c99", *pkg_config("--cflags"), CONSUMER / "consumer.c", "-o", program, *pkg_config("--libs"),
        f"-Wl,-rpath,{folder}")
    assert result_of(scratch, program) == (0, "table 0, null -2")


def test_packaged_example_compiles_and_loads_the_library(scratch):
    program = scratch / "packets"
    run(C_COMPILER, "-I", PACKAGE / "include", PACKAGE / "share/doc/nuveqcamerahandler/examples/packets.c", "-o", program)
    # 1 means that the library was not loaded. The other codes depend on the cameras of this PC.
    code, output = result_of(scratch, program, LIBRARY)
    assert code in (0, 3, 4), output


def test_tool_lists_the_simulated_camera(scratch):
    code, output = result_of(scratch, INSTALLED / "bin/nuveqcam", "list", "--simulated")
    assert code == 0
    assert re.search(r"Camera 0: .*simulated[\s\S]*640 x   480", output)


def test_tool_records_with_the_installed_encoder(scratch):
    code, output = result_of(scratch, INSTALLED / "bin/nuveqcam", "record", "-o", "camera.h264", "--size", "320x240",
                             "--seconds", "1", "--simulated")
    assert code == 0, output
    # Starts with a sequence parameter set.
    assert re.match("000000016", (scratch / "camera.h264").read_bytes()[:5].hex())
    assert (scratch / "camera.h264").read_bytes()[4] & 31 == 7


def test_man_page_is_in_the_man_path():
    page = run("mandoc", "-T", "utf8", INSTALLED / "share/man/man1/nuveqcam.1.gz")
    assert "--simulated" in re.sub(".\b", "", page)
