"""The package for Windows: the imports, exports and resources of its binaries, and its use by hosts under Wine."""

import os
import re
import shutil
import struct

from package_tool import C_COMPILER, CONSUMER, LIBRARY, OBJDUMP, PACKAGE, VERSION, binaries, result_of, run

RUNTIME = {"libstdc++-6.dll", "libgcc_s_seh-1.dll", "libwinpthread-1.dll"}
# DLLs of Windows that the library and the other binaries may import.
LIBRARY_SYSTEM_DLLS = {"kernel32.dll", "msvcrt.dll", "ole32.dll", "setupapi.dll", "cfgmgr32.dll"}
SYSTEM_DLLS = LIBRARY_SYSTEM_DLLS | {
    "advapi32.dll", "bcrypt.dll", "gdi32.dll", "mswsock.dll", "oleaut32.dll", "shell32.dll", "shlwapi.dll", "user32.dll", "ws2_32.dll"}


def imports(path):
    """Maps the name of each imported DLL to its imported functions."""
    found = {}
    for line in run(OBJDUMP, "-p", path).splitlines():
        if name := re.match(r"\s*DLL Name: (\S+)", line):
            functions = found.setdefault(name.group(1), [])
        # "<none>" is printed by newer versions.
        elif function := re.match(r"\t[0-9a-f]+\s+(?:<none>\s+)?[0-9a-f]+\s+(\w+)", line):
            if found:
                functions.append(function.group(1))
    return found


def test_binaries_import_only_dlls_of_the_package_or_windows():
    packaged = {path.name for path in binaries()}
    for path in binaries():
        needed = imports(path)
        assert "KERNEL32.dll" in needed, path
        assert {name for name in needed if name not in packaged and name.lower() not in SYSTEM_DLLS} == set(), path


def test_library_imports_only_its_documented_dlls():
    assert ({name for name in imports(LIBRARY) if name.lower() not in LIBRARY_SYSTEM_DLLS} ==
            RUNTIME | {"liblog4cplus.dll", "MultiMediaEncoder.dll"})


def test_library_imports_configuration_manager_functions_from_cfgmgr32():
    needed = imports(LIBRARY)
    assert sorted(needed["CFGMGR32.dll"]) == ["CM_Get_Child", "CM_Get_DevNode_Status", "CM_Get_Device_IDA"]
    assert "SetupDiGetClassDevsW" in needed["SETUPAPI.dll"]
    assert [name for name in needed["SETUPAPI.dll"] if name.startswith("CM_")] == []


def test_library_exports_one_undecorated_function():
    text = run(OBJDUMP, "-p", LIBRARY)
    table = text[text.index("[Ordinal/Name Pointer] Table"):]
    names = re.findall(r"^\t\[\s*\d+\](?: \+base\[\s*\d+\]\s+[0-9a-f]+)? (\S+)", table, re.M)
    assert names == ["NUVEQGetCameraHandler"]


def version_resource(path):
    """Returns the numeric versions, FileVersion and ProductVersion of a version resource."""
    content = path.read_bytes()
    fixed = content.index(struct.pack("<I", 0xFEEF04BD))
    _, _, high, low, product_high, product_low = struct.unpack_from("<6I", content, fixed)
    numbers = [(word >> 16, word & 0xFFFF) for word in (high, low, product_high, product_low)]

    def text(name):
        start = content.index((name + "\0").encode("utf-16-le")) + 2 * len(name) + 2
        return re.match(r"\0*([^\0]*)\0", content[start:start + 64].decode("utf-16-le", "replace")).group(1)

    return numbers, text("FileVersion"), text("ProductVersion")


def test_own_binaries_have_a_version_resource():
    major, minor, patch = map(int, VERSION.split("."))
    numbers = [(major, minor), (patch, 0)]
    for path in [LIBRARY, PACKAGE / "bin/MultiMediaEncoder.dll", *PACKAGE.rglob("*.exe")]:
        assert version_resource(path) == (numbers + numbers, VERSION, VERSION), path


def test_def_file_creates_an_import_library(scratch):
    imported = scratch / "imported.lib"
    run(os.environ["PACKAGE_DLLTOOL"], "-d", PACKAGE / "lib/libnuveqcamerahandler.def", "-l", imported)
    # The host loads the DLLs from its own folder.
    for dll in (PACKAGE / "bin").glob("*.dll"):
        shutil.copy(dll, scratch)
    program = scratch / "host.exe"
    run(C_COMPILER, "-I", PACKAGE / "include", CONSUMER / "consumer.c", imported, "-o", program)
    assert result_of(scratch, program) == (0, "table 0, null -2")


def test_readme_program_loads_the_library_from_another_folder(scratch):
    code = re.search(r"^```c\n(.*?)^```$", (PACKAGE / "README.md").read_text(), re.M | re.S).group(1)
    source = scratch / "packets.c"
    source.write_text(code)
    program = scratch / "packets.exe"
    run(C_COMPILER, "-Wall", "-Wextra", "-Werror", "-I", PACKAGE / "include", source, "-o", program)
    # The prefix has no camera, so the query fails and reports action 440.
    for library, result in ((LIBRARY, (3, "no usable camera (440)")),
                            # Another copy of the library is not used instead.
                            (scratch / "absent.dll", (1, ""))):
        assert result_of(scratch, program, f"Z:{library}".replace("/", "\\")) == result
