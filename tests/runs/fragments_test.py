#!/usr/bin/env python3
"""Fragmented movies show the same after a join and after a save in place. Truncated ones open up to
the last complete fragment."""

import itertools
import re
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

def top_level(path):
    return [kind for kind, _ in runs.atoms(path.read_bytes())]


def hashes(path):
    return [frame.hash for frame in runs.frames(path)]


def lead(path, content):
    """How much later than the first picture the sound with that content plays."""
    first = next(frame.time for frame in runs.frames(path, "a:0") if frame.hash == content)
    return first - runs.frames(path)[0].time


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
        left = {"moof", "mfra", "sidx", "styp", "emsg"} & set(top_level(path))
        self.assertEqual((left, runs.child(runs.movie_header(path), "mvex")), (set(), b""))
        found = runs.samples_by_track(path)
        for number, expected in self.samples.items():
            self.assert_same([packet.data_hash for packet in found[number]], expected)
        self.assertEqual(runs.complaints(path), [])

    def test_every_form_of_fragments_is_read_and_saved_in_place(self):
        stranger = runs.atom("uuid", b"this is not our own.")
        for name, clip in self.clips.items():
            with self.subTest(name):
                whole = self.join_whole(f"{name}.mov", clip)
                self.assert_ordinary(whole)
                again = self.join_whole("again.mov", self.join("reference.mov", clip))
                self.assertEqual(again.read_bytes(), whole.read_bytes())
                path = self.folder / "saved.mp4"
                path.write_bytes(clip.read_bytes() + stranger)
                done = self.run_in_folder("cliptune", path, "-save-in-place", "-set-looping")
                self.assertEqual(done, runs.Result(0, "", ""))
                self.assert_ordinary(path)
                self.assertEqual(top_level(path)[:2], ["ftyp", "moov"])
                self.assertTrue(path.read_bytes().endswith(stranger))
                for found in (whole, path):
                    self.assert_same(hashes(found), hashes(clip))
                # In fragments with display offsets below 0, ffprobe starts the video one frame
                # late. In fragments it also plays sound that an edit list cuts off.
                played = {frame.hash for frame in runs.frames(clip, "a:0")}
                first = next(f.hash for f in runs.frames(whole, "a:0")[2:] if f.hash in played)
                late = 0.04 if "below" in name else 0
                self.assertAlmostEqual(lead(whole, first), lead(clip, first) + late, delta=0.002)

    def test_a_recording_cut_off_anywhere_opens_up_to_the_last_whole_fragment(self):
        clip = self.clips["base is the fragment"].read_bytes()
        ends, at = [], 0
        for kind, content in runs.atoms(clip):
            at += len(content) + 8
            ends += [at] if kind == "mdat" else []
        self.assertEqual(len(ends), FRAMES // 20)
        cut = self.folder / "cut.mp4"
        for whole, end in enumerate(ends[:-1], 1):
            for more in (0, 5, 300, ends[whole] - end - 1):
                with self.subTest(whole=whole, more=more):
                    cut.write_bytes(clip[: end + more])
                    out = self.join_whole("out.mov", cut)
                    self.assertEqual((len(hashes(out)), runs.complaints(out)), (20 * whole, []))
        done = self.run_in_folder("cliptune", cut, "-save-in-place")
        self.assertEqual(done, runs.Result(0, "", ""))
        self.assertEqual((len(hashes(cut)), runs.complaints(cut)), (FRAMES - 20, []))

    def test_a_recording_with_a_late_clock_starts_at_once(self):
        """Its clock is the time of day; the sound starts a little after the video."""
        source = self.clips["base is the fragment"]
        clip = bytearray(source.read_bytes())
        late = itertools.cycle((9 * 3600 * 12800, 9 * 3600 * 44100 + 4410))
        for found in re.finditer(b"tfdt", clip):
            (time,) = struct.unpack_from(">Q", clip, found.end() + 4)
            struct.pack_into(">Q", clip, found.end() + 4, time + next(late))
        path = self.folder / "late.mp4"
        path.write_bytes(clip)
        out = self.join_whole("out.mov", path)
        self.assert_ordinary(out)
        self.assertLess(runs.movie_duration(out), 5)
        first = runs.frames(out, "a:0")[0].hash
        self.assertAlmostEqual(lead(out, first) - lead(source, first), 0.1, delta=0.002)


if __name__ == "__main__":
    runs.main()
