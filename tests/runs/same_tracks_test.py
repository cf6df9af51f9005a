#!/usr/bin/env python3
"""Joins into as few tracks as possible (-force-same-tracks): clips with different time scales and
encoder settings in one track, tested by how they play."""

import fractions
import struct

import runs
from runs import child

Fraction = fractions.Fraction
RATE = 48000


def noise(seed, rate=RATE):
    return f"anoisesrc=r={rate}:seed={seed}:amplitude=0.5:d=2,atrim=end_sample={rate}"


@runs.has_tools("ffmpeg", "ffprobe")
class SameTracks(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clips = runs.temporary_folder(cls)

    def picture_clip(self, name, scale, rate="25", *options):
        return runs.make_clip(
            self.clips / name, "-f", "lavfi", "-i", f"testsrc2=s=96x64:r={rate}:d=1,hue=h={scale}",
            "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-bf", "2",
            "-pix_fmt", "yuv420p", "-video_track_timescale", str(scale), *options,
        )  # fmt: skip

    def sound_clip(self, name, *seeds, rate=RATE):
        inputs = [word for seed in seeds for word in ("-f", "lavfi", "-i", noise(seed, rate))]
        maps = [word for i in range(len(seeds)) for word in ("-map", str(i))]
        return runs.make_clip(self.clips / name, *inputs, *maps, "-c:a", "pcm_s16le")

    def join_same(self, *clips):
        return self.join_whole("out.mov", "-force-same-tracks", *clips)

    def kinds(self, path):
        return [track.kind for track in runs.tracks(path).values()]

    def descriptions(self, path, number=0):
        """The formats of the sample descriptions of a track."""
        tracks = [c for kind, c in runs.atoms(runs.movie_header(path)) if kind == "trak"]
        table = child(tracks[number], "mdia", "minf", "stbl", "stsd")
        (count,) = struct.unpack_from(">I", table, 4)
        formats = [kind for kind, _ in runs.atoms(table[8:])]
        self.assertEqual(len(formats), count)
        return formats

    def assert_plays_pictures(self, joined, clips, within=0):
        """One track shows the frames of the clips, which last one second each. The times do not
        come from ffmpeg, because it assumes that all edits reorder frames in the same way."""
        self.assertEqual(self.kinds(joined), ["vide"])
        decoded = [frame.hash for clip in clips for frame in runs.frames(clip)]
        self.assert_same([frame.hash for frame in runs.frames(joined)], decoded, "pictures")
        expected = [
            (number + time, content)
            for number, clip in enumerate(clips)
            for time, content in runs.shown(clip, 1)
        ]
        found = runs.shown(joined, 1)
        self.assert_same([content for _, content in found], [content for _, content in expected])
        for (time, _), (wanted, _) in zip(found, expected):
            self.assertLessEqual(abs(time - wanted), within)
        self.assertEqual(runs.movie_duration(joined), len(clips))

    def test_pictures_of_different_time_scales_share_a_track_at_exact_times(self):
        one = self.picture_clip("12800.mov", 12800)
        two = self.picture_clip("90000.mov", 90000)
        three = self.picture_clip("15360.mov", 15360, "30")
        for clips in ((one, two), (two, one), (one, three), (three, one), (two, three)):
            with self.subTest([clip.name for clip in clips]):
                self.assert_plays_pictures(self.join_same(*clips), clips)
                # Without the option they get separate tracks.
                apart = self.join_whole("apart.mov", *clips)
                self.assertEqual(self.kinds(apart), ["vide", "vide"])

    def test_frames_that_fit_no_common_scale_do_not_drift(self):
        clips = [
            self.picture_clip("24000.mov", 24000, "24"),
            self.picture_clip("10007.mov", 10007, "30"),
        ]
        self.assert_plays_pictures(self.join_same(*clips), clips, within=Fraction(1, 24000))
        clips.reverse()
        self.assert_plays_pictures(self.join_same(*clips), clips, within=Fraction(1, 10007))

    def test_pictures_of_another_size_share_a_track_too(self):
        one = self.picture_clip("one.mov", 12800)
        tall = self.picture_clip("tall.mov", 12800, "25", "-vf", "transpose")
        joined = self.join_same(one, tall)
        self.assertEqual(self.kinds(joined), ["vide"])
        own = [content for clip in (one, tall) for _, content in runs.shown(clip, 1)]
        self.assert_same([content for _, content in runs.shown(joined, 1)], own, "pictures")

    def test_different_encoder_settings_are_two_descriptions(self):
        clips = [
            self.picture_clip("main.mov", 12800, "25", "-profile:v", "main"),
            self.picture_clip("baseline.mov", 12800, "25", "-profile:v", "baseline", "-bf", "0"),
        ]
        joined = self.join_same(*clips)
        self.assertEqual(self.descriptions(joined), ["avc1", "avc1"])
        self.assert_plays_pictures(joined, clips)
        self.assertEqual(self.descriptions(self.join_same(clips[0], clips[0])), ["avc1"])

    def test_sound_with_a_different_time_scale_gets_a_separate_track(self):
        one, two = self.sound_clip("48000.mov", 1), self.sound_clip("44100.mov", 2, rate=44100)
        joined = self.join_same(one, two, one)
        self.assertEqual(self.kinds(joined), ["soun", "soun"])
        first, second = runs.tracks(joined).values()
        self.assertEqual((first.scale, second.scale), (48000, 44100))
        # The gap in the first track is silence.
        self.assertEqual([(e.start, e.duration, e.media) for e in first.edits], [(0, 3, 0)])
        found = runs.sound(joined)
        self.assertFalse(any(found[48000:96000]))
        self.assertTrue(found[:48000] == found[96000:] == runs.sound(one))
        self.assertEqual(
            [(e.start, e.duration, e.media) for e in second.edits], [(0, 1, -1), (1, 1, 0)]
        )

    def test_of_two_sound_tracks_the_second_is_joined_first(self):
        one, two = self.sound_clip("one.mov", 1), self.sound_clip("two.mov", 2, 3)
        joined = self.join_same(one, two)
        self.assertEqual(self.kinds(joined), ["soun"])
        expected = runs.sound(one) + runs.sound(two, "a:1") + runs.sound(two, "a:0")
        self.assertEqual(len(runs.sound(joined)), 3 * RATE)
        self.assertTrue(runs.sound(joined) == expected, "the sound differs")

    def test_a_kind_that_the_output_lacks_gets_a_new_track(self):
        pictures, sound = self.picture_clip("12800.mov", 12800), self.sound_clip("one.mov", 1)
        joined = self.join_same(pictures, sound, pictures)
        self.assertEqual(self.kinds(joined), ["vide", "soun"])
        (_, track) = runs.tracks(joined).values()
        self.assertEqual([(e.start, e.duration) for e in track.edits], [(0, 1), (1, 1)])
        own = runs.shown(pictures, 1)
        again = [(2 + time, content) for time, content in own]
        self.assertEqual(runs.shown(joined, 1), own + again)

    def test_a_reference_movie_of_one_track_flattens_to_the_same(self):
        clips = [self.picture_clip("12800.mov", 12800), self.picture_clip("90000.mov", 90000)]
        whole = self.join_same(*clips).read_bytes()
        reference = self.join("reference.mov", *clips, options=["-force-same-tracks"])
        self.assertTrue(self.join_whole("flat.mov", reference).read_bytes() == whole)


if __name__ == "__main__":
    runs.main()
