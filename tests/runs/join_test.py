#!/usr/bin/env python3
"""Joined movies play the video and sound of their parts, one after the other."""

import itertools

import runs
from runs import MEDIA, RunTest, complaints, frames, make_clip, sound

# A clip has 32 video frames of 32 ms, and 48 AAC frames of 1024 samples at 48 kHz. So sound and
# video end together, and no frame crosses the join.
SECONDS, RATE, PICTURES, STEP, PACKET = 1.024, 48000, 32, 0.032, 1024


def noise(seed, rate=RATE):
    return f"anoisesrc=r={rate}:seed={seed}:amplitude=0.5,atrim=end_sample={int(SECONDS * rate)}"


def picture(number, size="160x120", rate="125/4"):
    return f"testsrc2=s={size}:r={rate}:d={SECONDS},hue=h={70 * number}"


def clip(path, number, *options, size="160x120", rate="125/4", codec="aac"):
    """A clip with unique frames and noise. The encoder's noise substitution is off, because with it
    the same packet decodes differently after other packets."""
    codecs = {"aac": ["-c:a", "aac", "-aac_pns", "0", "-b:a", "96k"], "pcm": ["-c:a", "pcm_s16le"]}
    return make_clip(
        path, "-f", "lavfi", "-i", picture(number, size, rate), "-f", "lavfi", "-i", noise(number),
        "-c:v", "libx264", "-preset", "veryfast", "-threads", "1", "-bf", "2", "-g", "12",
        "-pix_fmt", "yuv420p", *codecs[codec], *options,
    )  # fmt: skip


def hashes(path, stream="v:0"):
    return [frame.hash for frame in frames(path, stream)]


def streams(path, kind):
    return [s for s in runs.description(path)["streams"] if s["codec_type"] == kind]


class JoinTest(RunTest):
    def assert_steps(self, found, step):
        times = [frame.time for frame in found]
        steps = {round(after - before, 6) for before, after in itertools.pairwise(times)}
        self.assertEqual(steps, {step})

    def assert_complains_no_more(self, joined, parts):
        self.assertLessEqual(
            set(complaints(joined)), {text for part in set(parts) for text in complaints(part)}
        )

    def assert_plays(self, joined, parts):
        """One video track and one sound track play the parts without gap or overlap."""
        self.assertEqual(len(streams(joined, "video")), 1)
        self.assertEqual(len(streams(joined, "audio")), 1)
        found = frames(joined)
        expected = [content for part in parts for content in hashes(part)]
        self.assert_same([frame.hash for frame in found], expected, "pictures")
        self.assert_steps(found, STEP)
        self.assert_sounds_like(joined, parts)
        self.assert_complains_no_more(joined, parts)

    def assert_sounds_like(self, joined, parts):
        found, at = sound(joined), 0
        for part in parts:
            own = sound(part)
            # The first packet after a join follows another packet than in its file, so the decoder
            # adds another overlap to it.
            start = 0 if at == 0 else PACKET
            self.assertTrue(found[at + start : at + len(own)] == own[start:], f"{part} differs")
            at += len(own)
        self.assertEqual(len(found), at)


