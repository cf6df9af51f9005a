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


def played(path, stream, filters, pattern, *options):
    """What a filter of ffmpeg prints while a stream is played."""
    _, log = runs.read_by(
        "ffmpeg", *options, "-i", path, "-map", f"0:{stream}:0", *filters, "-fps_mode",
        "passthrough", "-f", "null", "-",
    )  # fmt: skip
    return re.findall(pattern, log)


def flashes(path, *options):
    """The times of all pictures and of those that are a flash, as ffmpeg plays them."""
    pattern = r"pts_time:([-\d.]+) .* mean:\[(\d+)"
    found = played(path, "v", ("-vf", "showinfo"), pattern, *options)
    return [float(t) for t, _ in found], [float(t) for t, mean in found if int(mean) > 128]


def beeps(path, *options):
    """The times at which beeps start, by the time stamps of the sound."""
    silence = ("-af", "silencedetect=n=0.1:d=0.1")
    found = played(path, "a", silence, r"silence_end: ([-\d.]+)", *options)
    return [float(end) for end in found[:-1]]  # the last silence ends with the sound


class InStep(runs.RunTest):
    def assert_in_step(self, joined, pictures, starts, sounds=None):
        """The movie has that many pictures. `starts` are the start times of the clips with a flash,
        `sounds` of those with a beep (default: `starts`). No track shows media in two edits."""
        for track in runs.tracks(joined).values():
            self.assertLessEqual(len([e for e in track.edits or [] if e.media >= 0]), 1)
        for options in ((), ONE_EDIT):
            shown, flash = flashes(joined, *options)
            self.assertEqual(len(shown), pictures)
            self.assertEqual(sorted(set(shown)), shown)
            for found, wanted in (flash, starts), (beeps(joined, *options), sounds or starts):
                self.assertEqual(len(found), len(wanted), (options, found))
                for at, start in zip(found, wanted):
                    self.assertAlmostEqual(at - AT, start, delta=0.012)
        self.assertEqual(runs.complaints(joined), [])

    def test_clips_of_any_lengths_and_with_uncompressed_sound(self):
        plain = ("-self-contained",)
        for count, pictures, sound, codec, forms in (
            (8, 1, 1, "aac", (*plain, "-mp4")), (8, 1, 1.02, "aac", (*plain, "-mp4")),
            (8, 1.04, 1, "aac", (*plain, "-mp4")), (8, 0.6, 1.1, "aac", (*plain, "-mp4")),
            (8, 1, 0.6, "aac", (*plain, "-mp4")), (4, 1, 0.9, "pcm_s16le", plain),
            (4, 1, 0.9, "pcm_u8", plain), (4, 1, 0.9, "pcm_mulaw", plain),
            (4, 1, 0.9, "pcm_alaw", plain),
        ):  # fmt: skip
            part = clip(self.folder / "part.mov", pictures, sound, codec)
            starts = [max(pictures, sound) * i for i in range(count)]
            for form in forms:
                with self.subTest((pictures, sound, codec, form)):
                    joined = self.join("joined.mov", *[part] * count, options=[form])
                    self.assert_in_step(joined, count * round(pictures * 25), starts)

    def test_clips_without_sound_or_pictures(self):
        whole = clip(self.folder / "whole.mp4")
        silent = clip(self.folder / "silent.mp4", 1, 0)
        dark = clip(self.folder / "dark.m4a", 0, 1)
        joined = self.join_whole("joined.mov", whole, silent, whole, dark, whole)
        self.assert_in_step(joined, 100, [0, 1, 2, 4], [0, 2, 3, 4])

    def test_cuts_at_key_frames_joined_again(self):
        long = self.join_whole("long.mov", *[clip(self.folder / f"{i}.mp4") for i in range(4)])
        cuts = [
            self.join_whole(f"cut {start}.mov", long, "-startAt", start, "-trimTo", "1")
            for start in ("2", "0", "3")
        ]
        self.assert_in_step(self.join_whole("joined.mov", *cuts), 75, [0, 1, 2])

    def test_reference_movies_of_equal_clips_have_a_constant_frame_rate(self):
        joined = self.join("joined.mov", *[clip(self.folder / "part.mp4")] * 5)
        table = runs.child(runs.tracks(joined)[1].content, "mdia", "minf", "stbl", "stts")
        self.assertEqual(len(table), 16, "one row")


if __name__ == "__main__":
    runs.main()
