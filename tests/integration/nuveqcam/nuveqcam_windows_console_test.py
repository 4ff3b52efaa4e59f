"""nuveqcam.exe as a user runs it: on a console, under Wine with the camera fixtures.

ctest runs each test separately. To run all of them in a prefix with the fixtures:
NUVEQCAM=build/windows/bin/nuveqcam.exe NUVEQCAM_VERSION=0.1.0 NUVEQCAM_RUNNER=scripts/wine.sh \\
USE_PC=build/windows/fixtures/use_pc.exe python3 FILE
"""

import fcntl
import os
import pty
import re
import select
import signal
import subprocess
import unittest
from pathlib import Path

from nuveqcam_tool import OK, PROGRAM, SMALL, USAGE, is_blocked_writing, is_pending, reset_signals, wait_until
from nuveqcam_windows_tool import RUNNER, USE_PC, WindowsTool


class WindowsConsole(WindowsTool):
    """Wine presents a pseudo terminal as a console and writes escape sequences to it."""

    def run_on_console(self, *arguments, code=OK):
        """Runs the program with standard error on a console. Returns the console's output without escape sequences."""
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        process = self.start(*arguments, stderr=slave)
        os.close(slave)
        shown = b""
        while process.poll() is None or select.select([master], [], [], 0)[0]:
            if select.select([master], [], [], 0.1)[0]:
                try:
                    shown += os.read(master, 4096)
                except OSError:  # the other end was closed
                    break
        self.finish(process, code)
        return re.sub(r"\x1b\[[0-9;?]*[A-Za-z]", "", shown.decode("utf-8"))

    def test_console_shows_progress(self):
        shown = self.run_on_console("record", "--seconds", 2, *SMALL)
        self.assertRegex(shown, r"\r +\d+\.\d s +\d+ frames +\d+\.\d fps +\d+ kbit/s\r")

    def test_console_shows_non_ascii_characters(self):
        self.assertIn("gr\u00fc\u00df", self.run_on_console("gr\u00fc\u00df", code=USAGE))

    def test_recordings_and_pictures_to_a_console_are_rejected(self):
        for command, what in (("record", "recording"), ("snapshot", "picture")):
            master, slave = pty.openpty()
            self.addCleanup(os.close, master)
            _, err = self.run_tool(command, "-o", "-", stdout=slave, code=USAGE)
            os.close(slave)
            self.assertEqual(err, f"nuveqcam: a terminal cannot show the {what}; pipe it into a program, or choose a file with -o\n")

    def code_pages_around(self, arguments, presses):
        """The console's code page before and after a run of the program, which blocks on a full pipe until Ctrl-C has
        been pressed the given number of times."""
        reader, writer = os.pipe()
        self.addCleanup(os.close, reader)
        fcntl.fcntl(writer, fcntl.F_SETPIPE_SZ, 4096)
        master, slave = pty.openpty()
        self.addCleanup(os.close, master)
        prefix = Path(PROGRAM).parent.parent / "wine"
        [code_page, program] = (f"Z:{file}".replace("/", "\\") for file in (Path(USE_PC).parent / "code_page.exe", PROGRAM))
        # The first code page is printed to the console, the second to the pipe.
        process = subprocess.Popen(
            [RUNNER, "--live", prefix / "drive_c/windows/system32/cmd.exe", "/c",
             f"{code_page} 1>&2 & {program} {arguments} & {code_page}"], cwd=self.folder, stdin=subprocess.DEVNULL,
            stdout=writer, stderr=slave, env={**os.environ, "NUVEQ_WINEPREFIX": str(prefix)}, preexec_fn=reset_signals)
        self.addCleanup(self.end, process)
        os.write(writer, bytes(4096))
        os.close(writer)
        os.close(slave)
        shown, piped = bytearray(), bytearray()

        def has_come(text, source, into):
            if select.select([source], [], [], 0)[0]:
                into += os.read(source, 8192)
            return text in self.plain(into)

        wait_until(lambda: has_come("codepage:", master, shown) and
                   any(is_blocked_writing(number, reader) for number in self.found(program)), process)
        [number] = self.found(program)
        for _ in range(presses):
            os.kill(number, signal.SIGINT)
            wait_until(lambda: not is_pending(number, signal.SIGINT))
        wait_until(lambda: not self.found(program))
        wait_until(lambda: has_come("codepage:", reader, piped))
        return [re.search(r"codepage:(\d+)\.", self.plain(text))[1] for text in (shown, piped)]

    @staticmethod
    def plain(text):
        """Removes escape sequences, and spaces, which Wine may write as cursor movements."""
        return re.sub(rb"\x1b\[[0-9;?]*[A-Za-z]|\s", b"", text).decode(errors="replace")

    def found(self, program):
        """The ids of the program's processes in the test's folder."""
        numbers = []
        for folder in Path("/proc").glob("[0-9]*"):
            try:
                command = (folder / "cmdline").read_bytes()
                if command.startswith(program.encode() + b"\0") and self.folder.samefile(folder / "cwd"):
                    numbers.append(int(folder.name))
            except OSError:  # it has ended, or belongs to another user
                continue
        return numbers

    def test_code_page_is_restored_when_ctrl_c_ends_the_program(self):
        for arguments, presses in (("--help", 1), ("record -o - --seconds 0 --size 320x240", 2)):
            before, after = self.code_pages_around(arguments, presses)
            self.assertNotEqual(before, "65001")
            self.assertEqual(after, before)

    def test_file_gets_no_progress(self):
        _, err = self.run_tool("record", "--seconds", 1, *SMALL)
        self.assertEqual(err, "")


if __name__ == "__main__":
    unittest.main()
