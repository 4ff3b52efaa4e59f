"""Counts the instructions per frame in the library, in the encoder library without the encoding, and in the Linux
platform, and checks limits.

Instruction counts hardly depend on the machine and its load. Environment: COST_PROGRAM (frame_path_cost),
COST_ENCODER_LIBRARY (encoder_library_cost), COST_CAPTURE (capture_path_cost), COST_VALGRIND (valgrind).

The limits are about 10 % above the measured values, more for small ones (bench/results/instructions.md). Lower them
when the library improves; raise them only for a good reason.
"""

import functools
import os
import re
import subprocess
import tempfile
from pathlib import Path

import pytest

FRAMES = 100
PIXELS = 640 * 480
FRAME_BYTES = PIXELS * 2
# Decoding takes many more instructions than the rest.
JPEG_FRAMES = 5
# Timeout of one run in seconds; the two runs of a test stay below its timeout.
RUN_TIMEOUT = 120

PUSH = r"CameraOperator::PushFrame\("
ENCODER_THREAD = r"CameraOperator::EncodeH264\("
COPY = r"\b_*mem(cpy|move|set)\w*"
CONVERT = r"encoder::I420Converter::Convert\("
PACKET = r"encoder::Reserve\(|AVEncodePacket::~?AVEncodePacket\("
# The scripted encoder, and the host's work for a packet.
EXCLUDED = (r"ScriptedEncoder::Encode\(", r"HostCallbacks::OnData\(", r"AVEncodePacket::~?AVEncodePacket\(")
# The capture path of the platform: calls of its streaming thread, without the fake kernel and the callback.
CAPTURE = (r"V4l2Source::Next\(", r"V4l2Source::Recycle\(", r"GrabberPin::Receive\(")
CAPTURE_EXCLUDED = ((r"V4l2Source::Next\(", r"FakeSystemCalls::Poll\("),
                    (r"V4l2BufferPool::(Queue|Dequeue)\(", r"V4l2Device::Ioctl\("),
                    (r"SampleGrabber::Deliver\(", r"FrameCollector::BufferCB\("))
STREAM = r"StreamThread::Stream::"
DECODE = r"MjpegDecoder::Convert\("
LIBJPEG = r"^jpeg_"
# Defined by the scripted host.
LOGGER = r"^GetLogger\("


@functools.cache
def calls_of(program, *arguments, frames=FRAMES):
    """Runs a program under callgrind and returns the calls of its functions."""
    with tempfile.TemporaryDirectory() as folder:
        profile = Path(folder) / "profile"
        command = [os.environ["COST_VALGRIND"], "--tool=callgrind", f"--callgrind-out-file={profile}",
                   "--compress-strings=no", "--compress-pos=no", "--fair-sched=try", program, *arguments]
        # glibc and libjpeg-turbo select functions by the processor's features; use the baseline versions everywhere.
        processor = "glibc.cpu.hwcaps=-AVX512F,-AVX512VL,-AVX2,-AVX,-AVX_Fast_Unaligned_Load,-ERMS,-FSRM,-SSSE3"
        environment = dict(os.environ, NUVEQ_FRAMES=str(frames), GLIBC_TUNABLES=processor, JSIMD_FORCESSE2="1")
        result = subprocess.run(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, timeout=RUN_TIMEOUT, check=False)
        assert result.returncode == 0, result.stdout.decode(errors="replace")
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


def frame_path(test):
    """The calls while the library handles single frames."""
    return calls_of(os.environ["COST_PROGRAM"], "--gtest_brief=1", f"--gtest_filter=*{test}")


def single_frames():
    return frame_path("SingleFrames")


def encoder_library(part):
    return calls_of(os.environ["COST_ENCODER_LIBRARY"], part, str(FRAMES))


def mjpg_frames():
    """The calls while the Linux platform delivers MJPG pictures."""
    return calls_of(os.environ["COST_CAPTURE"], "--gtest_brief=1", frames=JPEG_FRAMES)


def total(calls, caller, callee):
    """Returns the instructions and the number of the calls whose caller and callee match."""
    found = [(number, cost) for by, to, number, cost in calls if re.search(caller, by) and re.search(callee, to)]
    return sum(cost for _, cost in found), sum(number for number, _ in found)