@runs.has_tools("ffmpeg", "ffprobe")
class ClipsOfOneKind(JoinTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.clips = [clip(folder / f"clip {number}.mp4", number) for number in (1, 2, 3)]
        cls.one, cls.two, cls.three = cls.clips
        cls.quicktime = clip(folder / "quicktime.mov", 4)
        cls.other_scale = clip(folder / "other scale.mp4", 5, "-movie_timescale", "48000")
        cls.pcm = [clip(folder / f"pcm {number}.mov", number, codec="pcm") for number in (6, 7)]
        cls.tall = clip(folder / "tall.mp4", 8, size="120x160")
        cls.other_rate = clip(folder / "ntsc.mp4", 9, rate="30000/1001")

    def test_the_clips_differ_and_have_their_stated_length(self):
        for one, two in itertools.combinations([*self.clips, *self.pcm, self.quicktime], 2):
            self.assertNotEqual(hashes(one), hashes(two))
            self.assertTrue(sound(one) != sound(two))
        self.assertEqual({len(hashes(part)) for part in self.clips}, {PICTURES})
        self.assertEqual({len(sound(part)) for part in self.clips}, {int(SECONDS * RATE)})

    def test_two_three_or_twenty_clips_play_one_after_the_other(self):
        for parts in (self.clips[:2], self.clips, (self.clips * 7)[:20]):
            with self.subTest(clips=len(parts)):
                self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_a_movie_joined_with_itself_plays_twice(self):
        self.assert_plays(self.join_whole("out.mov", self.one, self.one), [self.one] * 2)

    def test_a_quicktime_file_and_an_mpeg4_file_join_in_either_order(self):
        quicktime = self.join_whole("quicktime.mov", self.three)
        for parts in ((quicktime, self.one), (self.one, quicktime)):
            self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_tracks_without_a_language_join_across_formats(self):
        # ffmpeg writes "unspecified" in one format and "undetermined" in the other.
        parts = [self.one, self.quicktime]
        self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_tracks_of_different_languages_stay_separate(self):
        french = self.folder / "french.mp4"
        runs.read_by("ffmpeg", "-v", "error", "-y", "-i", self.two, "-c", "copy",
                     "-metadata:s", "language=fra", french)
        joined = self.join_whole("out.mov", self.one, french)
        kinds = [track.kind for track in runs.tracks(joined).values()]
        self.assertEqual(kinds, ["vide", "soun"] * 2)
        self.assertEqual(hashes(joined, "v:1"), hashes(french))
        self.assertTrue(sound(joined, "a:1") == sound(french))

    def test_movies_of_different_time_scales_join(self):
        for parts in ((self.other_scale, self.one), (self.one, self.other_scale, self.two)):
            self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_uncompressed_sound_joins_exactly(self):
        parts = self.pcm + self.pcm[:1]
        self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_a_join_can_be_joined_again(self):
        pair = self.join_whole("pair.mov", self.one, self.two)
        parts = [pair, self.three]
        self.assert_plays(self.join_whole("out.mov", *parts), parts)

    def test_every_form_of_the_output_plays_alike(self):
        plain = self.join(
            "plain.mov", *self.clips,
            options=["-self-contained", "-no-fast-start", "-no-compressed-header"],
        )  # fmt: skip
        self.assert_plays(plain, self.clips)

    # If the video of a part fits no existing track, it gets a separate track, which starts with an
    # empty edit.
    def assert_second_picture_track(self, other):
        joined = self.join_whole("out.mov", self.one, other)
        first, second = streams(joined, "video")
        self.assertEqual(len(streams(joined, "audio")), 1)
        size = ("width", "height")
        (own,) = streams(other, "video")
        self.assertEqual([second[name] for name in size], [own[name] for name in size])
        self.assertEqual(hashes(joined, "v:0"), hashes(self.one))
        later = [(round(time + SECONDS, 4), content) for time, content in frames(other)]
        found = [(round(time, 4), content) for time, content in frames(joined, "v:1")]
        self.assert_same(found, later)
        self.assert_sounds_like(joined, [self.one, other])
        self.assert_complains_no_more(joined, [self.one, other])

    def test_pictures_of_another_size_get_a_track_that_starts_later(self):
        self.assert_second_picture_track(self.tall)

    def test_pictures_of_another_media_time_scale_get_a_track_that_starts_later(self):
        self.assert_second_picture_track(self.other_rate)

    def test_a_clip_without_sound_leaves_a_gap_in_the_sound(self):
        silent = make_clip(self.folder / "silent.mp4", "-i", self.two, "-an", "-c", "copy")
        joined = self.join_whole("out.mov", self.one, silent, self.three)
        self.assert_same(hashes(joined), hashes(self.one) + hashes(silent) + hashes(self.three))
        found, clip = sound(joined), int(SECONDS * RATE)
        self.assertEqual(len(found), 3 * clip)
        self.assertTrue(found[:clip] == sound(self.one))
        # The gap ends with the packet that the decoder needs for the next one.
        self.assertFalse(any(found[clip + PACKET : 2 * clip - PACKET]), "the gap is not silent")
        self.assertLess(max(map(abs, found[2 * clip - PACKET : 2 * clip])), 4000)
        self.assertTrue(found[2 * clip :] == sound(self.three))

    def test_sound_does_not_drift_if_its_frames_cross_the_joins(self):
        # 44100 samples end inside an AAC frame. ffmpeg plays that frame to its end and the next
        # clip by its time stamps, so the time stamps show where each clip starts.
        part = make_clip(
            self.folder / "second.m4a", "-f", "lavfi", "-i", noise(10, 44100).split(",")[0],
            "-t", "1", "-c:a", "aac", "-aac_pns", "0",
        )  # fmt: skip
        own = frames(part, "a:0")
        joined = self.join_whole("out.mov", *[part] * 20)
        found = {frame.time: frame.hash for frame in frames(joined, "a:0")}
        for number in range(20):
            # The first frame after a join follows another frame than in its file.
            for time, content in own[min(number, 1) : -1]:
                self.assertEqual(found.get(round(number + time, 6)), content, (number, time))
        self.assertLessEqual(len(found), 20 * len(own))


@runs.has_tools("ffmpeg", "ffprobe")
class ReferenceMovies(JoinTest):
    def setUp(self):
        super().setUp()
        self.home = self.folder / "home"
        (self.home / "media").mkdir(parents=True)
        self.parts = [clip(self.home / "media" / f"part {n}.mp4", n) for n in (1, 2)]
        self.whole = self.join_whole("whole.mov", *self.parts).read_bytes()

    def assert_flattens_to_the_whole(self, reference):
        flat = self.join_whole("flat.mov", reference)
        self.assertTrue(flat.read_bytes() == self.whole, "differs from a self-contained join")
        flat.unlink()

    def test_a_reference_movie_is_small_and_flattens_to_the_self_contained_join(self):
        reference = self.join(self.home / "movie.mov", *self.parts)
        self.assertLess(reference.stat().st_size, sum(p.stat().st_size for p in self.parts) / 4)
        self.assert_flattens_to_the_whole(reference)

    def test_a_reference_movie_finds_its_media_after_a_move(self):
        reference = self.join(self.home / "movie.mov", *self.parts)
        moved = self.folder / "elsewhere" / "deeper"
        moved.parent.mkdir()
        self.home.rename(moved)
        self.assert_flattens_to_the_whole(moved / "movie.mov")
        # Move everything back, and then move only the movie.
        moved.rename(self.home)
        reference.rename(moved.parent / "alone.mov")
        self.assert_flattens_to_the_whole(moved.parent / "alone.mov")

    def test_a_reference_movie_of_a_reference_movie_refers_to_the_media(self):
        first = self.join(self.home / "first.mov", self.parts[0])
        second = self.join("second.mov", first, self.parts[1])
        first.unlink()
        self.assert_flattens_to_the_whole(second)

    def test_two_names_of_one_file_are_one_reference(self):
        other = self.home / "another name.mp4"
        other.hardlink_to(self.parts[0])
        reference = self.join(self.home / "movie.mov", self.parts[0], other, self.parts[1])
        for kind, content in runs.atoms(runs.movie_header(reference)):
            if kind == "trak":
                list_of_files = runs.child(content, "mdia", "minf", "dinf", "dref")
                self.assertEqual(int.from_bytes(list_of_files[4:8], "big"), 2)
        twice = self.join_whole("twice.mov", self.parts[0], self.parts[0], self.parts[1])
        flat = self.join_whole("flat.mov", reference)
        self.assertEqual(flat.read_bytes(), twice.read_bytes())

    def test_without_its_media_a_reference_movie_does_not_open(self):
        reference = self.join(self.home / "movie.mov", *self.parts)
        whole = self.join_whole("whole.mov", reference)
        elsewhere = self.parts[1].rename(self.folder / "elsewhere")
        done = self.run_in_folder("clipjoin", reference, "-q", "-self-contained", "-o", "flat.mov")
        self.assertEqual(done.status, 0)
        self.assertIn(f"{reference} does not exist. ", done.err)
        # With -noresolve the movie opens, and it plays when the missing file is back.
        again = self.join("again.mov", reference, options=["-noresolve"])
        elsewhere.rename(self.parts[1])
        self.assertEqual(self.join_whole("flat.mov", again).read_bytes(), whole.read_bytes())

    def test_ffmpeg_plays_a_reference_movie_of_one_source(self):
        part = self.parts[0]
        for folder in (self.folder, self.home, self.home / "media"):
            reference = self.join(folder / "movie.mov", part)
            for stream in ("v:0", "a:0"):
                found = frames(reference, stream, "-enable_drefs", "1")
                self.assert_same(found, frames(part, stream), stream)


@runs.has_tools("ffmpeg", "ffprobe")
@runs.needs_corpus
class RealMovies(JoinTest):
    """The sound and video of real movies rarely end together. The next part starts when the longer
    one has ended."""

    def assert_joins(self, *names, kinds=("vide", "soun"), quietly=True):
        parts = [MEDIA / name for name in names]
        joined = self.join_whole("out.mov", *parts)
        for kind in kinds:
            with self.subTest(kind=kind):
                expected, start = [], 0
                for part in parts:
                    own = self.shown(part, kind)
                    expected += [(start + time, content) for time, content in own]
                    start += runs.movie_duration(part)
                found = self.shown(joined, kind)
                self.assert_same([h for _, h in found], [h for _, h in expected], kind)
                for (at, _), (wanted, _) in zip(found, expected):
                    self.assertAlmostEqual(at, wanted, delta=0.002)
        self.assertEqual(runs.movie_duration(joined), start)
        if quietly:
            self.assert_complains_no_more(joined, parts)
        return joined, parts

    def shown(self, path, kind):
        (number,) = [track.number for track in runs.tracks(path).values() if track.kind == kind]
        return runs.without_silence(runs.shown(path, number))

    def assert_plays_pictures_of(self, joined, parts):
        self.assert_same(hashes(joined), [h for part in parts for h in hashes(part)], "pictures")

    def test_screen_recordings(self):
        names = [f"join-stack/seq_h264_{number}.mp4" for number in (1, 2, 3)]
        self.assert_plays_pictures_of(*self.assert_joins(*names[:2]))
        self.assert_joins(*names)

    def test_rendered_clips_with_time_code(self):
        names = ("timecode/frame_debugger_0h.mov", "timecode/frame_debugger_1h.mov")
        self.assert_plays_pictures_of(*self.assert_joins(*names, kinds=("vide", "soun", "tmcd")))

    def test_a_phone_movie_with_itself(self):
        self.assert_joins(*["apple-device/ios9.mov"] * 2)

    def test_uncompressed_sound_with_itself(self):
        joined, parts = self.assert_joins(*["pcm-sound/sowt-with-video.mov"] * 2, kinds=["vide"])
        self.assert_same(sound(joined), sound(parts[0]) * 2, "sound")

    def test_pictures_that_start_inside_their_media(self):
        self.assert_joins(*["video-codecs/count_video.mp4"] * 2, kinds=["vide"])

    def test_edits_that_reach_past_their_media(self):
        # The video ends before the sound, so there is a gap between its two edits. ffmpeg does not
        # support such gaps and complains about the times that it gives the frames around it.
        self.assert_joins(*["edit-lists/example1.mp4"] * 2, quietly=False)


if __name__ == "__main__":
    runs.main()
