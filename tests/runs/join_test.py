#!/usr/bin/env python3
"""Joined and stacked movies play the pictures and the sound of their parts, each at its time."""

import array
import fractions
import re
import struct

import runs
from runs import RunTest, child, frames, make_clip, sound

F = fractions.Fraction
RATE, PACKET, UNIT = 48000, 1024, F(1, 600)
PCM = ("-c:a", "pcm_s16le")
MANUAL, SAME = "-manual-join", "-force-same-tracks"
WHOLE = ("-self-contained", "-o", "out.mov")
KEY, KEY_ID = "00112233445566778899aabbccddeeff", "0123456789abcdef0123456789abcdef"


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
    track = [data for kind, data in runs.atoms(runs.movie_header(path)) if kind == "trak"][number]
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
        cls.tall = aac("tall.mp4", 6, size="64x96")
        cls.ntsc = aac("ntsc.mp4", 7, rate="30000/1001")
        # One second each.
        cls.pcm, cls.more = (clip(folder / f"pcm {n}.mov", n) for n in (8, 9))
        cls.plain = clip(folder / "plain.mov", 10, "-bf", "0")
        scale = "-video_track_timescale"
        cls.by_90000 = clip(folder / "90000.mov", 11, scale, "90000", codec=None)
        cls.by_12800 = clip(folder / "12800.mov", 12, scale, "12800", codec=None)
        cls.by_15360 = clip(folder / "15360.mov", 13, scale, "15360", codec=None, rate="30")
        cls.by_10007 = clip(folder / "10007.mov", 14, scale, "10007", codec=None, rate="30")
        baseline = ("-profile:v", "baseline", "-bf", "0")
        cls.baseline = clip(folder / "baseline.mov", 15, *baseline, codec=None)

    def assert_complains_no_more(self, joined, parts):
        known = {text for part in set(parts) for text in runs.complaints(part)}
        self.assertLessEqual(set(runs.complaints(joined)), known)

    def assert_pictures(self, joined, parts, number=1, within=F(1, 1000)):
        """The first video track plays the pictures of the parts without gap or overlap. The times
        do not come from ffmpeg, because it assumes that all edits reorder pictures alike."""
        self.assert_same(hashes(joined), [h for part in parts for h in hashes(part)], "pictures")
        expected, start = [], 0
        for part in parts:
            expected += [(start + time, content) for time, content in runs.shown(part, 1)]
            start += runs.movie_duration(part)
        found = runs.shown(joined, number)
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

    def test_every_picture_and_every_sound_is_played_at_its_time(self):
        copy = self.join_whole("copy.mov", self.three)
        pair = self.join_whole("pair.mp4", self.one, self.two)
        plainly = ["-no-fast-start", "-no-compressed-header"]
        one, pcm, more, plain = self.one, self.pcm, self.more, self.plain
        for parts, options in (
            ([one, self.two, self.three], []),
            (([one, self.two, self.three] * 7)[:20], []),
            ([one, one], plainly),
            ([copy, one], []),
            ([one, copy], []),
            # ffmpeg writes "unspecified" in one format and "undetermined" in the other.
            ([one, self.quicktime], []),
            ([self.other_scale, one], []),
            ([one, self.other_scale, self.two], []),
            ([pair, self.three], []),
            ([pcm, more, pcm], []),
            ([pcm], [MANUAL]),
            ([pcm, more], [MANUAL]),
            ([plain, pcm, plain, more], [MANUAL]),
        ):
            with self.subTest(parts=[part.name for part in parts], options=options):
                joined = self.join_whole("out.mov", *options, *parts)
                self.assertEqual(kinds(joined), ["vide", "soun"])
                self.assert_pictures(joined, parts)
                self.assert_sound(joined, parts)
                if options != [MANUAL]:
                    self.assert_complains_no_more(joined, parts)
                whole = sum(runs.movie_duration(part) for part in parts)
                self.assertLessEqual(abs(runs.movie_duration(joined) - whole), F(1, 1000))
                if options == [MANUAL]:
                    for track in runs.tracks(joined).values():
                        edits = [(e.start, e.media) for e in track.edits or []]
                        self.assertIn(edits, ([], [(0, 0)]), "one edit shows all of the media")
                reference = self.join("refers.mov", *options, *parts)
                self.assertLess(reference.stat().st_size, joined.stat().st_size)
                form = [option for option in options if option != MANUAL]
                flat = self.join_whole("flat.mov", *form, reference)
                self.assertTrue(flat.read_bytes() == joined.read_bytes(), "the reference movie")

    def test_different_time_scales_and_settings_share_a_track_if_forced(self):
        a, b, c, d = self.by_12800, self.by_90000, self.by_15360, self.by_10007
        tall = clip(self.folder / "tall.mov", 1, size="64x96", codec=None)
        for parts, formats, within in (
            ((a, b), 1, 0), ((b, a), 1, 0), ((a, c), 1, 0), ((c, a), 1, 0), ((b, c), 1, 0),
            ((c, d), 1, F(1, 15360)), ((d, c), 1, F(1, 10007)), ((a, self.baseline), 2, 0),
            ((a, tall), 2, 0),
        ):  # fmt: skip
            with self.subTest([part.name for part in parts]):
                joined = self.join_whole("out.mov", SAME, *parts)
                self.assertEqual(kinds(joined), ["vide"])
                self.assertLessEqual(len(descriptions(joined, 0)), 2)
                self.assertGreaterEqual(len(descriptions(joined, 0)), formats)
                if tall in parts:  # ffmpeg scales what it decodes
                    own = [content for part in parts for _, content in runs.shown(part, 1)]
                    self.assert_same([content for _, content in runs.shown(joined, 1)], own)
                    continue
                self.assert_pictures(joined, parts, within=within)
                self.assertEqual(runs.movie_duration(joined), len(parts))
                reference = self.join("refers.mov", SAME, *parts)
                flat = self.join_whole("flat.mov", reference)
                self.assertTrue(flat.read_bytes() == joined.read_bytes(), "the reference movie")
                if formats == 1:
                    self.assertEqual(kinds(self.join_whole("out.mov", *parts)), ["vide"] * 2)

    def test_clips_of_one_encoder_share_a_description_whatever_their_bit_rates(self):
        parts = [self.one, self.two, self.three]
        self.assertEqual(len({runs.movie_header(p).partition(b"btrt")[2][:12] for p in parts}), 3)
        for options in ([], [MANUAL], [SAME]):
            joined = self.join_whole("out.mov", *options, *parts)
            self.assertEqual([descriptions(joined, n) for n in (0, 1)], [["avc1"], ["mp4a"]])
        joined = self.join_whole("out.mov", MANUAL, self.pcm, self.plain)
        self.assertEqual(descriptions(joined, 0), ["avc1", "avc1"])

    def test_what_fits_no_track_gets_a_track_that_starts_later(self):
        language = ("-c", "copy", "-metadata:s", "language=fra")
        french = make_clip(self.folder / "french.mp4", "-i", self.two, *language)
        for parts, options, tracks in (
            ([self.one, self.tall], [], ["vide", "soun", "vide"]),
            ([self.one, self.ntsc], [], ["vide", "soun", "vide"]),
            ([self.one, french], [], ["vide", "soun", "vide", "soun"]),
            ([self.plain, self.pcm, self.more], ["-unique-tracks"], ["vide", "soun"] * 3),
        ):
            with self.subTest([part.name for part in parts]):
                joined = self.join_whole("out.mov", *options, *parts)
                self.assertEqual(kinds(joined), tracks)
                start = 0
                for number, part in enumerate(parts):
                    later = [(round(time + start, 3), content) for time, content in frames(part)]
                    found = [(round(time, 3), h) for time, h in frames(joined, f"v:{number}")]
                    self.assert_same(found, later, part.name)
                    if tracks.count("soun") > 1:
                        self.assertTrue(sound(joined, f"a:{number}") == sound(part), part.name)
                    start += float(runs.movie_duration(part))
                if tracks.count("soun") == 1:
                    self.assert_sound(joined, parts)
                self.assert_complains_no_more(joined, parts)

    def test_a_manual_join_reports_different_time_scales(self):
        movies = [self.pcm, self.by_90000, self.more, self.by_90000]
        self.join_whole("quiet.mov", MANUAL, *movies)
        done = self.run_in_folder("clipjoin", MANUAL, *movies, "-self-contained", "-o", "out.mov")
        # Each is tried with the first video track. The second then fits the track of the first.
        self.assertEqual(done, runs.Result(0, "", "Different media time scales\n" * 2))
        self.assertEqual(kinds(self.folder / "out.mov"), ["vide", "soun", "vide"])
        self.assertEqual(hashes(self.folder / "out.mov", "v:1"), hashes(self.by_90000) * 2)
        joined = self.join_whole("out.mov", MANUAL, SAME, self.pcm)
        self.assertEqual([e.media for e in runs.tracks(joined)[1].edits], [1024], "of the source")

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

    def test_sound_of_other_rates_and_two_tracks_of_sound(self):
        one = make_clip(self.folder / "1.mov", *noise(1), *PCM)
        slow = make_clip(self.folder / "slow.mov", *noise(2, 44100), *PCM)
        two = (*noise(3), *noise(4), "-map", "0", "-map", "1")
        both = make_clip(self.folder / "2.mov", *two, *PCM)
        joined = self.join_whole("out.mov", SAME, one, slow, one)
        first, second = runs.tracks(joined).values()
        self.assertEqual((first.scale, second.scale), (48000, 44100))
        silence = array.array("h", bytes(2 * RATE))
        self.assertTrue(sound(joined) == sound(one) + silence + sound(one))
        edits = [(e.start, e.duration, e.media) for e in second.edits]
        self.assertEqual(edits, [(0, 1, -1), (1, 1, 0)])
        # Of two tracks the second is joined first.
        joined = self.join_whole("out.mov", SAME, one, both)
        self.assertEqual(kinds(joined), ["soun"])
        self.assertTrue(sound(joined) == sound(one) + sound(both, "a:1") + sound(both, "a:0"))

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
        for kind, content in runs.atoms(runs.movie_header(linked)):
            if kind == "trak":  # two names of one file are one reference
                table = child(content, "mdia", "minf", "dinf", "dref")
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

    def test_encrypted_pictures_can_be_copied_but_not_edited(self):
        scheme = ("-encryption_scheme", "cenc-aes-ctr")
        scheme += ("-encryption_key", KEY, "-encryption_kid", KEY_ID)
        secret = clip(self.folder / "secret.mp4", 6, *scheme, codec=None)
        pictures = lambda path, key=KEY: frames(path, "v:0", "-decryption_key", key)  # noqa: E731
        own = pictures(secret)
        self.assertEqual(len(own), 25)
        self.assertNotEqual(own, pictures(secret, KEY[::-1]))
        for options in ([], ["-no-fast-start"]):
            self.assert_same(pictures(self.join_whole("copy.mov", *options, secret)), own)
        for options, calls in (
            ([], {"InsertMovieSegment"}),
            ([MANUAL], {"CopyMediaMutableSampleTable", "myAppendTrack"}),
        ):
            done = self.run_in_folder("clipjoin", *options, self.plain, secret, "-q", *WHOLE)
            said = re.findall(r"Error in (\w+) at line \d+ of clipjoin.cpp: -2053\n", done.err)
            self.assertEqual((done.status, set(said)), (1, calls))
            self.assertEqual(kinds(self.folder / "out.mov"), ["vide", "soun"])
            self.assertEqual(len(frames(self.folder / "out.mov")), 25)
        (self.folder / "out.mov").unlink()
        done = self.run_in_folder("cliptune", secret, "-trimTo", "0.5", "-q", *WHOLE)
        self.assertRegex(done.err, r"FlattenMovieDataToDataRef.*: -2053\n")
        self.assertFalse((self.folder / "out.mov").exists())


