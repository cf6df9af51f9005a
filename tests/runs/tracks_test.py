#!/usr/bin/env python3
"""Tracks that are chosen by name, the messages about them, and movies that cannot be MPEG-4
files."""

import os
import unittest

import runs
from runs import Result

KINDS = ["Video Track", "Sound Track 1", "Sound Track 2"]


@runs.has_tools("ffmpeg", "ffprobe")
class Tracks(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        # One video track and two sound tracks, with two media time scales.
        cls.movie = runs.make_clip(
            runs.temporary_folder(cls) / "three tracks.mov",
            "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=2", "-f", "lavfi", "-i", "sine=r=44100:d=1",
            "-f", "lavfi", "-i", "sine=r=8000:d=2", "-map", "0", "-map", "1", "-map", "2",
            "-c:v", "mpeg4", "-c:a", "pcm_s16le",
        )  # fmt: skip

    def tune(self, *options, source=None):
        return self.run_in_folder("cliptune", source or self.movie, *options, "-q", "-o", "out.mov")

    def kinds(self, name="out.mov"):
        return [track.kind for track in runs.tracks(self.folder / name).values()]

    def listing(self, *lines, source=None):
        return f"Track list for {source or self.movie}:\n" + "".join(f"\t{line}\n" for line in lines)

    def test_lists_mark_what_is_kept(self):
        video, one, two = KINDS
        for options, marks, kinds in (
            ([], "***", ["vide", "soun", "soun"]),
            (["-track", video], "*  ", ["vide"]),
            (["-notrack", video], " **", ["soun", "soun"]),
            (["-track", one, "-track", two, "-notrack", two], " * ", ["soun"]),
        ):
            done = self.tune("-list", *options)
            lines = [f"{mark} {name}" for mark, name in zip(marks, KINDS)]
            self.assertEqual(done, Result(0, self.listing(*lines), ""))
            self.assertEqual(self.kinds(), kinds)

    def test_names_given_by_the_user_are_used(self):
        # 'name' in the user data of the second track: spaces and letters of every kind.
        name = "Głos – 声 2\n\t\r\x1b[2J\x7f\u0085é"
        data = bytearray(self.movie.read_bytes())
        label = name.encode()
        item = (len(label) + 8).to_bytes(4, "big") + b"name" + label
        udta = (len(item) + 8).to_bytes(4, "big") + b"udta" + item
        moov = data.index(b"moov") - 4
        track = moov + 8
        for kind in (b"trak", b"trak"):  # the end of the second track
            while data[track + 4 : track + 8] != kind:
                track += int.from_bytes(data[track : track + 4], "big")
            start, track = track, track + int.from_bytes(data[track : track + 4], "big")
        data[track:track] = udta
        for at in (moov, start):  # the movie is the last atom, so nothing else moves
            size = int.from_bytes(data[at : at + 4], "big") + len(udta)
            data[at : at + 4] = size.to_bytes(4, "big")
        (self.folder / "na\x1bmed.mov").write_bytes(data)
        done = self.tune("-list", "-track", name, source="na\x1bmed.mov")
        # Control characters are printed as escapes.
        visible = r"Głos – 声 2\x0a\x09\x0d\x1b[2J\x7f\xc2\x85é"
        lines = ["  Video Track", f"* {visible}", "  Sound Track 2"]
        listing = self.listing(*lines, source=r"na\x1bmed.mov")
        self.assertEqual(done, Result(0, listing, ""))
        self.assertEqual(self.kinds(), ["soun"])

    def test_tracks_are_enabled_and_disabled(self):
        self.tune("-disable", KINDS[1], "-disable", KINDS[2], "-enable", KINDS[2], "-enable", KINDS[0])
        self.assertEqual(self.flags("out.mov"), [1, 0, 0])  # named in both: off
        self.run_in_folder("cliptune", "out.mov", "-enable", KINDS[1], "-q", "-o", "on.mov")
        self.assertEqual(self.flags("on.mov"), [1, 1, 0])

    def flags(self, name):
        header = runs.movie_header(self.folder / name)
        return [runs.child(c, "tkhd")[3] & 1 for kind, c in runs.atoms(header) if kind == "trak"]

    def test_missing_names_cause_warnings(self):
        path = os.fspath(self.movie)
        for options, told in (
            (["-track", "video\ntrack"], f"no tracks from {path} were used in the output movie"),
            (["-timescale", "-sameAsTrack", "Kl\x1bang"],
             f"the time scale track Kl\\x1bang was not found in\n{path}\n"
             "Use -list to get a list of valid track names"),
            (["-trimToLengthOf", "Klang"], "could not find track Klang"),
            (["-scaleToLengthOf", "Kl\u009bang"], "could not find track Kl\\xc2\\x9bang"),
        ):  # fmt: skip
            done = self.run_in_folder(
                "cliptune", self.movie, *options, "-self-contained", "-o", "out.mov"
            )
            self.assertEqual(done, Result(0, "", f"Warning: {told}\n"))
            (self.folder / "out.mov").unlink()
            self.assertEqual(self.tune(*options), Result(0, "", ""))
            if told.startswith("could"):
                self.assertEqual(runs.movie_duration(self.folder / "out.mov"), 2)

    def test_scales_and_lengths_come_from_named_tracks(self):
        self.assertEqual(self.tune("-timescale", "-sameAsTrack", KINDS[1]), Result(0, "", ""))
        mvhd = runs.child(runs.movie_header(self.folder / "out.mov"), "mvhd")
        self.assertEqual(runs.time_scale(mvhd), 44100)
        self.tune("-trimToLengthOf", KINDS[1], "-notrack", KINDS[1])
        self.assertEqual(runs.movie_duration(self.folder / "out.mov"), 1)
        self.tune("-scaleToLengthOf", KINDS[1])
        self.assertEqual([t.duration for t in runs.tracks(self.folder / "out.mov").values()], [1, 1, 1])

    def test_rounding_is_repaired_but_trims_are_kept(self):
        sound = self.folder / "sound.mov"
        runs.make_clip(sound, "-f", "lavfi", "-i", "sine=r=44100:d=0.7777", "-c:a", "pcm_s16le")
        length = lambda: next(iter(runs.tracks(self.folder / "out.mov").values())).duration * 44100
        self.tune("-timescale", "30", source=sound)
        os.rename(self.folder / "out.mov", self.folder / "coarse.mov")
        coarse = self.folder / "coarse.mov"
        self.tune("-timescale", "44100", source=coarse)
        self.assertLess(length(), 34297)
        self.tune("-timescale", "44100", "-fix-roundoff-errors", source=coarse)
        self.assertEqual(length(), 34297)
        self.run_in_folder("cliptune", sound, "-trimTo", "0.5", "-q", "-o", "half.mov")
        self.tune("-timescale", "44100", "-fix-roundoff-errors", source="half.mov")
        self.assertEqual(length(), 22050)

    def test_transparency_modes_are_written(self):
        done = self.run_in_folder("clipstak", self.movie, self.movie, "-transparency-mode",
                                  "transparent16", "1000,2000,65535", "-q", "-o", "out.mov")  # fmt: skip
        self.assertEqual(done, Result(0, "", ""))
        header = runs.movie_header(self.folder / "out.mov")
        modes = [runs.child(c, "mdia", "minf", "vmhd")[4:] for k, c in runs.atoms(header) if k == "trak"]
        self.assertIn(bytes.fromhex("0024 03e8 07d0 ffff"), modes)

    def test_movies_that_cannot_be_mpeg4_are_refused(self):
        out = self.folder / "out.mp4"
        out.write_bytes(b"precious")
        told = "The file cannot be output as MPEG-4 without conversion.\n"
        try_forced = told + "Try using the -force-same-tracks option.\n"
        forced = (
            told + "You can convert the file with iTunes (if audio only), QuickTime Pro, or convtool.\n"
            'Type "man Reelwork" for more information.\n'
        )
        raw_sound, two_videos = [self.movie], [self.movie, self.movie]
        for program, inputs, options, err in (
            ("clipjoin", raw_sound, [], try_forced),
            ("clipjoin", raw_sound, ["-q"], try_forced),
            ("clipjoin", raw_sound, ["-force-same-tracks"], forced),
            ("clipstak", two_videos, ["-q", "-notrack", KINDS[1], "-notrack", KINDS[2]], try_forced),
        ):
            done = self.run_in_folder(program, *inputs, "-mp4", *options, "-o", out)
            self.assertEqual(done, Result(4, "", err), options)
            self.assertEqual(out.read_bytes(), b"precious")


if __name__ == "__main__":
    runs.main()
