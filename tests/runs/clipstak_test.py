#!/usr/bin/env python3
"""Movies that play at the same time: which tracks the output has, and when they show what."""

import fractions
import struct
import unittest

import runs
from runs import MEDIA, Result, child

Fraction = fractions.Fraction
UNIT = Fraction(1, 600)  # one unit of the movies' time scale


class StackTest(runs.RunTest):
    def stack(self, *arguments):
        done = self.run_in_folder("clipstak", *arguments, "-q", "-self-contained", "-o", "out.mov")
        self.assertEqual(done, Result(0, "", ""))
        return self.folder / "out.mov"

    def assert_shows(self, stacked, number, source, start=0, factor=1):
        """The track shows what the only track of `source` shows, starting at `start` and slower by
        `factor`. The times are exact up to rounding to the movie's units."""
        (own,) = runs.tracks(source)
        expected = [(start + time * factor, h) for time, h in runs.shown(source, own)]
        found = runs.shown(stacked, number)
        self.assert_same([h for _, h in found], [h for _, h in expected], f"track {number}")
        for (time, _), (wanted, _) in zip(found, expected):
            self.assertLessEqual(abs(time - wanted), UNIT)

    def assert_starts_and_lasts(self, stacked, *expected):
        """What ffprobe reports for each stream, in seconds."""
        streams = runs.description(stacked)["streams"]
        self.assertEqual(len(streams), len(expected))
        for stream, (start, duration) in zip(streams, expected):
            self.assertAlmostEqual(float(stream["start_time"]), start, delta=0.03)
            self.assertAlmostEqual(float(stream["duration"]), duration, delta=0.06)


@runs.has_tools("ffmpeg", "ffprobe")
class MadeClips(StackTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)

        def clip(name, source, *options):
            return runs.make_clip(folder / name, "-f", "lavfi", "-i", source, *options)

        cls.long = clip("long.mov", "testsrc=s=64x48:r=10:d=4", "-c:v", "mpeg4")
        cls.short = clip(
            "short.mov", "testsrc2=s=32x32:r=10:d=1", "-c:v", "mpeg4", "-movie_timescale", "48000"
        )
        cls.sound = clip("sound.mov", "anoisesrc=r=8000:d=2,atrim=end_sample=16000",
                         "-c:a", "pcm_s16le", "-metadata", "title=Noise")  # fmt: skip

    def test_a_movie_starts_at_its_place_and_keeps_its_length(self):
        stacked = self.stack(self.long, self.short, "-placeAt", "1.5")
        self.assertEqual([t.kind for t in runs.tracks(stacked).values()], ["vide", "vide"])
        self.assert_shows(stacked, 1, self.long)
        self.assert_shows(stacked, 2, self.short, start=Fraction(3, 2))
        self.assertEqual(runs.movie_duration(stacked), 4)
        for stream, clip, start in (("v:0", self.long, 0), ("v:1", self.short, 1.5)):
            expected = [(start + frame.time, frame.hash) for frame in runs.frames(clip)]
            found = [(frame.time, frame.hash) for frame in runs.frames(stacked, stream)]
            self.assertEqual(found, expected)

    def test_each_of_three_movies_has_its_place(self):
        stacked = self.stack(
            self.long, self.short, "-placeAt", "3.5", self.sound, "-placeAt", "0:01"
        )
        self.assert_shows(stacked, 1, self.long)
        self.assert_shows(stacked, 2, self.short, start=Fraction(7, 2))
        self.assertEqual(runs.movie_duration(stacked), Fraction(9, 2))
        (_, _, track) = runs.tracks(stacked).values()
        (gap, sound) = track.edits
        self.assertEqual((gap.media, gap.duration), (-1, 1))
        self.assertEqual((sound.media, sound.duration, sound.rate), (0, 2, 1))
        self.assert_starts_and_lasts(stacked, (0, 4), (3.5, 1), (1, 2))

    def test_a_global_place_applies_to_every_later_movie(self):
        stacked = self.stack("-placeAt", "2", self.long, self.short, self.short)
        self.assert_shows(stacked, 1, self.long)
        for number in (2, 3):
            self.assert_shows(stacked, number, self.short, start=2)

    def test_a_movie_is_stretched_from_its_place_to_the_end_of_the_output(self):
        # It is one switch for the whole run, wherever it is on the command line.
        for arguments, start, factor in (
            (["-scale", self.long, self.short], 0, 4),
            ([self.long, self.short, "-placeAt", "2", "-scale"], 2, 2),
            ([self.long, "-scale", self.short, "-placeAt", "3.5"], Fraction(7, 2), Fraction(1, 2)),
            (["-scale", self.long, "-noscale", self.short], 0, 1),
        ):
            stacked = self.stack(*arguments)
            self.assert_shows(stacked, 1, self.long)
            self.assert_shows(stacked, 2, self.short, start=start, factor=factor)
            self.assertEqual(runs.movie_duration(stacked), 4)

    def test_a_longer_movie_is_sped_up_to_fit_the_output(self):
        stacked = self.stack("-scale", self.short, self.long)
        self.assert_shows(stacked, 2, self.long, factor=Fraction(1, 4))
        self.assertEqual(runs.movie_duration(stacked), 1)

    def test_a_movie_placed_at_or_after_the_end_cannot_be_stretched(self):
        for place in (4, 6):
            stacked = self.stack(self.long, self.short, "-placeAt", str(place), "-scale")
            self.assert_shows(stacked, 2, self.short, start=place)
            self.assertEqual(runs.movie_duration(stacked), place + 1)

    def test_place_and_scale_do_not_apply_to_the_first_movie(self):
        stacked = self.stack(self.sound, "-placeAt", "5", "-use-settings")
        self.assertTrue(runs.sound(stacked) == runs.sound(self.sound))
        self.assertEqual(runs.movie_duration(stacked), 2)

    def test_settings_come_from_the_first_movie_or_the_last_with_use_settings(self):
        def with_settings(name, rate, volume, shift):
            """A copy of a clip with a different movie header."""
            data = bytearray(self.short.read_bytes())
            at = data.index(b"mvhd") + 4
            struct.pack_into(">IH", data, at + 20, rate, volume)
            struct.pack_into(">I", data, at + 36 + 24, shift)  # tx
            (self.folder / name).write_bytes(data)
            return self.folder / name

        one = with_settings("one.mov", 0x8000, 0x40, 7 << 16)
        two = with_settings("two.mov", 0x20000, 0x80, 0)
        use = "-use-settings"
        for arguments, expected in (
            ([self.sound, one], (0x10000, 0x100, 0, True)),
            ([self.sound, one, use], (0x8000, 0x40, 7 << 16, False)),
            ([self.sound, one, use, two, use], (0x20000, 0x80, 0, False)),
            ([self.sound, one, use, two], (0x8000, 0x40, 7 << 16, False)),
            ([one, self.sound, use], (0x10000, 0x100, 0, True)),
        ):
            header = runs.movie_header(self.stack(*arguments))
            rate, volume = struct.unpack_from(">IH", child(header, "mvhd"), 20)
            (shift,) = struct.unpack_from(">I", child(header, "mvhd"), 36 + 24)
            titled = b"Noise" in child(header, "udta")
            self.assertEqual((rate, volume, shift, titled), expected)
            self.assertEqual(runs.time_scale(child(header, "mvhd")), self.scale_of(arguments[0]))

    def scale_of(self, path):
        return runs.time_scale(child(runs.movie_header(path), "mvhd"))


