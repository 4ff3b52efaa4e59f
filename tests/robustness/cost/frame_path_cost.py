#!/usr/bin/env python3
"""Counts the instructions that a frame costs in the library beside its encoding, and fails above a bound.

No clock: the counts hardly depend on the machine or on what else it does. The environment: COST_PROGRAM, the program
whose frames are counted; COST_ENCODER_LIBRARY, the one that converts frames and passes packets; COST_VALGRIND, valgrind.
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
# Five runs of this stay within the time that ctest gives them.
PATIENCE = 120

# Instructions, for a frame where nothing else is said. A tenth above what was measured when they were recorded, and
# more of the small ones (docs/performance.md); lower them when the library gets better, and raise them only for
# something that is worth it.
BOUNDS = {
    "PushFrame beside the copy": 430,
    "the copy, for 1000 bytes": 210,
    "encoder thread beside the encoder and the callback": 760,
    "a log line that is off": 80,
    "conversion of YUY2, for 1000 pixels": 1700,
    "conversion of ARGB32, for 1000 pixels": 3800,
    "a packet's memory": 300,
}

PUSH = r"CameraOperator::PushFrame\("
ENCODER_THREAD = r"CameraOperator::EncodeH264\("
COPY = r"\b_*mem(cpy|move|set)\w*"
CONVERT = r"encoder::I420Converter::Convert\("
PACKET = r"encoder::Reserve\(|AVEncodePacket::~?AVEncodePacket\("
# The scripted encoder and what a packet's callback does.
NOT_OURS = (r"ScriptedEncoder::Encode\(", r"HostCallbacks::OnData\(", r"AVEncodePacket::~?AVEncodePacket\(")
# The scripted host's.
LOGGER = r"^GetLogger\("


def count(valgrind, folder, *command):
    """The profile of a run: its functions' calls."""
    profile = folder / "profile"
    command = [
        valgrind, "--tool=callgrind", f"--callgrind-out-file={profile}", "--compress-strings=no", "--compress-pos=no",
        "--fair-sched=try", *command]
    # The C library has a copy for every kind of processor; this is the one that all have.
    processor = "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-SSSE3"
    environment = dict(os.environ, NUVEQ_FRAMES=str(FRAMES), GLIBC_TUNABLES=processor)
    try:
        result = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=PATIENCE, check=False)
    except subprocess.TimeoutExpired:
        sys.exit(f"a run under callgrind has not ended within {PATIENCE} s: {' '.join(map(str, command))}")
    if result.returncode != 0:
        sys.exit("the run under callgrind failed:\n" + result.stdout.decode(errors="replace"))
    return inclusive_calls(profile.read_text(errors="replace").splitlines())


def inclusive_calls(profile):
    """(caller, callee, calls, instructions) of every call in the profile, instructions with all that is below."""
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
    """Instructions in calls by one that matches to one that matches, and how many there were."""
    found = [(number, cost) for by, to, number, cost in calls if re.search(caller, by) and re.search(callee, to)]
    return sum(cost for _, cost in found), sum(number for number, _ in found)


def thread_cost(calls):
    """What the encoder thread costs beside the encoder and the callback."""
    thread, _ = total(calls, "", ENCODER_THREAD)
    others = sum(total(calls, "", name)[0] for name in NOT_OURS)
    if 0 in (thread, others):
        sys.exit(f"nothing was counted of the encoder thread ({thread}) or the encoder ({others})")
    return (thread - others) / FRAMES


def logger_cost(calls):
    return total(calls, "", LOGGER)[0] / FRAMES


def push_cost(calls):
    push, frames = total(calls, "", PUSH)
    if frames != FRAMES:
        sys.exit(f"{frames} frames were pushed, not {FRAMES}: does the profile still know the functions by these names?")
    copy, _ = total(calls, r"BoundedCopy|CameraOperator::PushFrame\(", COPY)
    if copy == 0:
        sys.exit("nothing was counted of the copy")
    return (push - copy) / FRAMES, copy / FRAMES


def conversion_cost(calls):
    cost, frames = total(calls, "", CONVERT)
    if frames != FRAMES:
        sys.exit(f"{frames} frames were converted, not {FRAMES}")
    return 1000 * cost / FRAMES / PIXELS


def packet_cost(calls):
    cost, number = total(calls, r"^(?!AVEncodePacket)", PACKET)
    # Made, reserved, gone.
    if number != 3 * FRAMES:
        sys.exit(f"{number} calls for {FRAMES} packets")
    return cost / FRAMES


def measure(frames, library, valgrind, folder):
    one_at_a_time = count(valgrind, folder, frames, "--gtest_brief=1", "--gtest_filter=*OfFramesOneAtATime")
    unlogged = count(valgrind, folder, frames, "--gtest_brief=1", "--gtest_filter=*OfFramesWithALogLineThatIsOff")
    push, copy = push_cost(one_at_a_time)
    thread = thread_cost(one_at_a_time)
    more = thread_cost(unlogged) - thread
    more_of_logger = logger_cost(unlogged) - logger_cost(one_at_a_time)
    if more_of_logger <= 0:
        sys.exit("no log line was asked for")
    return {
        "PushFrame beside the copy": push,
        "the copy, for 1000 bytes": 1000 * copy / FRAME_BYTES,
        "encoder thread beside the encoder and the callback": thread,
        "a log line that is off": more - more_of_logger,
        "conversion of YUY2, for 1000 pixels":
            conversion_cost(count(valgrind, folder, library, "yuy2", str(FRAMES))),
        "conversion of ARGB32, for 1000 pixels":
            conversion_cost(count(valgrind, folder, library, "argb32", str(FRAMES))),
        "a packet's memory": packet_cost(count(valgrind, folder, library, "packet", str(FRAMES))),
    }


def main():
    with tempfile.TemporaryDirectory() as folder:
        measured = measure(os.environ["COST_PROGRAM"], os.environ["COST_ENCODER_LIBRARY"], os.environ["COST_VALGRIND"],
                           Path(folder))
    is_over = False
    for name, bound in BOUNDS.items():
        verdict = "ok" if measured[name] <= bound else "TOO MUCH"
        is_over = is_over or measured[name] > bound
        print(f"{name}: {measured[name]:.0f} instructions, at most {bound}: {verdict}")
    return 1 if is_over else 0


if __name__ == "__main__":
    sys.exit(main())
