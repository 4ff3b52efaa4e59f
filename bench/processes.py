"""Runs child processes. No child outlives the call that started it."""

import contextlib
import os
import shlex
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

# Default timeout of a program, and time between SIGTERM and SIGKILL, in seconds.
TIMEOUT = 900
TERMINATION_TIMEOUT = 5
_AUTOGROUP = Path("/proc/self/autogroup")


class BenchError(Exception):
    """A failure, with a hint how to fix it if possible."""


class Stopped(BaseException):
    """A signal requested termination."""

    def __init__(self, number):
        super().__init__(signal.Signals(number).name)
        self.number = number


class _Signals:
    """Raises Stopped on a signal, deferred while a program is being started, so that the program is not leaked."""

    NUMBERS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def __init__(self):
        self.is_starting = False
        self.received = None

    def receive(self, number, _frame):
        # Ignores further signals, so that the clean-up is not interrupted.
        for one in self.NUMBERS:
            signal.signal(one, signal.SIG_IGN)
        self.received = number
        if not self.is_starting:
            raise Stopped(number)

    def start(self, *arguments, **options):
        self.is_starting = True
        try:
            return subprocess.Popen(*arguments, **options)
        finally:
            self.is_starting = False


_signals = _Signals()


def stop_on_signals():
    """Makes SIGINT, SIGTERM and SIGHUP raise Stopped."""
    for number in _Signals.NUMBERS:
        # Background jobs of a shell ignore SIGINT; keep it that way.
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, _signals.receive)


def _terminate(process):
    """Terminates a process and its group. SIGTERM lets a build terminate its compilers, which have their own groups."""
    _signal_group(process, signal.SIGTERM)
    with contextlib.suppress(subprocess.TimeoutExpired):
        process.wait(timeout=TERMINATION_TIMEOUT)
    _signal_group(process, signal.SIGKILL)
    process.wait()


def _signal_group(process, number):
    with contextlib.suppress(ProcessLookupError):
        os.killpg(process.pid, number)


def run(command, name=None, timeout=TIMEOUT, is_shown=False):
    """Runs a program and returns its standard output and standard error. With is_shown, both go to our standard error.

    Raises BenchError if the program cannot be started, fails, or exceeds the timeout in seconds.
    """
    command = [str(word) for word in command]
    name = name or Path(command[0]).name
    # Files, not pipes: a pipe stays open as long as any descendant holds it.
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        try:
            process = _signals.start(command, stdin=subprocess.DEVNULL, stdout=sys.stderr if is_shown else output,
                                     stderr=sys.stderr if is_shown else errors, start_new_session=True)
        except OSError as error:
            raise BenchError(f"{name} cannot be started: {error}") from error
        _wait(process, name, command, timeout)
        texts = _content(output), _content(errors)
    if process.returncode != 0:
        # Build tools print errors on standard output.
        details = "\n".join(text.strip()[-2000:] for text in texts if text)
        raise BenchError(f"{name} {_describe_status(process.returncode)}:\n{details}\nThe command was: {shlex.join(command)}")
    return texts


@contextlib.contextmanager
def background(command, log=None, **options):
    """Runs a program during the context. Its output goes to the file; without one, it is discarded. Yields the process."""
    command = [str(word) for word in command]
    with open(log or os.devnull, "wb") as output:
        try:
            process = _signals.start(command, **{"stdin": subprocess.DEVNULL, "stdout": output, "stderr": output,
                                                 "start_new_session": True, **options})
        except OSError as error:
            raise BenchError(f"{command[0]} cannot be started: {error}") from error
        try:
            if _signals.received is not None:
                raise Stopped(_signals.received)
            _inherit_autogroup(process)
            yield process
        finally:
            _terminate(process)


def raise_autogroup():
    """Gives this session, and those of programs that run in the background, precedence over others. A nice value has an
    effect only within a session."""
    try:
        _AUTOGROUP.write_text("-15", encoding="ascii")
    except OSError as error:
        raise BenchError(f"the priority cannot be raised: {error}") from error


def _inherit_autogroup(process):
    """The session of a new process begins with the nice value 0."""
    with contextlib.suppress(OSError):  # the kernel has no autogroups, or the process has ended
        # Empty if this process belongs to a control group with its own share of the processors, as in a container.
        fields = _AUTOGROUP.read_text(encoding="ascii").split()
        if fields and fields[-1] != "0":
            Path(f"/proc/{process.pid}/autogroup").write_text(fields[-1], encoding="ascii")


def _wait(process, name, command, timeout):
    try:
        if _signals.received is not None:
            raise Stopped(_signals.received)
        process.wait(timeout=timeout)
    except subprocess.TimeoutExpired:
        raise BenchError(f"{name} did not finish within {timeout} s: {shlex.join(command)}") from None
    finally:
        if process.returncode is None:
            _terminate(process)
        # Kills processes that it left behind.
        _signal_group(process, signal.SIGKILL)


def _content(file):
    file.seek(0)
    return file.read().decode(errors="replace")


def _describe_status(status):
    return f"exited with status {status}" if status > 0 else f"was terminated by {signal.Signals(-status).name}"
