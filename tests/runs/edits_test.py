#!/usr/bin/env python3
"""Edits of one movie: applies the options to real files and compares the results with computed edit
lists."""

import collections
import fractions
import unittest

import runs

F = fractions.Fraction

# A part of a movie, in seconds of the movie and of its media; an empty part has no media.
Stretch = collections.namedtuple("Stretch", "start end media rate")

FILES = """
    timecode/frame_debugger_1h.mov gpmf/max-heromode.mp4 pcm-sound/sowt-with-video.mov
    apple-device/vertical_video_from_iphone.mov edit-lists/midroll-5s.mp4 edit-lists/example1.mp4
    edit-lists/bbb_800x640_768kbps_30fps_avc_2b_firstpts_10_sec.mp4 phone-3gp/test.3gp
    edit-lists/edit_list_positive_shift.mp4 chapters/7abc46ad_chapters_QT.m4v
    video-codecs/foreman-hevc-384.mp4 classic-mov/sample_640x360.mov tags/has-tags.m4a
""".split()


def movie_scale(path):
    return runs.time_scale(runs.child(runs.movie_header(path), "mvhd"))


def stretches(path):
    """What each track shows, by track number."""
    found = {}
    for number, track in runs.tracks(path).items():
        found[number] = []
        samples = runs.samples_by_track(path).get(number)
        if not track.edits and samples and len(samples) > 1 and not any(p.duration for p in samples[:-1]):
            continue  # samples of duration 0
        edits = track.edits or [runs.Edit(F(0), track.duration, 0, F(1))]
        found[number] = [
            Stretch(e.start, e.start + e.duration, F(e.media, track.scale) if e.media >= 0 else None,
                    e.rate if e.media >= 0 else None)
            for e in edits
        ]  # fmt: skip
    return found


def trimmed(track):
    """The track without empty space at its end."""
    return track[:-1] if track and track[-1].media is None else track


def end_of(movie):
    return max((track[-1].end for track in movie.values() if track), default=F(0))


def cut(movie, start, end):
    """The movie without [start, end)."""

    def part(stretch, low, high, shift):
        low, high = max(low, stretch.start), min(high, stretch.end)
        if low >= high:
            return []
        media = stretch.media
        if media is not None:
            media += (low - stretch.start) * stretch.rate
        return [Stretch(low - shift, high - shift, media, stretch.rate)]

    return {
        number: trimmed(
            [p for s in track for p in part(s, 0, start, 0) + part(s, end, s.end, end - start)]
        )
        for number, track in movie.items()
    }


def scaled(movie, factor):
    by_track = factor if callable(factor) else lambda track: factor
    return {
        number: track and [Stretch(s.start * by_track(track), s.end * by_track(track), s.media,
                         s.rate and s.rate / by_track(track)) for s in track]
        for number, track in movie.items()
    }  # fmt: skip


def whole(path, number):
    """The samples of a track. The length of the last one comes from the media, because ffprobe
    guesses it."""
    samples = sorted(
        (s for s in runs.samples_by_track(path).get(number, []) if s.pts is not None),
        key=lambda sample: sample.pts,
    )
    if samples and samples[-1].pts < (end := runs.tracks(path)[number].media_end):
        samples[-1] = samples[-1]._replace(duration=end - samples[-1].pts)
    return samples


def presented(track, samples, scale, margin):
    """(time, hash) of the samples of which more than `margin` seconds of media are shown."""
    found = []
    for stretch in track:
        if stretch.media is None:
            continue
        low, high = stretch.media, stretch.media + (stretch.end - stretch.start) * stretch.rate
        for sample in samples:
            start, end = F(sample.pts, scale), F(sample.pts + (sample.duration or 0), scale)
            if min(high, end) - max(low, start) > margin:
                at = stretch.start + (max(low, start) - low) / stretch.rate
                found.append((at, sample.data_hash))
    return sorted(found, key=lambda shown: shown[0])


