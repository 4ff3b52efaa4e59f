"""What a binary lacks of the protections that it should have: lists of words, empty for one that has all."""

import os
import re

from package_tool import OBJDUMP, run

WINDOWS_BITS = {0x20: "high-entropy ASLR", 0x40: "ASLR", 0x100: "DEP"}


def lacks_of_elf(path):
    lacks = []
    segments = run("readelf", "-lW", path)
    dynamic = run("readelf", "-dW", path)
    if not re.search(r"^\s*GNU_RELRO\s", segments, re.M):
        lacks.append("read-only relocations")
    if not re.search(r"\((FLAGS|BIND_NOW)\).*BIND_NOW|\(FLAGS_1\).*\bNOW\b", dynamic):
        lacks.append("binding at start")
    stack = re.search(r"^\s*GNU_STACK(?:\s+0x[0-9a-f]+){5} ([RWE ]{3})", segments, re.M)
    if not stack or "E" in stack.group(1):
        lacks.append("a stack without code")
    if "TEXTREL" in dynamic:
        lacks.append("code without relocations")
    if not re.search(r"^Elf file type is DYN", segments, re.M):
        lacks.append("an address of the system's choice")
    if needs_control_flow_property() and not re.search(r"x86 feature:.*IBT.*SHSTK", run("readelf", "-nW", path)):
        lacks.append("control-flow protection")
    return lacks


def needs_control_flow_property():
    """The linker drops it where the compiler's or the C library's own start-up code lacks it."""
    compiler = os.environ["PACKAGE_C_COMPILER"]
    parts = [run(compiler, f"-print-file-name={name}").strip() for name in ("crti.o", "crtbeginS.o", "crtn.o")]
    return all(re.search(r"x86 feature:.*IBT.*SHSTK", run("readelf", "-nW", part)) for part in parts)


def unprotected_exports(path):
    """Functions that may be called through a pointer and do not begin as a target of one."""
    code = run(OBJDUMP, "-d", "--no-show-raw-insn", path)
    if "elf64-x86-64" not in code:
        return []
    targets = {int(address, 16) for address in re.findall(r"^\s*([0-9a-f]+):\s+endbr64", code, re.M)}
    exported = re.findall(r"^([0-9a-f]+) T (\S+)", run("nm", "-D", "--defined-only", path), re.M)
    return [name for address, name in exported if int(address, 16) not in targets]


def lacks_of_own_elf(path, has_checked_functions):
    """Of what this project compiles itself, for which the linker's flags alone do not speak."""
    lacks = lacks_of_elf(path)
    imports = re.findall(r"^\s+U (\w+)", run("nm", "-D", "--undefined-only", path), re.M)
    if "__stack_chk_fail" not in imports:
        lacks.append("a stack protector")
    if has_checked_functions and not any(re.fullmatch(r"__(?!stack)\w+_chk", name) for name in imports):
        lacks.append("checked functions")
    lacks += [f"a marked entry of {name}" for name in unprotected_exports(path)]
    return lacks


def lacks_of_pe(path):
    lacks = []
    headers = run(OBJDUMP, "-p", path)
    bits = int(re.search(r"^DllCharacteristics\s+([0-9a-f]+)", headers, re.M).group(1), 16)
    lacks += [name for bit, name in WINDOWS_BITS.items() if not bits & bit]
    table = re.search(r"^Entry 5 [0-9a-f]+ ([0-9a-f]+) Base Relocation", headers, re.M)
    if "relocations stripped" in headers or not table or int(table.group(1), 16) == 0:
        lacks.append("relocations")
    if "libssp" in headers:
        lacks.append("independence of libssp")
    return lacks


def lacks_of_own_pe(unstripped):
    """The stack protector shows in the symbols alone."""
    lacks = lacks_of_pe(unstripped)
    if not re.search(r" T __stack_chk_fail$", run(os.environ["PACKAGE_NM"], unstripped), re.M):
        lacks.append("a stack protector")
    return lacks
