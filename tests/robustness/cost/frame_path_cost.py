#!/usr/bin/env python3
"""Counts the instructions per frame in the library and the encoder library, without the encoding, and checks limits.

Instruction counts hardly depend on the machine and its load. Environment: COST_PROGRAM (frame_path_cost),
COST_ENCODER_LIBRARY (encoder_library_cost), COST_VALGRIND (valgrind).
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

FRAMES = 100
PIXELS = 640 * 480
FRAME_BYTES = PIXELS * 2
# Timeout of one run in seconds; five runs stay below the timeout of the test.
RUN_TIMEOUT = 120

# Limits in instructions, per frame unless noted otherwise. About 10 % above the measured values, more for small ones
# (docs/performance.md). Lower them when the library improves; raise them only for a good reason.
LIMITS = {
    "PushFrame without the copy": 430,
    "the copy, for 1000 bytes": 210,
    "encoder thread without the encoder and the callback": 760,
    "a disabled log message": 80,
    "conversion of YUY2, for 1000 pixels": 1700,
    "conversion of ARGB32, for 1000 pixels": 3800,
    "memory of a packet": 300,
}

PUSH = r"CameraOperator::PushFrame\("
ENCODER_THREAD = r"CameraOperator::EncodeH264\("
COPY = r"\b_*mem(cpy|move|set)\w*"
CONVERT = r"encoder::I420Converter::Convert\("
PACKET = r"encoder::Reserve\(|AVEncodePacket::~?AVEncodePacket\("
# The scripted encoder, and the host's work for a packet.
EXCLUDED = (r"ScriptedEncoder::Encode\(", r"HostCallbacks::OnData\(", r"AVEncodePacket::~?AVEncodePacket\(")
# Defined by the scripted host.
LOGGER = r"^GetLogger\("


def count(valgrind, folder, *command):
    """Runs a command under callgrind and returns the calls of its functions."""
    profile = folder / "profile"
    command = [
        valgrind, "--tool=callgrind", f"--callgrind-out-file={profile}", "--compress-strings=no", "--compress-pos=no",
        "--fair-sched=try", *command]
    # glibc selects functions by the processor's features; use the baseline versions everywhere.
    processor = "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-SSSE3"
    environment = dict(os.environ, NUVEQ_FRAMES=str(FRAMES), GLIBC_TUNABLES=processor)
    try:
        result = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=RUN_TIMEOUT, check=False)
    except subprocess.TimeoutExpired:
        sys.exit(f"a run under callgrind has not ended within {RUN_TIMEOUT} s: {' '.join(map(str, command))}")
    if result.returncode != 0:
        sys.exit("the run under callgrind failed:\n" + result.stdout.decode(errors="replace"))
    return inclusive_calls(profile.read_text(errors="replace").splitlines())


def inclusive_calls(profile):
    """Returns (caller, callee, calls, inclusive instructions) of every call in the profile."""
    calls = []
    caller = callee = ""
    lines = iter(profile)
    for line in lines:
        if line.startswith("fn="):
            caller = line[3:]
        elif line.startswith("cfn="):
            callee = line[4:]
        elif line.startswith("calls="):
            number = int(line[6:].split()[0])
            calls.append((caller, callee, number, int(next(lines).split()[1])))
    return calls


def total(calls, caller, callee):
    """Returns the instructions and the number of the calls whose caller and callee match."""
    found = [(number, cost) for by, to, number, cost in calls if re.search(caller, by) and re.search(callee, to)]
    return sum(cost for _, cost in found), sum(number for number, _ in found)


def thread_cost(calls):
    """Returns the instructions of the encoder thread without the encoder and the callback."""
    thread, _ = total(calls, "", ENCODER_THREAD)
    others = sum(total(calls, "", name)[0] for name in EXCLUDED)
    if 0 in (thread, others):
        sys.exit(f"no instructions counted for the encoder thread ({thread}) or the encoder ({others})")
    return (thread - others) / FRAMES


def logger_cost(calls):
    return total(calls, "", LOGGER)[0] / FRAMES


def push_cost(calls):
    push, frames = total(calls, "", PUSH)
    if frames != FRAMES:
        sys.exit(f"{frames} frames were pushed, not {FRAMES}: have functions been renamed?")
    copy, _ = total(calls, r"BoundedCopy|CameraOperator::PushFrame\(", COPY)
    if copy == 0:
        sys.exit("no instructions counted for the copy")
    return (push - copy) / FRAMES, copy / FRAMES


def conversion_cost(calls):
    cost, frames = total(calls, "", CONVERT)
    if frames != FRAMES:
        sys.exit(f"{frames} frames were converted, not {FRAMES}")
    return 1000 * cost / FRAMES / PIXELS


def packet_cost(calls):
    cost, number = total(calls, r"^(?!AVEncodePacket)", PACKET)
    # Constructor, Reserve and destructor.
    if number != 3 * FRAMES:
        sys.exit(f"{number} calls for {FRAMES} packets")
    return cost / FRAMES


def measure(frames, library, valgrind, folder):
    one_at_a_time = count(valgrind, folder, frames, "--gtest_brief=1", "--gtest_filter=*SingleFrames")
    unlogged = count(valgrind, folder, frames, "--gtest_brief=1", "--gtest_filter=*FramesWithDisabledLogMessage")
    push, copy = push_cost(one_at_a_time)
    thread = thread_cost(one_at_a_time)
    more = thread_cost(unlogged) - thread
    more_of_logger = logger_cost(unlogged) - logger_cost(one_at_a_time)
    if more_of_logger <= 0:
        sys.exit("no disabled log message was requested")
    return {
        "PushFrame without the copy": push,
        "the copy, for 1000 bytes": 1000 * copy / FRAME_BYTES,
        "encoder thread without the encoder and the callback": thread,
        "a disabled log message": more - more_of_logger,
        "conversion of YUY2, for 1000 pixels":
            conversion_cost(count(valgrind, folder, library, "yuy2", str(FRAMES))),
        "conversion of ARGB32, for 1000 pixels":
            conversion_cost(count(valgrind, folder, library, "argb32", str(FRAMES))),
        "memory of a packet": packet_cost(count(valgrind, folder, library, "packet", str(FRAMES))),
    }


def main():
    with tempfile.TemporaryDirectory() as folder:
        measured = measure(os.environ["COST_PROGRAM"], os.environ["COST_ENCODER_LIBRARY"], os.environ["COST_VALGRIND"],
                           Path(folder))
    is_over = False
    for name, bound in LIMITS.items():
        verdict = "ok" if measured[name] <= bound else "TOO MUCH"
        is_over = is_over or measured[name] > bound
        print(f"{name}: {measured[name]:.0f} instructions, at most {bound}: {verdict}")
    return 1 if is_over else 0


if __name__ == "__main__":
    sys.exit(main())
