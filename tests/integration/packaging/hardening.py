"""Finds missing exploit mitigations in binaries. The functions return the names of the missing ones."""

import os
import re

from package_tool import C_COMPILER, OBJDUMP, run

WINDOWS_BITS = {0x20: "high-entropy ASLR", 0x40: "ASLR", 0x100: "DEP"}


def missing_in_elf(path):
    missing = []
    segments = run("readelf", "-lW", path)
    dynamic = run("readelf", "-dW", path)
    if not re.search(r"^\s*GNU_RELRO\s", segments, re.M):
        missing.append("read-only relocations")
    if not re.search(r"\((FLAGS|BIND_NOW)\).*BIND_NOW|\(FLAGS_1\).*\bNOW\b", dynamic):
        missing.append("immediate binding")
    stack = re.search(r"^\s*GNU_STACK(?:\s+0x[0-9a-f]+){5} ([RWE ]{3})", segments, re.M)
    if not stack or "E" in stack.group(1):
        missing.append("non-executable stack")
    if "TEXTREL" in dynamic:
        missing.append("position-independent code")
    if not re.search(r"^Elf file type is DYN", segments, re.M):
        missing.append("position-independent executable")
    if needs_control_flow_property() and not re.search(r"x86 feature:.*IBT.*SHSTK", run("readelf", "-nW", path)):
        missing.append("control-flow protection")
    return missing


def needs_control_flow_property():
    """The linker drops the property if the start-up code of the compiler or the C library lacks it."""
    parts = [run(C_COMPILER, f"-print-file-name={name}").strip() for name in ("crti.o", "crtbeginS.o", "crtn.o")]
    return all(re.search(r"x86 feature:.*IBT.*SHSTK", run("readelf", "-nW", part)) for part in parts)


def unprotected_exports(path):
    """Exported functions without endbr64, which cannot be called through a pointer."""
    code = run(OBJDUMP, "-d", "--no-show-raw-insn", path)
    if "elf64-x86-64" not in code:
        return []
    targets = {int(address, 16) for address in re.findall(r"^\s*([0-9a-f]+):\s+endbr64", code, re.M)}
    exported = re.findall(r"^([0-9a-f]+) T (\S+)", run("nm", "-D", "--defined-only", path), re.M)
    return [name for address, name in exported if int(address, 16) not in targets]


def missing_in_own_elf(path, has_checked_functions):
    """Checks a binary of this project, including mitigations that the compiler inserts."""
    missing = missing_in_elf(path)
    imports = re.findall(r"^\s+U (\w+)", run("nm", "-D", "--undefined-only", path), re.M)
    if "__stack_chk_fail" not in imports:
        missing.append("stack protector")
    if has_checked_functions and not any(re.fullmatch(r"__(?!stack)\w+_chk", name) for name in imports):
        missing.append("fortified functions")
    missing += [f"endbr64 in {name}" for name in unprotected_exports(path)]
    return missing


def missing_in_pe(path):
    missing = []
    headers = run(OBJDUMP, "-p", path)
    bits = int(re.search(r"^DllCharacteristics\s+([0-9a-f]+)", headers, re.M).group(1), 16)
    missing += [name for bit, name in WINDOWS_BITS.items() if not bits & bit]
    table = re.search(r"^Entry 5 [0-9a-f]+ ([0-9a-f]+) Base Relocation", headers, re.M)
    if "relocations stripped" in headers or not table or int(table.group(1), 16) == 0:
        missing.append("relocations")
    if "libssp" in headers:
        missing.append("link without libssp")
    return missing


def missing_in_own_pe(unstripped):
    """Like missing_in_pe; the stack protector is visible only in the symbols."""
    missing = missing_in_pe(unstripped)
    if not re.search(r" T __stack_chk_fail$", run(os.environ["PACKAGE_NM"], unstripped), re.M):
        missing.append("stack protector")
    return missing
