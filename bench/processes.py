"""The programs that bench/run starts. None outlives the call that started it, however that ends."""

import contextlib
import os
import shlex
import signal
import subprocess
import sys
import tempfile
from pathlib import Path

# Seconds that one program may take, and those that it has to end when it is told to.
PATIENCE = 900
GRACE = 5


class Failed(Exception):
    """What has gone wrong and, where that is known, what to do about it."""


class Stopped(BaseException):
    """A signal asked for the end."""

    def __init__(self, number):
        super().__init__(signal.Signals(number).name)
        self.number = number


class _Signals:
    """Makes an exception of a signal, but for the moment in which a program has been started and nobody knows it."""

    NUMBERS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

    def __init__(self):
        self.is_starting = False
        self.received = None

    def receive(self, number, _frame):
        # Once is enough: what cleans up is not to be stopped as well.
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
    """From now on SIGINT, SIGTERM and SIGHUP raise Stopped."""
    for number in _Signals.NUMBERS:
        # A shell's background job does not hear of Ctrl-C, and is to go on like that.
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, _signals.receive)


def _end(process):
    """With everything that it runs: a build passes the signal on to its compilers, which are in groups of their own."""
    _signal_group(process, signal.SIGTERM)
    with contextlib.suppress(subprocess.TimeoutExpired):
        process.wait(timeout=GRACE)
    _signal_group(process, signal.SIGKILL)
    process.wait()


def _signal_group(process, number):
    with contextlib.suppress(ProcessLookupError):
        os.killpg(process.pid, number)


def run(command, name=None, patience=PATIENCE, is_shown=False):
    """What a program has written to its standard output and to its error output; shown ones write to ours instead.

    Failed when the program fails, takes longer than patience, or cannot be started.
    """
    command = [str(word) for word in command]
    name = name or Path(command[0]).name
    # Files: of a pipe the end comes only when nothing that the program has left behind holds it.
    with tempfile.TemporaryFile() as output, tempfile.TemporaryFile() as errors:
        try:
            process = _signals.start(command, stdin=subprocess.DEVNULL, stdout=sys.stderr if is_shown else output,
                                     stderr=sys.stderr if is_shown else errors, start_new_session=True)
        except OSError as error:
            raise Failed(f"{name} cannot be started: {error}") from error
        _wait(process, name, command, patience)
        said = _content(output), _content(errors)
    if process.returncode != 0:
        # Compilers and build tools complain on their standard output.
        words = "\n".join(text.strip()[-2000:] for text in said if text)
        raise Failed(f"{name} {_ending(process.returncode)}:\n{words}\nThe command was: {shlex.join(command)}")
    return said


def _wait(process, name, command, patience):
    try:
        if _signals.received is not None:
            raise Stopped(_signals.received)
        process.wait(timeout=patience)
    except subprocess.TimeoutExpired:
        raise Failed(f"{name} has not ended within {patience} s: {shlex.join(command)}") from None
    finally:
        if process.returncode is None:
            _end(process)
        # What it has started and left.
        _signal_group(process, signal.SIGKILL)


def _content(file):
    file.seek(0)
    return file.read().decode(errors="replace")


def _ending(status):
    return f"answers {status}" if status > 0 else f"was ended by {signal.Signals(-status).name}"
