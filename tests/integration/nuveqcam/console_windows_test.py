"""nuveqcam.exe on a console. Wine presents a pseudo terminal as a console and writes escape sequences to it."""

import fcntl
import os
import pty
import re
import select
import signal
from pathlib import Path

import pytest

from nuveqcam_tool import OK, PROGRAM, SMALL, USAGE, USE_PC, is_blocked_writing, is_pending, wait_until


@pytest.fixture
def console():
    """The descriptors of a pseudo terminal: that of the test and that of the program."""
    master, slave = pty.openpty()
    yield master, slave
    os.close(master)


def run_on_console(tool, console, *arguments, code=OK):
    """Runs the program with standard error on a console. Returns the console's output without escape sequences."""
    master, slave = console
    process = tool.start(*arguments, stderr=slave)
    os.close(slave)
    shown = b""
    while process.poll() is None or select.select([master], [], [], 0)[0]:
        if select.select([master], [], [], 0.1)[0]:
            try:
                shown += os.read(master, 4096)
            except OSError:  # the other end was closed
                break
    tool.finish(process, code)
    return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown.decode("utf-8"))


def test_console_shows_progress(tool, console):
    shown = run_on_console(tool, console, "record", "--seconds", 2, *SMALL)
    assert re.search(r"\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s\r", shown)


def test_console_shows_non_ascii_characters(tool, console):
    assert "gr\u00fc\u00df" in run_on_console(tool, console, "gr\u00fc\u00df", code=USAGE)


def plain(text):
    """Removes escape sequences, and spaces, which Wine may write as cursor movements."""
    return re.sub(rb"\x1b\[[0-9;?]*[A-Za-z]|\s", b"", text).decode(errors="replace")


def found(tool, program):
    """The ids of the program's processes in the test's folder."""
    numbers = []
    for folder in Path("/proc").glob("[0-9]*"):
        try:
            command = (folder / "cmdline").read_bytes()
            if command.startswith(program.encode() + b"\0") and tool.folder.samefile(folder / "cwd"):
                numbers.append(int(folder.name))
        except OSError:  # it has ended, or belongs to another user
            continue
    return numbers


@pytest.mark.parametrize("arguments, presses", [("--help", 1), ("record -o - --seconds 0 --size 320x240", 2)])
def test_code_page_is_restored_when_ctrl_c_ends_the_program(tool, console, arguments, presses):
    """The program blocks on a full pipe until Ctrl-C has been pressed the given number of times."""
    reader, writer = os.pipe()
    fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
    master, slave = console
    prefix = Path(PROGRAM).parent.parent / "wine"
    [code_page, program] = (f"Z:{file}".replace("/", "\\") for file in (Path(USE_PC).parent / "code_page.exe", PROGRAM))
    # The first code page is printed to the console, the second to the pipe.
    process = tool.start("/c", f"{code_page} 1>&2 & {program} {arguments} & {code_page}",
                         program=prefix / "drive_c/windows/system32/cmd.exe", stdout=writer, stderr=slave,
                         env={**os.environ, "NUVEQ_WINEPREFIX": str(prefix)})
    os.write(writer, bytes(4096))
    os.close(writer)
    os.close(slave)
    shown, piped = bytearray(), bytearray()

    def has_come(text, source, into):
        if select.select([source], [], [], 0)[0]:
            into += os.read(source, 8192)
        return text in plain(into)

    wait_until(lambda: has_come("codepage:", master, shown) and
               any(is_blocked_writing(number, reader) for number in found(tool, program)), process)
    [number] = found(tool, program)
    for _ in range(presses):
        os.kill(number, signal.SIGINT)
        wait_until(lambda: not is_pending(number, signal.SIGINT))
    wait_until(lambda: not found(tool, program))
    wait_until(lambda: has_come("codepage:", reader, piped))
    os.close(reader)
    before, after = (re.search(r"codepage:(\d+)\.", plain(text))[1] for text in (shown, piped))
    assert before != "65001"
    assert after == before