@runs.needs_corpus
@runs.has_tools("ffprobe", "ffmpeg")
class EditsTest(runs.RunTest):
    def check(self, source, expected, options, copied=False):
        """Applies `options` to the source, by reference and, if `copied`, self-contained. Compares
        each result with `expected`."""
        for form in ([], ["-self-contained"])[: 1 + copied]:
            output = self.folder / "out.mov"
            output.unlink(missing_ok=True)  # a movie of no duration would not replace it
            done = self.run_in_folder("cliptune", source, *options, *form, "-q", "-o", output)
            self.assertEqual((done.status, done.err), (0, ""))
            if not form:  # the media is in another file
                self.compare_edits(output, expected, options)
                continue
            # A self-contained file has new media times, so compare what the edits show.
            made = stretches(output)
            for number, track in expected.items():
                if number in self.raw_sound(source):
                    continue
                scale = runs.tracks(source)[number].scale
                margin = F(3, 1000) + max((s.rate or 0 for s in track), default=0) * F(3, 600)
                shown = presented(made[number], whole(output, number), scale, margin)
                wanted = presented(track, whole(source, number), scale, margin)
                self.assert_same([h for _, h in shown], [h for _, h in wanted], f"{options} {number}")
                for (found, _), (at, _) in zip(shown, wanted):
                    self.assertAlmostEqual(float(found), float(at), delta=0.006)
            seconds = float(runs.description(output)["format"]["duration"])
            self.assertAlmostEqual(seconds, float(end_of(expected)), delta=0.06)

    def raw_sound(self, source):
        """The numbers of the sound tracks that a reader may split into packets of any size."""
        return {
            int(stream["id"], 16)
            for stream in runs.description(source)["streams"]
            if stream.get("codec_name", "").startswith("pcm")
        }

    def compare_edits(self, output, expected, options):
        made = stretches(output)
        self.assertEqual(made.keys(), expected.keys())
        for number, track in expected.items():
            if not track:
                continue
            long = [s for s in track if s.end - s.start > F(1, 50)]
            found = [s for s in made[number] if s.end - s.start > F(1, 50)]
            self.assertEqual(len(found), len(long), f"{options}, edits of track {number}")
            for one, other in zip(found, long):
                for a, b in zip(one, other):
                    if (a is None) != (b is None):
                        self.fail(f"{options}, track {number}: {one} where {other} was expected")
                    if a is not None:
                        self.assertAlmostEqual(float(a), float(b), delta=0.004, msg=str(options))

    def for_each_file(self, work):
        """Calls work(path, what the movie shows, its length in seconds, a function that rounds
        seconds to movie units)."""
        for name in FILES:
            source = runs.MEDIA / name
            scale = movie_scale(source)
            with self.subTest(name):
                movie = stretches(source)
                work(source, movie, end_of(movie), lambda seconds: F(round(F(seconds) * scale), scale))

    def test_trims_have_the_computed_result(self):
        def work(source, movie, end, units):
            self.check(source, cut(movie, 0, units("0.3")), ["-startAt", "0.3"], copied=True)
            self.check(source, cut(movie, units("0.4"), end), ["-trimTo", "0.4"])
            self.check(source, cut(movie, end - units("0.2"), end), ["-trimBy", "0.2"])
            inner = cut(cut(movie, 0, units("0.1")), units("0.3"), end)
            self.check(source, inner, ["-trimTo", "0.3", "-startAt", "0.1"], copied=True)
            shortest = min(track[-1].end if track else 0 for track in movie.values())
            self.check(source, cut(movie, shortest or end, end), ["-trimToShortestTrack"])

        self.for_each_file(work)

    def test_scaling_shows_the_same_slower_or_faster(self):
        def work(source, movie, end, units):
            self.check(source, scaled(movie, F(2)), ["-rate", "1/2"], copied=True)
            self.check(source, scaled(movie, units(end / 2) / end), ["-rate", "2"])
            self.check(source, scaled(movie, F(7) / end), ["-scaleMovieTo", "7"])
            each = scaled(movie, lambda track: F(7) / track[-1].end)
            self.check(source, each, ["-scaleTo", "7"])
            longest = scaled(movie, lambda track: end / track[-1].end)
            self.check(source, longest, ["-scaleToLongestTrack"])

        self.for_each_file(work)

    def test_a_new_time_scale_shows_the_same(self):
        def work(source, movie, *_):
            self.check(source, movie, ["-timescale", "90000"])
            self.check(source, cut(movie, 0, F(1, 4)), ["-timescale", "6000", "-startAt", "0.25"])

        self.for_each_file(work)

    def test_without_edit_lists_all_media_is_shown_once(self):
        def work(source, movie, *_):
            for option in ("-remove-edit-list", "-remove-output-edit-list"):
                done = self.run_in_folder("cliptune", source, option, "-q", "-o", "out.mov")
                self.assertEqual((done.status, done.err), (0, ""))
                made = stretches(self.folder / "out.mov")
                self.assertEqual(movie.keys(), made.keys())
                for number, track in made.items():
                    samples = runs.samples_by_track(source).get(number)
                    if not samples or not movie[number]:
                        continue  # ffprobe does not list it, or all its samples have duration 0
                    length = F(sum(p.duration or 0 for p in samples), runs.tracks(source)[number].scale)
                    self.assertEqual([(s.start, s.media, s.rate) for s in track], [(0, 0, 1)])
                    # ffprobe guesses the length of the last sample.
                    self.assertAlmostEqual(float(track[0].end), float(length), delta=0.3)

        self.for_each_file(work)

    def test_lengths_come_from_other_tracks_and_movies(self):
        source, other = runs.MEDIA / FILES[0], runs.MEDIA / "classic-mov/sample_640x360.mov"
        whole, seconds = runs.movie_duration(source), runs.movie_duration(other)
        for options, length in (
            (["-trimToLengthOfMovie", runs.MEDIA / "edit-lists/example1.mp4"],
             runs.movie_duration(runs.MEDIA / "edit-lists/example1.mp4")),
            (["-trimToLengthOfMovie", other], whole),  # longer than this movie
            (["-trimToLengthOf", "Sound Track", "-trimTo", "2"], F(2)),
            (["-trimTo", "2", "-trimToLengthOf", "Sound Track"], whole),
            (["-scaleToLengthOfMovie", other], seconds),
            (["-scaleMovieToLengthOfMovie", other], seconds),
        ):  # fmt: skip
            done = self.run_in_folder("cliptune", source, *options, "-q", "-o", "out.mov")
            self.assertEqual((done.status, done.err), (0, ""))
            made = runs.movie_duration(self.folder / "out.mov")
            self.assertAlmostEqual(float(made), float(length), delta=0.5 / movie_scale(source) + 1e-9)

    def test_frames_of_a_cut_are_those_of_the_source(self):
        for name in ("video-codecs/foreman-hevc-384.mp4", "timecode/frame_debugger_1h.mov",
                     "gpmf/max-heromode.mp4", "pro-codecs/xdcam-hd-1080i60.mov"):  # fmt: skip
            with self.subTest(name):
                source = runs.MEDIA / name
                done = self.run_in_folder(
                    "cliptune", source, "-startAt", "0.25", "-trimTo", "0.5", "-self-contained",
                    "-q", "-o", "out.mov",
                )  # fmt: skip
                self.assertEqual((done.status, done.err), (0, ""))
                whole = [f for f in runs.frames(source) if 0.25 <= f.time < 0.75]
                part = [f for f in runs.frames(self.folder / "out.mov") if f.time >= 0]
                self.assertGreater(len(whole), 5)
                # A frame that is cut at either end may be included or not.
                hashes, wanted = [f.hash for f in part], [f.hash for f in whole]
                self.assertIn(wanted, [hashes, hashes[1:], hashes[:-1], hashes[1:-1]])
                self.assertEqual(runs.complaints(self.folder / "out.mov"), [])

    def test_a_timecode_starts_later_in_its_sample(self):
        self.run_in_folder(
            "cliptune", runs.MEDIA / FILES[0], "-startAt", "2", "-self-contained", "-q", "-o", "o.mov"
        )
        (number,) = (n for n, t in runs.tracks(self.folder / "o.mov").items() if t.kind == "tmcd")
        track = stretches(self.folder / "o.mov")[number]
        self.assertEqual([(s.start, s.media) for s in track], [(0, 2)])

    def test_rotation_and_scale_are_what_players_see(self):
        source = runs.MEDIA / FILES[0]
        for options, rotation in (
            (["-rotate", "90"], -90),
            (["-rotate", "270", "-sscale", "1/2"], 90),
            (["-rotate", "90", "-rotate", "90"], -180),
        ):
            done = self.run_in_folder("cliptune", source, *options, "-q", "-self-contained", "-o", "o.mov")
            self.assertEqual((done.status, done.err), (0, ""))
            (video,) = (s for s in runs.description(self.folder / "o.mov")["streams"]
                        if s["codec_type"] == "video")  # fmt: skip
            self.assertEqual(video["side_data_list"][0]["rotation"] % 360, rotation % 360)
        if runs.shutil.which("mediainfo"):
            out, _ = runs.read_by("mediainfo", "--Inform=Video;%Rotation%", self.folder / "o.mov")
            self.assertEqual(float(out), 180)
        # -resetmmatrix resets the matrix of the movie, not those of its tracks.
        self.run_in_folder("cliptune", "o.mov", "-mrotate", "45", "-q", "-o", "p.mov")
        self.run_in_folder("cliptune", "p.mov", "-resetmmatrix", "-q", "-o", "q.mov")
        matrices = [
            runs.child(runs.movie_header(self.folder / name), "mvhd")[36:72] for name in ("o.mov", "p.mov", "q.mov")
        ]
        self.assertEqual(matrices[0], matrices[2])
        self.assertNotEqual(matrices[0], matrices[1])


