#!/usr/bin/env python3
"""Joins through sample tables (-manual-join, -unique-tracks) play all samples of their parts."""

import fractions
import re
import unittest

import runs
from runs import MORE_ERRORS, ONE_ERROR, child

RATE = 48000
KEY, KEY_ID = "00112233445566778899aabbccddeeff", "0123456789abcdef0123456789abcdef"


def picture_clip(path, seed, *options, sound=True, scale=12800, rate=RATE, size="96x64"):
    """One second of video, reordered by default, and of uncompressed sound."""
    inputs = ["-f", "lavfi", "-i", f"testsrc2=s={size}:r=25:d=1,hue=h={40 * seed}"]
    if sound:
        inputs += ["-f", "lavfi", "-i",
                   f"anoisesrc=r={rate}:seed={seed}:amplitude=0.5:d=2,atrim=end_sample={rate}"]  # fmt: skip
    return runs.make_clip(
        path, *inputs, "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-bf", "2",
        "-pix_fmt", "yuv420p", "-video_track_timescale", str(scale), "-c:a", "pcm_s16le", *options,
    )  # fmt: skip


class SampleTableJoin(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clips = folder = runs.temporary_folder(cls)
        cls.one, cls.two = (picture_clip(folder / f"{n}.mov", n) for n in (1, 2))
        cls.plain = picture_clip(folder / "plain.mov", 3, "-bf", "0")
        cls.scaled = picture_clip(folder / "scaled.mov", 4, scale=90000, sound=False)

    def tracks(self, path, kind=None):
        return [t for t in runs.tracks(path).values() if kind in (None, t.kind)]

    def starts(self, path):
        """For each track: its kind, and where its one media edit starts in the movie and in the
        media."""
        found = []
        for track in self.tracks(path):
            # Without an edit list the whole media is shown.
            edits = track.edits or [runs.Edit(0, track.duration, 0, 1)]
            (edit,) = [e for e in edits if e.media >= 0]
            found.append((track.kind, float(edit.start), float(edit.duration), edit.media))
        return found

    def descriptions(self, path, number):
        track = [c for kind, c in runs.atoms(runs.movie_header(path)) if kind == "trak"][number]
        table = child(track, "mdia", "minf", "stbl", "stsd")
        return [kind for kind, _ in runs.atoms(table[8:])]


@runs.has_tools("ffmpeg", "ffprobe")
class ManualJoin(SampleTableJoin):
    def assert_plays(self, joined, parts):
        """Each track has one edit, which shows every frame of the parts. Each part lasts one
        second."""
        self.assertEqual(
            self.starts(joined), [("vide", 0, len(parts), 0), ("soun", 0, len(parts), 0)]
        )
        found = runs.frames(joined)
        expected = [frame.hash for part in parts for frame in runs.frames(part)]
        self.assert_same([frame.hash for frame in found], expected, "pictures")
        times = [round(i / 25, 6) for i in range(25 * len(parts))]
        self.assert_same([frame.time for frame in found], times, "times")
        whole = runs.sound(parts[0])[:0]
        for part in parts:
            whole += runs.sound(part)
        self.assertTrue(runs.sound(joined) == whole, "the sound differs")

    def test_every_frame_is_shown_at_its_time(self):
        for parts in ([self.one], [self.one, self.two], [self.plain, self.one, self.plain],
                      [self.one, self.plain, self.two, self.one]):  # fmt: skip
            with self.subTest([part.name for part in parts]):
                joined = self.join_whole("out.mov", "-manual-join", *parts)
                self.assert_plays(joined, parts)

    def test_a_reference_movie_flattens_to_the_same(self):
        parts = [self.one, self.two, self.one]
        whole = self.join_whole("whole.mov", "-manual-join", *parts).read_bytes()
        reference = self.join("reference.mov", "-manual-join", *parts)
        self.assertLess(reference.stat().st_size, len(whole) / 4)
        self.assertTrue(self.join_whole("flat.mov", reference).read_bytes() == whole)

    def test_clips_of_one_encoder_share_a_description_whatever_their_bit_rates(self):
        parts = [
            picture_clip(self.folder / f"{n}.mp4", n, "-c:a", "aac") for n in (1, 2, 3)
        ]
        rates = {runs.movie_header(part).partition(b"btrt")[2][:12] for part in parts}
        self.assertEqual(len(rates), 3)
        for options in (["-manual-join"], []):
            joined = self.join("out.mov", *parts, options=[*options, "-self-contained"])
            self.assertEqual([self.descriptions(joined, n) for n in (0, 1)], [["avc1"], ["mp4a"]])
            self.assert_same(
                [frame.hash for frame in runs.frames(joined)],
                [frame.hash for part in parts for frame in runs.frames(part)],
            )

    def test_different_encoder_settings_are_two_descriptions(self):
        joined = self.join_whole("out.mov", "-manual-join", self.one, self.plain)
        self.assertEqual(self.descriptions(joined, 0), ["avc1", "avc1"])

    def test_many_parts_stay_in_step(self):
        # A part lasts 100 004 samples, which no common movie time scale can state exactly.
        rate, count = 44100, 100_004
        part = runs.make_clip(
            self.folder / "part.wav.mov", "-f", "lavfi", "-i",
            f"anoisesrc=r={rate}:d=3,atrim=end_sample={count}", "-c:a", "pcm_s16le",
        )  # fmt: skip
        joined = self.join_whole("out.mov", "-manual-join", *[part] * 50)
        (track,) = self.tracks(joined)
        self.assertIsNone(track.edits, "the whole media needs no edit list")
        exact = fractions.Fraction(50 * count, rate)
        self.assertLessEqual(abs(track.duration - exact), fractions.Fraction(1, 1200))
        self.assertEqual(len(runs.sound(joined)), 50 * count)

    def test_a_different_media_time_scale_is_reported_and_gets_a_track(self):
        movies = [self.one, self.scaled, self.two, self.scaled]
        self.join_whole("quiet.mov", "-manual-join", *movies)
        done = self.run_in_folder(
            "clipjoin", "-manual-join", *movies, "-self-contained", "-o", "out.mov"
        )
        # Each scaled movie is tried with the first video track, which it does not fit. The second
        # one then fits the track of the first one.
        self.assertEqual(done, runs.Result(0, "", "Different media time scales\n" * 2))
        joined = self.folder / "out.mov"
        self.assertEqual(
            self.starts(joined), [("vide", 0, 2, 0), ("soun", 0, 2, 0), ("vide", 1, 2, 0)]
        )
        own = [frame.hash for frame in runs.frames(self.scaled)]
        self.assert_same([frame.hash for frame in runs.frames(joined, "v:1")], own * 2)

    def test_settings_come_from_the_first_input(self):
        named = picture_clip(self.folder / "named.mov", 5, "-metadata", "title=A name")
        joined = self.join_whole("out.mov", "-manual-join", named, self.one)
        self.assertEqual(runs.description(joined)["format"]["tags"].get("title"), "A name")
        self.assertEqual(runs.time_scale(child(runs.movie_header(joined), "mvhd")), 600)

    def test_force_same_tracks_overrides_it(self):
        joined = self.join_whole("out.mov", "-manual-join", "-force-same-tracks", self.one)
        (track,) = self.tracks(joined, "vide")
        self.assertEqual([e.media for e in track.edits], [1024], "the edit of the source")


@runs.has_tools("ffmpeg", "ffprobe")
class UniqueTracks(SampleTableJoin):
    def test_every_track_gets_a_track_that_starts_where_the_output_ended(self):
        parts = [self.plain, self.one, self.two]
        joined = self.join_whole("out.mov", "-unique-tracks", *parts)
        expected = [(kind, n, 1, 0) for n in range(3) for kind in ("vide", "soun")]
        self.assertEqual(self.starts(joined), expected)
        for n, part in enumerate(parts):
            found = runs.frames(joined, f"v:{n}")
            self.assert_same([f.hash for f in found], [f.hash for f in runs.frames(part)], part)
            self.assertEqual(found[0].time, n)
            self.assertTrue(runs.sound(joined, f"a:{n}") == runs.sound(part), "the sound differs")


@runs.has_tools("ffmpeg")
@unittest.skipUnless((runs.BIN / "failing_clipjoin").exists(), "failing_clipjoin is not built")
class Reports(SampleTableJoin):
    def told(self, call, option):
        done = self.run_in_folder(
            "failing_clipjoin", option, self.scaled, self.scaled, "-self-contained",
            "-o", "out.mov", env={"FAIL": f"{call}:1:-50"},
        )  # fmt: skip
        self.assertEqual(done.status, 1)
        return done.err

    def test_each_failing_step_is_reported_with_its_line(self):
        last = "Error in myAppendTrack at line LINE of clipjoin.cpp: -50\n"
        for call, line, goes_on in (
            ("GetMediaDataRefCount", 828, True),
            ("GetMediaDataRef", 834, True),
            ("AddMediaDataRef", 836, True),
            ("QTSampleTableCreateMutable", 859, False),
            ("CopyMediaMutableSampleTable", 881, False),
            ("AddSampleTableToMedia", 883, False),
            ("QTSampleTableGetProperty", 888, False),
            ("InsertMediaIntoTrack", 892, True),
        ):
            for option in ("-unique-tracks", "-manual-join"):
                with self.subTest(call=call, option=option):
                    said = f"Error in {call} at line {line} of clipjoin.cpp: -50\n"
                    said += ONE_ERROR if goes_on else last + MORE_ERRORS
                    told = re.sub(
                        r"(myAppendTrack at line )\d+", r"\1LINE", self.told(call, option)
                    )
                    self.assertEqual(told, said)


@runs.has_tools("ffmpeg")
class EncryptedPictures(SampleTableJoin):
    """Tested with ffmpeg, which decrypts with the data that is stored next to the samples."""

    def setUp(self):
        super().setUp()
        self.secret = picture_clip(
            self.folder / "secret.mp4", 6, "-encryption_scheme", "cenc-aes-ctr",
            "-encryption_key", KEY, "-encryption_kid", KEY_ID, sound=False,
        )  # fmt: skip

    def pictures(self, path, key=KEY):
        return [frame.hash for frame in runs.frames(path, "v:0", "-decryption_key", key)]

    def test_a_whole_copy_can_be_decrypted(self):
        own = self.pictures(self.secret)
        self.assertEqual(len(own), 25)
        self.assertNotEqual(own, self.pictures(self.secret, KEY[::-1]))
        for options in (["-self-contained"], ["-self-contained", "-no-fast-start"]):
            copy = self.join("copy.mov", self.secret, options=options)
            self.secret.rename(self.folder / "away.mp4")
            self.assert_same(self.pictures(copy), own)
            (self.folder / "away.mp4").rename(self.secret)

    def test_a_join_is_refused_and_the_run_continues(self):
        for option, calls in (
            ((), ["InsertMovieSegment"]),
            (("-manual-join",), ["CopyMediaMutableSampleTable", "myAppendTrack"]),
        ):
            done = self.run_in_folder(
                "clipjoin", *option, self.plain, self.secret, "-q", "-self-contained",
                "-o", "out.mov",
            )  # fmt: skip
            said = re.findall(r"Error in (\w+) at line \d+ of clipjoin.cpp: -2053\n", done.err)
            self.assertEqual(done.status, 1)
            # A manual join tries the existing track, then a new one, which it removes again.
            self.assertEqual(sorted(set(said)), sorted(calls))
            self.assertEqual(len(self.tracks(self.folder / "out.mov")), 2)
            self.assertEqual(len(runs.frames(self.folder / "out.mov")), 25)

    def test_a_part_is_refused_before_anything_is_written(self):
        cut = self.run_in_folder("cliptune", self.secret, "-trimTo", "0.5", "-q",
                                 "-self-contained", "-o", "out.mov")  # fmt: skip
        self.assertIn("FlattenMovieDataToDataRef", cut.err)
        self.assertIn(": -2053\n", cut.err)
        self.assertFalse((self.folder / "out.mov").exists())


if __name__ == "__main__":
    runs.main()
