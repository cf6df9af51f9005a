#!/usr/bin/env python3
"""Raw AAC opens as a movie, can be joined, and decodes to the same sound."""

import unittest

import runs
from runs import MEDIA

KNOWN = ["adts-mpeg4-2.aac", "empty1s.aac", "fixture-adts-mpeg2.aac", "full_test.aac"]


@runs.has_tools("ffmpeg", "ffprobe")
class RawAac(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clip = runs.make_clip(
            runs.temporary_folder(cls) / "clip.aac", "-f", "lavfi", "-i", "sine=d=3", "-c:a", "aac"
        )

    def test_it_decodes_to_the_same_sound(self):
        real = [MEDIA / "adts" / name for name in KNOWN] if MEDIA.is_dir() else []
        for clip in (self.clip, *real):
            with self.subTest(clip.name):
                for options in ([], ["-no-compressed-header"]):
                    out = self.join("out.mov", clip, options=["-self-contained", *options])
                    self.assert_same(runs.sound(out), runs.sound(clip))
                out.unlink()

    def test_it_joins_with_itself_by_reference(self):
        reference = self.join("reference.mov", self.clip, self.clip)
        whole = self.join_whole("whole.mov", reference)
        once = [hash for _, hash in runs.frames(self.clip, "a:0")]
        twice = [packet.data_hash for packet in runs.samples_by_track(whole)[1]]
        self.assertEqual(len(twice), 2 * len(once))
        self.assertEqual(twice[: len(once)], twice[len(once) :])
        self.assertAlmostEqual(float(runs.movie_duration(whole)), len(twice) * 1024 / 44100, delta=0.01)

    def test_it_is_not_saved_in_place(self):
        clip = self.folder / "clip.aac"
        clip.write_bytes(self.clip.read_bytes())
        done = self.run_in_folder("cliptune", clip, "-save-in-place")
        self.assertIn("-2053", done.err)
        self.assertEqual(clip.read_bytes(), self.clip.read_bytes())

    @runs.needs_corpus
    def test_other_forms_of_raw_sound_are_not_movies(self):
        for name in ("adif_CBR88_8s.aac", "adts-sf-escape.aac"):
            done = self.run_in_folder("clipjoin", MEDIA / "adts" / name, "-o", "out.mov")
            self.assertIn(f"{name}{runs.NOT_A_MOVIE}", done.err)


if __name__ == "__main__":
    runs.main()
