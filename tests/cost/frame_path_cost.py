#!/usr/bin/env python3
"""Counts the instructions that a frame costs in the library beside its encoding, and fails above a bound.

No clock: the counts hardly depend on the machine or on what else it does. The environment: COST_PROGRAM, the program
whose frames are counted; COST_VALGRIND, valgrind.
"""

import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

FRAMES = 100
FRAME_BYTES = 640 * 480 * 2
PATIENCE = 100

# Instructions, for a frame where nothing else is said. A tenth or so above what was measured when they were recorded
# (docs/performance.md); lower them when the library gets better, and raise them only for something that is worth it.
BOUNDS = {
    "PushFrame beside the copy": 430,
    "the copy, for 1000 bytes": 210,
    "encoder thread beside the encoder and the callback": 760,
}

PUSH = r"CameraOperator::PushFrame\("
ENCODER_THREAD = r"CameraOperator::EncodeH264\("
COPY = r"\b_*mem(cpy|move|set)\w*"
# The scripted encoder and what a packet's callback does.
NOT_OURS = (r"ScriptedEncoder::Encode\(", r"HostCallbacks::OnData\(", r"AVEncodePacket::~?AVEncodePacket\(")


def count(program, valgrind, folder):
    """The profile of a run: its file's functions and calls."""
    profile = folder / "profile"
    result = subprocess.run(
        [valgrind, "--tool=callgrind", f"--callgrind-out-file={profile}", "--compress-strings=no", "--compress-pos=no",
         "--fair-sched=try", program, "--gtest_brief=1"],
        # The C library has a copy for every kind of processor; this is the one that all have.
        env=dict(os.environ, NUVEQ_FRAMES=str(FRAMES),
                 GLIBC_TUNABLES="glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-SSSE3"),
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=PATIENCE, check=False)
    if result.returncode != 0:
        sys.exit("the run under callgrind failed:\n" + result.stdout.decode(errors="replace"))
    return profile.read_text(errors="replace").splitlines()


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


def measure(calls):
    push, frames = total(calls, "", PUSH)
    if frames != FRAMES:
        sys.exit(f"{frames} frames were pushed, not {FRAMES}: does the profile still know the functions by these names?")
    copy, _ = total(calls, r"BoundedCopy|CameraOperator::PushFrame\(", COPY)
    thread, _ = total(calls, "", ENCODER_THREAD)
    others = sum(total(calls, ENCODER_THREAD + "|CameraOperator::SendPacket", name)[0] for name in NOT_OURS)
    if 0 in (copy, thread, others):
        sys.exit(f"nothing was counted of the copy ({copy}), the encoder thread ({thread}) or the encoder ({others})")
    return {
        "PushFrame beside the copy": (push - copy) / FRAMES,
        "the copy, for 1000 bytes": 1000 * copy / FRAMES / FRAME_BYTES,
        "encoder thread beside the encoder and the callback": (thread - others) / FRAMES,
    }


def main():
    with tempfile.TemporaryDirectory() as folder:
        profile = count(os.environ["COST_PROGRAM"], os.environ["COST_VALGRIND"], Path(folder))
    measured = measure(inclusive_calls(profile))
    is_over = False
    for name, bound in BOUNDS.items():
        verdict = "ok" if measured[name] <= bound else "TOO MUCH"
        is_over = is_over or measured[name] > bound
        print(f"{name}: {measured[name]:.0f} instructions, at most {bound}: {verdict}")
    return 1 if is_over else 0


if __name__ == "__main__":
    sys.exit(main())