def push_cost(calls):
    cost, frames = total(calls, "", PUSH)
    assert frames == FRAMES, "have functions been renamed?"
    return cost


def copy_cost(calls):
    cost, _ = total(calls, r"BoundedCopy|CameraOperator::PushFrame\(", COPY)
    assert cost > 0, "no instructions counted for the copy"
    return cost


def thread_cost(calls):
    """Returns the instructions of the encoder thread without the encoder and the callback."""
    thread, _ = total(calls, "", ENCODER_THREAD)
    others = sum(total(calls, "", name)[0] for name in EXCLUDED)
    assert thread > 0 and others > 0, "no instructions counted for the encoder thread or the encoder"
    return thread - others


def conversion_cost(layout):
    """Returns the instructions for 1000 pixels."""
    cost, frames = total(encoder_library(layout), "", CONVERT)
    assert frames == FRAMES
    return 1000 * cost / FRAMES / PIXELS


def decoding_cost(calls):
    cost, pictures = total(calls, STREAM, DECODE)
    assert pictures == JPEG_FRAMES, "have functions been renamed?"
    return cost


def capture_cost(calls):
    """Returns the instructions of the streaming thread without decoding, system calls and the callback."""
    parts = [total(calls, "", name) for name in CAPTURE]
    # One call of Next may wait for the end of the stream.
    assert [number for _, number in parts] in ([JPEG_FRAMES] * 3, [JPEG_FRAMES + 1, JPEG_FRAMES, JPEG_FRAMES])
    others = [total(calls, caller, callee)[0] for caller, callee in CAPTURE_EXCLUDED]
    assert all(others), "no instructions counted for the fake kernel or the callback"
    return sum(cost for cost, _ in parts) - sum(others)


@pytest.fixture
def expect_at_most(capsys):
    """Prints the measured number of instructions, also if the test passes, and checks the limit."""
    def check(limit, measured):
        with capsys.disabled():
            print(f"\n{measured:.0f} instructions, at most {limit}")
        assert measured <= limit

    return check


def test_push_frame_without_the_copy(expect_at_most):
    calls = single_frames()
    expect_at_most(430, (push_cost(calls) - copy_cost(calls)) / FRAMES)


def test_copy_of_1000_bytes(expect_at_most):
    expect_at_most(210, 1000 * copy_cost(single_frames()) / FRAMES / FRAME_BYTES)


def test_encoder_thread_without_the_encoder_and_the_callback(expect_at_most):
    expect_at_most(760, thread_cost(single_frames()) / FRAMES)


def test_disabled_log_message(expect_at_most):
    usual, with_message = single_frames(), frame_path("FramesWithDisabledLogMessage")
    logger = total(with_message, "", LOGGER)[0] - total(usual, "", LOGGER)[0]
    assert logger > 0, "no disabled log message was requested"
    expect_at_most(80, (thread_cost(with_message) - thread_cost(usual) - logger) / FRAMES)


def test_conversion_of_1000_yuy2_pixels(expect_at_most):
    expect_at_most(1700, conversion_cost("yuy2"))


def test_conversion_of_1000_argb32_pixels(expect_at_most):
    expect_at_most(3800, conversion_cost("argb32"))


def test_memory_of_a_packet(expect_at_most):
    cost, number = total(encoder_library("packet"), r"^(?!AVEncodePacket)", PACKET)
    assert number == 3 * FRAMES, "constructor, Reserve and destructor of each packet"
    expect_at_most(300, cost / FRAMES)


def test_decoding_of_1000_mjpg_pixels(expect_at_most):
    expect_at_most(56000, 1000 * decoding_cost(mjpg_frames()) / JPEG_FRAMES / PIXELS)


def test_decoding_without_the_jpeg_library(expect_at_most):
    calls = mjpg_frames()
    library, _ = total(calls, r"MjpegDecoder::", LIBJPEG)
    assert library > 0, "no instructions counted for the JPEG library"
    expect_at_most(8200, (decoding_cost(calls) - library) / JPEG_FRAMES)


def test_capture_of_a_frame_without_system_calls(expect_at_most):
    expect_at_most(520, capture_cost(mjpg_frames()) / JPEG_FRAMES)