class Stacks(RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)

        def clip(name, source, *options):
            return make_clip(folder / name, "-f", "lavfi", "-i", source, *options)

        cls.long = clip("long.mov", "testsrc=s=64x48:r=10:d=4", "-c:v", "mpeg4")
        by_48000 = ("-c:v", "mpeg4", "-movie_timescale", "48000")
        cls.short = clip("short.mov", "testsrc2=s=32x32:r=10:d=1", *by_48000)
        named = ("-c:a", "alac", "-metadata", "title=Noise")
        cls.sound = make_clip(folder / "sound.mov", *noise(1, 8000, 2), *named)

    def stack(self, *arguments):
        done = self.run_in_folder("clipstak", *arguments, "-q", *WHOLE)
        self.assertEqual(done, runs.Result(0, "", ""))
        return self.folder / "out.mov"

    def test_each_movie_has_its_place_and_its_length(self):
        long, short, sound = self.long, self.short, self.sound
        place, half = "-placeAt", F(1, 2)
        # (arguments, for each track its source, its place and how much slower it is, the length)
        for arguments, expected, length in (
            ([long, short, place, "1.5"], [(long, 0, 1), (short, 3 * half, 1)], 4),
            ([long, short, place, "3.5", sound, place, "0:01"],
             [(long, 0, 1), (short, 7 * half, 1), (sound, 1, 1)], 9 * half),
            ([place, "2", long, short, short], [(long, 0, 1), (short, 2, 1), (short, 2, 1)], 4),
            ([sound, place, "5", "-use-settings"], [(sound, 0, 1)], 2),
            # -scale is one switch for the whole run, wherever it is on the command line.
            (["-scale", long, short], [(long, 0, 1), (short, 0, 4)], 4),
            ([long, short, place, "2", "-scale"], [(long, 0, 1), (short, 2, 2)], 4),
            ([long, "-scale", short, place, "3.5"], [(long, 0, 1), (short, 7 * half, half)], 4),
            (["-scale", long, "-noscale", short], [(long, 0, 1), (short, 0, 1)], 4),
            (["-scale", short, long], [(short, 0, 1), (long, 0, F(1, 4))], 1),
            ([long, sound, place, "1", "-scale"], [(long, 0, 1), (sound, 1, 3 * half)], 4),
            # A movie placed at or after the end cannot be stretched.
            ([long, short, place, "4", "-scale"], [(long, 0, 1), (short, 4, 1)], 5),
            ([long, short, place, "6", "-scale"], [(long, 0, 1), (short, 6, 1)], 7),
        ):  # fmt: skip
            with self.subTest([str(argument) for argument in arguments]):
                stacked = self.stack(*arguments)
                self.assertEqual(len(runs.tracks(stacked)), len(expected))
                self.assertEqual(runs.movie_duration(stacked), length)
                streams = runs.description(stacked)["streams"]
                for number, (source, start, factor) in enumerate(expected, 1):
                    wanted = [(start + time * factor, h) for time, h in runs.shown(source, 1)]
                    found = runs.shown(stacked, number)
                    self.assert_same([h for _, h in found], [h for _, h in wanted], number)
                    late = max(abs(at - time) for (at, _), (time, _) in zip(found, wanted))
                    self.assertLessEqual(late, UNIT)
                    at = float(streams[number - 1]["start_time"])
                    self.assertAlmostEqual(at, start, delta=0.03)

    def test_settings_come_from_the_first_movie_or_the_last_with_use_settings(self):
        def with_settings(name, rate, volume, shift):
            """A copy of a clip with a different movie header."""
            data = bytearray(self.short.read_bytes())
            at = data.index(b"mvhd") + 4
            struct.pack_into(">IH", data, at + 20, rate, volume)
            struct.pack_into(">I", data, at + 36 + 24, shift)  # tx
            (self.folder / name).write_bytes(data)
            return self.folder / name

        def scale_of(path):
            return runs.time_scale(child(runs.movie_header(path), "mvhd"))

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
            stacked = self.stack(*arguments)
            header = runs.movie_header(stacked)
            rate, volume = struct.unpack_from(">IH", child(header, "mvhd"), 20)
            (shift,) = struct.unpack_from(">I", child(header, "mvhd"), 36 + 24)
            titled = b"Noise" in child(header, "udta")
            self.assertEqual((rate, volume, shift, titled), expected)
            self.assertEqual(scale_of(stacked), scale_of(arguments[0]))


if __name__ == "__main__":
    runs.main()
