#!/usr/bin/env python3
"""Fragmented movies show the same after a join and after a save in place. Truncated ones open up to
the last complete fragment."""

import fractions
import struct

import runs

# The ffmpeg options for different forms of fragments.
FLAGS = {
    "base in the file": "frag_keyframe+empty_moov",
    "base is the fragment": "frag_keyframe+empty_moov+default_base_moof",
    "no base": "frag_keyframe+empty_moov+omit_tfhd_offset",
    "edit lists": "frag_keyframe+delay_moov",
    "offsets below 0": "cmaf+frag_keyframe",
    "one track a fragment": "frag_keyframe+empty_moov+separate_moof",
    "samples in the header": "frag_keyframe",
    "indexes": "dash+global_sidx+frag_keyframe+delay_moov",
}
FRAMES = 100  # of the video

LEFT_OVER = {"moof", "mfra", "sidx", "styp", "emsg"}


def top_level(path):
    return [kind for kind, _ in runs.atoms(path.read_bytes())]


def in_step(path):
    """What a player shows and when: decoded video and sound frames, as (seconds, hash)."""
    return runs.frames(path), runs.frames(path, "a:0")


class Fragments(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.plain = runs.make_clip(
            folder / "plain.mp4",
            "-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=4", "-f", "lavfi", "-i", "sine=d=4",
            "-c:v", "libx264", "-bf", "2", "-g", "20", "-c:a", "aac",
        )  # fmt: skip
        cls.clips = {
            name: runs.make_clip(
                folder / f"{flags}.mp4", "-i", cls.plain, "-c", "copy", "-movflags", flags
            )
            for name, flags in FLAGS.items()
        }
        cls.samples = {
            number: [packet.data_hash for packet in samples]
            for number, samples in runs.samples_by_track(cls.plain).items()
        }

    def assert_ordinary(self, path):
        self.assertFalse(LEFT_OVER & set(top_level(path)), "an atom of the fragments remains")
        self.assertEqual(runs.child(runs.movie_header(path), "mvex"), b"")
        found = runs.samples_by_track(path)
        for number, hashes in self.samples.items():
            self.assert_same([packet.data_hash for packet in found[number]], hashes)
        self.assertEqual(runs.complaints(path), [])

    def test_every_form_of_fragments_is_read(self):
        for name, clip in self.clips.items():
            with self.subTest(name):
                whole = self.join_whole(f"{name}.mov", clip)
                self.assert_ordinary(whole)
                again = self.join_whole("again.mov", self.join("reference.mov", clip))
                self.assertEqual(again.read_bytes(), whole.read_bytes())
                found, expected = in_step(whole), in_step(clip)
                self.assert_same([f.hash for f in found[0]], [f.hash for f in expected[0]])
                # In fragments with display offsets below 0, ffprobe starts the video one frame
                # late. In fragments it also plays sound that an edit list cuts off.
                sounds = [dict((f.hash, f.time) for f in sound) for _, sound in (found, expected)]
                first = next(f.hash for f in found[1][2:] if f.hash in sounds[1])
                lead = [sound[first] - picture[0].time
                        for sound, (picture, _) in zip(sounds, (found, expected))]
                late = 0.04 if "below" in name else 0
                self.assertAlmostEqual(lead[0], lead[1] + late, delta=0.002)

    def test_they_are_saved_in_place_with_ordinary_tables(self):
        for name, clip in self.clips.items():
            with self.subTest(name):
                path = self.folder / "saved.mp4"
                stranger = struct.pack(">I4s20s", 28, b"uuid", b"this is not our own.")
                path.write_bytes(clip.read_bytes() + stranger)
                done = self.run_in_folder("cliptune", path, "-save-in-place", "-set-looping")
                self.assertEqual(done, runs.Result(0, "", ""))
                self.assert_ordinary(path)
                self.assertEqual(top_level(path)[:2], ["ftyp", "moov"])
                self.assertTrue(path.read_bytes().endswith(stranger))
                self.assert_same(
                    [f.hash for f in runs.frames(path)], [f.hash for f in runs.frames(clip)]
                )

    def test_a_recording_cut_off_anywhere_opens_up_to_the_last_whole_fragment(self):
        clip = self.clips["base is the fragment"].read_bytes()
        ends, at = [], 0
        for kind, content in runs.atoms(clip):
            at += len(content) + 8
            if kind == "mdat":
                ends.append(at)
        self.assertEqual(len(ends), FRAMES // 20)
        cut = self.folder / "cut.mp4"
        for whole, end in enumerate(ends[:-1], 1):
            for more in (0, 5, 300, ends[whole] - end - 1):
                with self.subTest(whole=whole, more=more):
                    cut.write_bytes(clip[: end + more])
                    out = self.join_whole("out.mov", cut)
                    self.assertEqual(len(runs.frames(out)), 20 * whole)
                    self.assertEqual(runs.complaints(out), [])
        self.assertEqual(
            self.run_in_folder("cliptune", cut, "-save-in-place"), runs.Result(0, "", "")
        )
        self.assertEqual(len(runs.frames(cut)), FRAMES - 20)
        self.assertEqual(runs.complaints(cut), [])

    def test_a_recording_with_a_late_clock_starts_at_once(self):
        """Its clock is the time of day; the sound starts a little after the video."""
        clip = bytearray(self.clips["base is the fragment"].read_bytes())
        at, late = clip.find(b"tfdt"), {1: 9 * 3600 * 12800, 2: 9 * 3600 * 44100 + 4410}
        while at >= 0:
            (track,) = struct.unpack_from(">I", clip, clip.rfind(b"tfhd", 0, at) + 8)
            (time,) = struct.unpack_from(">Q", clip, at + 8)
            struct.pack_into(">Q", clip, at + 8, time + late[track])
            at = clip.find(b"tfdt", at + 4)
        path = self.folder / "late.mp4"
        path.write_bytes(clip)
        out = self.join_whole("out.mov", path)
        self.assert_ordinary(out)
        self.assertLess(runs.movie_duration(out), 5)
        before, after = in_step(self.clips["base is the fragment"]), in_step(out)
        lead = [shown[1][0].time - shown[0][0].time for shown in (before, after)]
        self.assertAlmostEqual(lead[1] - lead[0], fractions.Fraction(1, 10), delta=0.002)

    def test_every_frame_of_uncompressed_sound_becomes_a_sample(self):
        """The samples in the fragments have 1024 frames each, which is 32 ms."""
        source, frames = ("-f", "lavfi", "-i", "sine=r=32000"), 100 * 1024
        plain, clip = (
            runs.make_clip(
                self.folder / f"{flags}.mov", *source, "-af", f"atrim=end_sample={frames}",
                "-c:a", "pcm_s16le", "-movflags", flags, "-frag_duration", duration,
            )
            for flags, duration in (("faststart", "0"), ("empty_moov", "300000"))
        )  # fmt: skip
        self.assertGreater(top_level(clip).count("moof"), 5)
        expected = runs.sound(plain)
        self.assertEqual(len(expected), frames)
        whole = self.join_whole("whole.mov", clip)
        again = self.join_whole("again.mov", whole)
        both = self.join_whole("both.mov", clip, plain)
        for path, times in ((clip, 1), (whole, 1), (again, 1), (both, 2)):
            with self.subTest(path.name):
                self.assert_same(runs.sound(path), expected * times)
                self.assertEqual(runs.complaints(path), [])
        for path, times in ((whole, 1), (again, 1), (both, 2)):
            track = runs.child(runs.movie_header(path), "trak", "mdia", "minf", "stbl")
            self.assertEqual(runs.child(track, "stsz"), struct.pack(">3I", 0, 2, times * frames))


if __name__ == "__main__":
    runs.main()
