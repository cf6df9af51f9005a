#!/usr/bin/env python3
"""Joined movies play the pictures and the sound of their parts, each at its time."""

import fractions

import runs
from runs import RunTest, child, frames, make_clip, sound

F = fractions.Fraction
RATE, PACKET = 48000, 1024
PCM = ("-c:a", "pcm_s16le")
MANUAL, SAME, PLAIN = "-manual-join", "-force-same-tracks", "-no-compressed-header"
WHOLE = ("-self-contained", "-o", "out.mov")


def noise(seed, rate=RATE, seconds=1):
    source = f"anoisesrc=r={rate}:seed={seed}:amplitude=0.5:d=3"
    return ["-f", "lavfi", "-i", f"{source},atrim=end_sample={int(seconds * rate)}"]


def clip(path, seed, *options, codec="pcm_s16le", rate="25", size="96x64", seconds=1):
    """A clip with unique pictures, which are shown in another order than they are decoded in, and
    with noise if there is a codec for it."""
    picture = f"testsrc2=s={size}:r={rate}:d={seconds},hue=h={40 * seed}"
    # The noise substitution of AAC is off, because with it the same packet decodes differently
    # after other packets.
    coding = ["-c:a", codec, *(["-aac_pns", "0"] if codec == "aac" else [])] if codec else []
    return make_clip(
        path, "-f", "lavfi", "-i", picture, *(noise(seed, seconds=seconds) if codec else []),
        "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-bf", "2", "-g", "12",
        "-pix_fmt", "yuv420p", *coding, *options,
    )  # fmt: skip


def hashes(path, stream="v:0"):
    return [frame.hash for frame in frames(path, stream)]


def kinds(path):
    return [track.kind for track in runs.tracks(path).values()]


def descriptions(path, number):
    """The formats of the sample descriptions of a track."""
    track = list(runs.tracks(path).values())[number].content
    return [kind for kind, _ in runs.atoms(child(track, "mdia", "minf", "stbl", "stsd")[8:])]


