"""Tests of the command lines: all encoders get the same input, size, bit rate, key-frame interval and threads."""

import unittest
from pathlib import Path

import clips
from encoders import KEY_INTERVAL, PRODUCT_BIT_RATE, Job, encoders, paced_encoders, slice_threads

TOP = Path("/top")


def value_of(command, option):
    """Returns the value of an option: the next argument, or the rest of it if the option ends in '='."""
    if option.endswith("="):
        return next(word for word in command if word.startswith(option))[len(option):]
    return command[command.index(option) + 1]


def job(kilobits=PRODUCT_BIT_RATE, threads=1):
    return Job("CLIP", 1280, 720, kilobits, "OUT", threads)


def parameters(encoder, one_job):
    """Returns (input, width, height, kbit/s, key-frame interval, threads, output) of a command line."""
    command = encoder.command(one_job)
    if Path(command[0]).name == "encode_clip":
        # The product chooses the other parameters itself.
        kilobits = value_of(command, "--direct") if "--direct" in command else PRODUCT_BIT_RATE
        return command[3], int(command[1]), int(command[2]), int(kilobits), KEY_INTERVAL, one_job.threads, command[4]
    if Path(command[0]).name.startswith("ffmpeg"):
        width, _, height = value_of(command, "-s").partition("x")
        return (value_of(command, "-i"), int(width), int(height), int(value_of(command, "-b:v").rstrip("k")),
                int(value_of(command, "-g")), int(value_of(command, "-threads")), command[-1])
    is_x264 = "x264enc" in command
    bits = int(value_of(command, "bitrate="))
    return (value_of(command, "location="), int(value_of(command, "width=")), int(value_of(command, "height=")),
            bits if is_x264 else bits // 1000, int(value_of(command, "key-int-max=" if is_x264 else "gop-size=")),
            int(value_of(command, "threads=" if is_x264 else "multi-thread=")),
            [word for word in command if word.startswith("location=")][-1][len("location="):])


class EveryEncoder(unittest.TestCase):
    def test_gets_the_same_parameters(self):
        for kilobits in (768, PRODUCT_BIT_RATE, 3072):
            for threads in (1, 2):
                for encoder in encoders(TOP, TOP / "bin"):
                    with self.subTest(encoder=encoder.name, kilobits=kilobits, threads=threads):
                        self.assertEqual(parameters(encoder, job(kilobits, threads)),
                                         ("CLIP", 1280, 720, kilobits, KEY_INTERVAL, threads, "OUT"))

    def test_in_real_time_differs_by_one_option_only(self):
        unpaced = {encoder.name: encoder for encoder in encoders(TOP, TOP / "bin")}
        for encoder in paced_encoders(TOP, TOP / "bin"):
            with self.subTest(encoder=encoder.name):
                paced = encoder.command(job())
                self.assertEqual([word for word in paced if word not in ("-re", "--paced")],
                                 unpaced[encoder.name].command(job()))
                self.assertEqual(len(paced), len(unpaced[encoder.name].command(job())) + 1)

    def test_in_ffmpeg_gets_the_real_time_option_before_its_input(self):
        for encoder in paced_encoders(TOP, TOP / "bin")[1:]:
            command = encoder.command(job())
            self.assertLess(command.index("-re"), command.index("-i"))

    def test_has_a_unique_name(self):
        names = [encoder.name for encoder in encoders(TOP, TOP / "bin")]
        self.assertEqual(len(names), len(set(names)))

    def test_with_openh264_has_the_settings_of_the_product(self):
        for encoder in encoders(TOP, TOP / "bin"):
            command = encoder.command(job())
            if "libopenh264" in command:
                for option, value in (("-profile:v", "high"), ("-coder", "cabac"), ("-rc_mode", "quality"),
                                      ("-loopfilter", "1"), ("-allow_skip_frames", "0"), ("-slices", "1")):
                    self.assertEqual(value_of(command, option), value, encoder.name)


class SliceThreads(unittest.TestCase):
    def test_are_two_from_1280x720_up_with_four_cores(self):
        self.assertEqual(slice_threads(1280, 720, 4), 2)
        self.assertEqual(slice_threads(1280, 720, 3), 1)
        self.assertEqual(slice_threads(640, 480, 8), 1)


class Clips(unittest.TestCase):
    def test_are_not_scaled_up(self):
        self.assertFalse(clips.is_offered("webcam", "1920x1080"))
        self.assertTrue(clips.is_offered("webcam", "1280x720"))
        for clip in ("phone", "simulated"):
            self.assertTrue(all(clips.is_offered(clip, size) for size in clips.SIZES), clip)

    def test_are_scaled_to_their_size(self):
        self.assertIn("crop=640:480", clips.filters("webcam", "640x480"))

    def test_play_only_short_recordings_backwards(self):
        self.assertIn("reverse", clips.filters("phone", "320x240"))
        self.assertNotIn("reverse", clips.filters("webcam", "320x240"))


if __name__ == "__main__":
    unittest.main()
