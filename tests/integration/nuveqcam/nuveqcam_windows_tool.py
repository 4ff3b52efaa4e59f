"""Helpers for tests that run nuveqcam.exe under Wine: the simulated devices and redirected output."""

import os
import subprocess

from nuveqcam_tool import OK, PROGRAM, Tool, reset_signals

RUNNER = os.path.abspath(os.environ["NUVEQCAM_RUNNER"])
USE_PC = os.path.abspath(os.environ["USE_PC"])
TIMEOUT = 100


class WindowsTool(Tool):
    PC = "laptop"

    def setUp(self):
        super().setUp()
        # With spaces and non-ASCII characters.
        self.folder = self.folder / "Meine Bilder \u00e4 \u4e2d"
        self.folder.mkdir()
        self.use_pc(self.PC)
        self.runs = 0

    @staticmethod
    def use_pc(pc):
        subprocess.run([RUNNER, USE_PC, pc], stdin=subprocess.DEVNULL, timeout=TIMEOUT, check=True)

    def start(self, *arguments, **options):
        """Redirects output to files: Wine's background processes can keep pipes open after the program has ended."""
        self.runs += 1
        self.out, self.err = (self.folder.parent / f"{name}{self.runs}" for name in ("out", "err"))
        with open(self.out, "wb") as out, open(self.err, "wb") as err:
            options = {"stdout": out, "stderr": err, **options}
            process = subprocess.Popen([RUNNER, "--live", PROGRAM, *map(str, arguments)], cwd=self.folder,
                                       stdin=subprocess.DEVNULL, preexec_fn=reset_signals, **options)
        self.addCleanup(self.end, process)
        return process

    @staticmethod
    def end(process):
        if process.poll() is None:
            process.kill()
        process.wait()

    def finish(self, process, code=OK):
        process.wait(timeout=TIMEOUT)
        err = self.err.read_text(encoding="utf-8")
        self.assertEqual(process.returncode, code, err)
        return self.out.read_bytes(), err

    def run_tool(self, *arguments, code=OK, **options):
        out, err = self.finish(self.start(*arguments, **options), code)
        return out.decode("utf-8"), err

    def check_recording(self, name, summary, width, height):
        self.assertEqual(self.file(name).read_bytes()[:5], b"\0\0\0\1\x67")
        pictures = self.pictures(name, width, height)
        self.assertEqual(len(pictures), int(self.summary(summary)["frames"]))
        self.check_numbers(pictures, width, height)
        return pictures