@runs.has_tools("ffprobe", "ffmpeg")
class ReorderedPictures(runs.RunTest):
    """Pictures that are shown in another order than they are decoded in."""

    ENCODERS = {
        "h264.mov": "-c:v libx264 -x264-params open-gop=1:keyint=12:min-keyint=12:bframes=3:scenecut=0",
        "hevc.mp4": "-c:v libx265 -x265-params open-gop=1:keyint=12:min-keyint=12:bframes=3:log-level=0",
        "mpeg2.mov": "-c:v mpeg2video -g 12 -bf 2",
    }

    def test_a_cut_in_an_open_group_has_every_picture(self):
        for name, encoder in self.ENCODERS.items():
            source = runs.make_clip(self.folder / name, "-f", "lavfi", "-i",
                                    "testsrc2=s=160x120:r=25:d=2", *encoder.split())  # fmt: skip
            pictures = runs.frames(source)
            self.assertEqual(len(pictures), 50)
            for first in range(8, 40, 3):
                with self.subTest(name, first=first):
                    done = self.run_in_folder("cliptune", name, "-startAt", f"{first / 25:.2f}",
                                              "-trimTo", "0.2", "-self-contained", "-o", "out.mov")
                    self.assertEqual((done.status, done.err), (0, ""))
                    shown = [p.hash for p in runs.frames(self.folder / "out.mov") if p.time >= 0]
                    self.assertEqual(shown, [p.hash for p in pictures[first:first + 5]])

    def test_without_an_edit_list_every_picture_is_shown(self):
        for name, encoder in self.ENCODERS.items():
            source = runs.make_clip(self.folder / name, "-f", "lavfi", "-i",
                                    "testsrc2=s=160x120:r=25:d=2", *encoder.split())  # fmt: skip
            for option in ("-remove-edit-list", "-remove-output-edit-list"):
                for form in ([], ["-self-contained"], ["-self-contained", "-manual-join"]):
                    with self.subTest(name, option=option, form=form):
                        done = self.run_in_folder("clipjoin", name, option, *form, "-q", "-o", "out.mov")
                        self.assertEqual((done.status, done.err), (0, ""))
                        self.assertNotIn(b"elst", runs.movie_header(self.folder / "out.mov"))
                        # ffmpeg plays it as a player that knows no edits.
                        flat = self.join_whole("flat.mov", self.folder / "out.mov")
                        self.assertEqual([(p.time, p.hash) for p in runs.frames(flat)],
                                         [(p.time, p.hash) for p in runs.frames(source)])


if __name__ == "__main__":
    runs.main()
