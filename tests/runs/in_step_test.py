#!/usr/bin/env python3
"""Players that know only one edit play a joined movie in step: each picture once and at its time,
and each sound with its picture."""

import re

import runs

# Every clip has a flash of one picture and a beep, both at this time.
AT, RATE = 0.4, 48000
# Players that use only the first edit read a movie like this.
ONE_EDIT = ("-advanced_editlist", "0")


def clip(path, pictures=1.0, sound=1.0, codec="aac", *options):
    """A clip with a flash and a beep, in which the pictures and the sound last that many seconds;
    0: there are none."""
    inputs = []
    if pictures:
        flash = f"drawbox=c=white:t=fill:enable='between(t,{AT - 0.01},{AT + 0.01})'"
        inputs += ["-f", "lavfi", "-i", f"color=black:s=64x48:r=25:d={pictures},{flash}"]
    if sound:
        beep = f"if(between(t,{AT},{AT}+0.04),0.8*sin(6000*t),0)"
        inputs += ["-f", "lavfi", "-i", f"aevalsrc='{beep}':s={RATE}:d={sound}"]
    coding = ["-c:v", "libx264", "-bf", "2", "-g", "25", "-sc_threshold", "0", "-c:a", codec]
    return runs.make_clip(path, *inputs, *coding, "-pix_fmt", "yuv420p", *options)


def flashes(path, *options):
    """The times of all pictures and of those that are a flash, as ffmpeg plays them."""
    _, log = runs.read_by(
        "ffmpeg", *options, "-i", path, "-map", "0:v:0", "-vf", "showinfo", "-fps_mode",
        "passthrough", "-f", "null", "-",
    )  # fmt: skip
    found = re.findall(r"pts_time:([-\d.]+) .* mean:\[(\d+)", log)
    return [float(t) for t, _ in found], [float(t) for t, mean in found if int(mean) > 128]


def beeps(path, *options):
    """The times at which beeps start, by the time stamps of the sound."""
    _, log = runs.read_by(
        "ffmpeg", *options, "-i", path, "-map", "0:a:0", "-af", "silencedetect=n=0.1:d=0.1", "-f",
        "null", "-",
    )  # fmt: skip
    # The last silence ends with the sound.
    return [float(end) for end in re.findall(r"silence_end: ([-\d.]+)", log)][:-1]


class InStep(runs.RunTest):
    def assert_in_step(self, joined, pictures, times):
        """The movie has that many pictures, and a flash and a beep at each of `times`."""
        for options in ((), ONE_EDIT):
            shown, flash = flashes(joined, *options)
            self.assertEqual(len(shown), pictures)
            self.assertEqual(sorted(set(shown)), shown)
            for found in (flash, beeps(joined, *options)):
                self.assertEqual(len(found), len(times), (options, found))
                for at, wanted in zip(found, times):
                    self.assertAlmostEqual(at, wanted, delta=0.012)
        self.assertEqual(runs.complaints(joined), [])

    def assert_one_edit_each(self, joined):
        for track in runs.tracks(joined).values():
            self.assertLessEqual(len([e for e in track.edits or [] if e.media >= 0]), 1)

    def test_clips_of_any_lengths(self):
        lengths = {"equal": (1, 1), "more sound": (1, 1.02), "more pictures": (1.04, 1),
                   "fewer pictures": (0.6, 1.1), "less sound": (1, 0.6)}  # fmt: skip
        for name, (pictures, sound) in lengths.items():
            part = clip(self.folder / "part.mp4", pictures, sound)
            length = max(pictures, sound)
            times = [AT + length * i for i in range(8)]
            for form in ("-self-contained", "-mp4"):
                with self.subTest(name, form=form):
                    joined = self.join("joined.mov", *[part] * 8, options=[form])
                    self.assert_one_edit_each(joined)
                    self.assert_in_step(joined, 8 * round(pictures * 25), times)

    def test_clips_without_sound_or_pictures(self):
        whole = clip(self.folder / "whole.mp4")
        silent = clip(self.folder / "silent.mp4", 1, 0)
        dark = clip(self.folder / "dark.m4a", 0, 1)
        joined = self.join_whole("joined.mov", whole, silent, whole, dark, whole)
        self.assert_one_edit_each(joined)
        for options in ((), ONE_EDIT):
            shown, flash = flashes(joined, *options)
            self.assertEqual(len(shown), 100)
            for found, wanted in (flash, (0, 1, 2, 4)), (beeps(joined, *options), (0, 2, 3, 4)):
                self.assertEqual([round(at - AT, 2) for at in found], list(wanted))

    def test_uncompressed_sound(self):
        for codec in ("pcm_s16le", "pcm_u8", "pcm_mulaw", "pcm_alaw"):
            with self.subTest(codec):
                part = clip(self.folder / "part.mov", 1, 0.9, codec)
                joined = self.join_whole("joined.mov", *[part] * 4)
                self.assert_one_edit_each(joined)
                self.assert_in_step(joined, 100, [AT + i for i in range(4)])

    def test_subtitles(self):
        lines = self.folder / "lines.srt"
        lines.write_text("1\n00:00:00,200 --> 00:00:00,700\nHello\n")
        plain = clip(self.folder / "plain.mp4")
        part = runs.make_clip(
            self.folder / "part.mp4", "-i", plain, "-i", lines, "-c:v", "copy", "-c:a", "copy",
            "-c:s", "mov_text", "-map", "0", "-map", "1",
        )  # fmt: skip
        joined = self.join_whole("joined.mov", part, plain, part)
        self.assert_one_edit_each(joined)
        for options in ((), ONE_EDIT):
            text, _ = runs.read_by("ffmpeg", *options, "-i", joined, "-map", "0:s:0", "-f", "srt", "-")
            shown = re.findall(r"\d+:\d+:(\S+) --> \d+:\d+:(\S+)\s+Hello", text.decode())
            self.assertEqual(shown, [("00,200", "00,700"), ("02,200", "02,700")])

    def test_cuts_at_key_frames_joined_again(self):
        parts = [clip(self.folder / f"{i}.mp4") for i in range(4)]
        long = self.join_whole("long.mov", *parts)
        cuts = [
            self.join(f"cut {start}.mov", long, options=["-self-contained", "-startAt", str(start), "-trimTo", "1"])
            for start in (2, 0, 3)
        ]  # fmt: skip
        joined = self.join_whole("joined.mov", *cuts)
        self.assert_one_edit_each(joined)
        self.assert_in_step(joined, 75, [AT, AT + 1, AT + 2])

    def test_reference_movies_of_equal_clips_have_a_constant_frame_rate(self):
        joined = self.join("joined.mov", *[clip(self.folder / "part.mp4")] * 5)
        rows = {
            runs.child(track, "mdia", "hdlr")[8:12]: runs.child(track, "mdia", "minf", "stbl", "stts")
            for name, track in runs.atoms(runs.movie_header(joined)) if name == "trak"
        }  # fmt: skip
        self.assertEqual(int.from_bytes(rows[b"vide"][4:8], "big"), 1)


if __name__ == "__main__":
    runs.main()