@runs.has_tools("ffmpeg", "ffprobe")
@runs.needs_corpus
class RealMovies(StackTest):
    VIDEO = MEDIA / "join-stack/count-video.mp4"
    ENGLISH = MEDIA / "join-stack/count-english-audio.mp4"
    GERMAN = MEDIA / "join-stack/count-deutsch-audio.mp4"
    SECONDS = {VIDEO: 14674 / 600, ENGLISH: 1999445 / 90000, GERMAN: 2025486 / 90000}

    def test_a_film_with_a_sound_track(self):
        stacked = self.stack(self.VIDEO, self.ENGLISH, "-placeAt", "1.5")
        self.assert_shows(stacked, 1, self.VIDEO)
        self.assert_shows(stacked, 2, self.ENGLISH, start=Fraction(3, 2))
        self.assert_starts_and_lasts(
            stacked, (0, self.SECONDS[self.VIDEO]), (1.5, self.SECONDS[self.ENGLISH])
        )
        expected = [frame.hash for frame in runs.frames(self.VIDEO)]
        self.assert_same([frame.hash for frame in runs.frames(stacked)], expected, "pictures")

    def test_a_film_with_sound_in_two_languages(self):
        stacked = self.stack(self.VIDEO, self.ENGLISH, self.GERMAN, "-placeAt", "2")
        for number, (source, start) in enumerate(
            ((self.VIDEO, 0), (self.ENGLISH, 0), (self.GERMAN, 2)), 1
        ):
            self.assert_shows(stacked, number, source, start=start)
        self.assertLess(abs(runs.movie_duration(stacked) - (2 + self.SECONDS[self.GERMAN])), UNIT)

    def test_sound_stretched_to_the_film(self):
        stacked = self.stack(self.VIDEO, self.ENGLISH, "-placeAt", "1.5", "-scale")
        video, sound = runs.tracks(stacked).values()
        self.assertEqual(sound.duration, video.duration)
        self.assertEqual(sound.edits[0].duration, Fraction(3, 2))
        length = Fraction(14674 - 900, 600)
        rate = Fraction(1999445, 90000) / length
        self.assertAlmostEqual(float(sound.edits[1].rate), float(rate), delta=0.001)
        self.assert_shows(stacked, 2, self.ENGLISH, start=Fraction(3, 2), factor=1 / rate)


if __name__ == "__main__":
    runs.main()