class JoinTest(RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clips = folder = runs.temporary_folder(cls)

        # These have 32 pictures of 32 ms and 48 AAC packets, so sound and video end together.
        def aac(name, seed, *options, **more):
            even = {"codec": "aac", "rate": "125/4", "seconds": 1.024, **more}
            return clip(folder / name, seed, "-b:a", "96k", *options, **even)

        cls.one, cls.two, cls.three = (aac(f"clip {n}.mp4", n) for n in (1, 2, 3))
        cls.quicktime = aac("quicktime.mov", 4)
        cls.other_scale = aac("other scale.mp4", 5, "-movie_timescale", "48000")
        # One second each.
        cls.pcm, cls.more = (clip(folder / f"pcm {n}.mov", n) for n in (8, 9))
        cls.plain = clip(folder / "plain.mov", 10, "-bf", "0")
        for scale, rate in ((90000, "25"), (12800, "25"), (15360, "30"), (10007, "30")):
            options = ("-video_track_timescale", str(scale))
            made = clip(folder / f"{scale}.mov", scale, *options, codec=None, rate=rate)
            setattr(cls, f"by_{scale}", made)
        baseline = ("-profile:v", "baseline", "-bf", "0")
        cls.baseline = clip(folder / "baseline.mov", 15, *baseline, codec=None)

    def assert_pictures(self, joined, parts, within=F(1, 1000)):
        """The first video track plays the pictures of the parts without gap or overlap. The times
        do not come from ffmpeg, because it assumes that all edits reorder pictures alike."""
        self.assert_same(hashes(joined), [h for part in parts for h in hashes(part)], "pictures")
        expected, start = [], 0
        for part in parts:
            expected += [(start + time, content) for time, content in runs.presented(part, 1)]
            start += runs.movie_duration(part)
        found = runs.presented(joined, 1)
        self.assert_same([h for _, h in found], [h for _, h in expected], "packets")
        self.assertLessEqual(max(abs(a - b) for (a, _), (b, _) in zip(found, expected)), within)

    def assert_sound(self, joined, parts):
        found, at = sound(joined), 0
        for part in parts:
            own = sound(part)
            # The first packet after a join follows another packet than in its file, so the decoder
            # adds another overlap to it.
            is_aac = runs.description(part)["streams"][1]["codec_name"] == "aac"
            start = PACKET if at and is_aac else 0
            self.assertTrue(found[at + start : at + len(own)] == own[start:], f"{part} differs")
            at += len(own)
        self.assertEqual(len(found), at)

    def assert_is_flattened_reference(self, joined, *arguments):
        reference = self.join("refers.mov", *arguments)
        self.assertLess(reference.stat().st_size, joined.stat().st_size)
        flat = self.join_whole("flat.mov", *set(arguments) & {"-no-fast-start", PLAIN}, reference)
        self.assertTrue(flat.read_bytes() == joined.read_bytes(), "the reference movie")

    def test_every_picture_and_every_sound_is_played_at_its_time(self):
        copy = self.join_whole("copy.mov", self.three)
        pair = self.join_whole("pair.mp4", self.one, self.two)
        one, two, three, pcm, more = self.one, self.two, self.three, self.pcm, self.more
        bit_rates = {runs.movie_header(p).partition(b"btrt")[2][:12] for p in (one, two, three)}
        self.assertEqual(len(bit_rates), 3, "they do not have to be the same to share a track")
        for parts, options in (
            ([one, two, three], []), ([one, two, three], [SAME]), (([one, two, three] * 7)[:20], []),
            ([one, one], ["-no-fast-start", PLAIN]), ([copy, one], []), ([one, copy], []),
            # ffmpeg writes "unspecified" in one format and "undetermined" in the other.
            ([one, self.quicktime], []), ([self.other_scale, one], []),
            ([one, self.other_scale, two], []), ([pair, three], []), ([pcm, more, pcm], []),
            ([pcm], [MANUAL]), ([pcm, more], [MANUAL]), ([self.plain, pcm, self.plain, more], [MANUAL]),
        ):  # fmt: skip
            with self.subTest(parts=[part.name for part in parts], options=options):
                joined = self.join_whole("out.mov", *options, *parts)
                self.assertEqual(kinds(joined), ["vide", "soun"])
                if {*parts} <= {one, two, three}:
                    self.assertEqual([descriptions(joined, n) for n in (0, 1)], [["avc1"], ["mp4a"]])
                self.assert_pictures(joined, parts)
                self.assert_sound(joined, parts)
                whole = sum(runs.movie_duration(part) for part in parts)
                self.assertLessEqual(abs(runs.movie_duration(joined) - whole), F(1, 1000))
                if options == [MANUAL]:
                    for track in runs.tracks(joined).values():
                        edits = [(e.start, e.media) for e in track.edits or []]
                        self.assertIn(edits, ([], [(0, 0)]), "one edit shows all of the media")
                else:
                    known = {text for part in parts for text in runs.complaints(part)}
                    self.assertLessEqual(set(runs.complaints(joined)), known)
                self.assert_is_flattened_reference(joined, *options, *parts)

    def test_different_time_scales_and_settings_share_a_track_if_forced(self):
        a, b, c, d = self.by_12800, self.by_90000, self.by_15360, self.by_10007
        for parts, within in (
            ((a, b), 0), ((b, a), 0), ((a, c), 0), ((c, a), 0), ((b, c), 0), ((c, d), F(1, 15360)),
            ((d, c), F(1, 10007)), ((a, self.baseline), 0),
        ):  # fmt: skip
            with self.subTest([part.name for part in parts]):
                joined = self.join_whole("out.mov", SAME, *parts)
                self.assertEqual(kinds(joined), ["vide"])
                self.assertIn(len(descriptions(joined, 0)), {2} if self.baseline in parts else {1, 2})
                self.assert_pictures(joined, parts, within=within)
                self.assertEqual(runs.movie_duration(joined), len(parts))
                self.assert_is_flattened_reference(joined, SAME, *parts)
                if self.baseline not in parts:
                    self.assertEqual(kinds(self.join_whole("out.mov", *parts)), ["vide"] * 2)

    def test_sound_does_not_drift(self):
        # 100 004 samples are a length that no common movie time scale can state exactly.
        source = noise(1, 44100, 100_004 / 44100 + 1e-9)
        part = make_clip(self.folder / "a.mov", *source, *PCM)
        joined = self.join_whole("out.mov", MANUAL, *[part] * 50)
        self.assertIsNone(runs.tracks(joined)[1].edits, "the whole media needs no edit list")
        self.assertLessEqual(abs(runs.movie_duration(joined) - F(50 * 100_004, 44100)), F(1, 1200))
        self.assertEqual(len(sound(joined)), 50 * 100_004)
        # 44100 samples end inside an AAC packet. ffmpeg plays that packet to its end and the next
        # clip by its time stamps, so the time stamps show where each clip starts.
        coding = ("-c:a", "aac", "-aac_pns", "0")
        part = make_clip(self.folder / "second.m4a", *noise(10, 44100), *coding)
        own = frames(part, "a:0")
        found = {f.time: f.hash for f in frames(self.join_whole("out.mov", *[part] * 20), "a:0")}
        for number in range(20):
            for time, content in own[min(number, 1) : -1]:
                self.assertEqual(found.get(round(number + time, 6)), content, (number, time))
        self.assertLessEqual(len(found), 20 * len(own))

    def test_a_clip_without_sound_leaves_a_gap_in_the_sound(self):
        silent = make_clip(self.folder / "silent.mp4", "-i", self.two, "-an", "-c", "copy")
        parts = [self.one, silent, self.three]
        joined = self.join_whole("out.mov", *parts)
        self.assert_pictures(joined, parts)
        found, clip = sound(joined), 48 * PACKET
        self.assertEqual(len(found), 3 * clip)
        self.assertTrue(found[:clip] == sound(self.one))
        # The gap ends with the packet that the decoder needs for the next one.
        self.assertFalse(any(found[clip + PACKET : 2 * clip - PACKET]), "the gap is not silent")
        self.assertLess(max(map(abs, found[2 * clip - PACKET : 2 * clip])), 4000)
        self.assertTrue(found[2 * clip :] == sound(self.three))

    def test_a_reference_movie_finds_its_media_after_a_move(self):
        home, other = self.folder / "home", self.folder / "other"
        (home / "media").mkdir(parents=True)
        parts = [home / "media" / name for name in ("1.mp4", "2.mp4")]
        for part, source in zip(parts, (self.one, self.two)):
            runs.shutil.copy(source, part)
        second_name = home / "second name.mp4"
        second_name.hardlink_to(parts[0])
        whole = self.join_whole("whole.mov", *parts).read_bytes()
        first = self.join(home / "first.mov", parts[0])
        reference = self.join(home / "movie.mov", first, parts[1])
        first.unlink()  # a reference to a reference movie is one to the media
        linked = self.join(home / "linked.mov", second_name, *parts)
        for track in runs.tracks(linked).values():  # two names of one file are one reference
            table = child(track.content, "mdia", "minf", "dinf", "dref")
            self.assertEqual(int.from_bytes(table[4:8], "big"), 2)

        def assert_flattens(movie):
            self.assertTrue(self.join_whole("flat.mov", movie).read_bytes() == whole)

        assert_flattens(reference)
        home.rename(other)  # all of it
        assert_flattens(other / "movie.mov")
        other.rename(home)
        reference.rename(self.folder / "alone.mov")  # only the movie
        assert_flattens(self.folder / "alone.mov")
        parts[1].rename(self.folder / "elsewhere")
        done = self.run_in_folder("clipjoin", "alone.mov", "-q", *WHOLE)
        self.assertEqual(done.status, 0)
        self.assertIn("alone.mov does not exist. ", done.err)
        # With -noresolve the movie opens, and it plays when the missing file is back.
        again = self.join("again.mov", "alone.mov", options=["-noresolve"])
        (self.folder / "elsewhere").rename(parts[1])
        assert_flattens(again)
        for folder in (self.folder, home, home / "media"):
            reference = self.join(folder / "ffmpeg.mov", parts[0])
            for stream in ("v:0", "a:0"):
                found = frames(reference, stream, "-enable_drefs", "1")
                self.assert_same(found, frames(parts[0], stream), stream)


if __name__ == "__main__":
    runs.main()
