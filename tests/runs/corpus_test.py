#!/usr/bin/env python3
"""Joins every movie of the collection with itself, cuts every movie down to its middle third, and
compares what is shown with what should be shown."""

import fractions
import json
import math
import re
import statistics

import runs
from edits_test import Stretch, cut, end_of, movie_scale, presented, stretches, whole
from round_trip_test import NOT_COPIED, NOT_OPENED, corpus, facts_by_exiftool

F = fractions.Fraction

# No edit can show telemetry of duration 0, so a join leaves out that of later movies.
WITHOUT_TIME = {("gpmf/max-heromode.mp4", 5)}

# What exiftool computes from the samples, and lists of times that a join turns into chapters.
OF_ALL_SAMPLES = ("VideoFrameRate", "PartialSyncSamples", "ChapterList")

# What mediainfo derives from the path and the layout of the file, not from the movie.
LAYOUT_FACTS = re.compile(
    r"@|^(Format_(Profile|Settings|Version|Compression)|CodecID(_Version|_Compatible|_Url)?|File"
    r"|IsStreamable|HeaderSize|DataSize|FooterSize|StreamSize|OverallBitRate|BitRate|Duration"
    r"|Source_|StreamOrder|Encoded_Date|Tagged_Date|Complete|InternetMediaType|extra|Interleave"
    r"|ID|UniqueID|FrameCount|FrameRate|Delay|Video_Delay|Movie_More|Chapters_Pos|MenuID|Type"
    # What it derives from the media, and depends on the brand and the place of the header.
    r"|Chroma|Channel|SamplingCount|SamplesPerFrame|BitDepth|Sampled_|Format_|Format$|ServiceKind"
    r"|Compression_Mode|.*Count$)"
)


def raw_sound(path):
    """The numbers of the sound tracks that a reader may split into packets of any size."""
    return {
        int(stream["id"], 16)
        for stream in runs.description(path)["streams"]
        if stream.get("codec_name", "").startswith("pcm_")
        or stream.get("codec_tag_string") in ("fpcm", "ipcm")
    }


def play(path):
    # Frames keep their times. ffmpeg guesses a frame rate, and it would complain about frames that
    # are closer together.
    out, err = runs.read_by(
        "ffmpeg", "-v", "error", "-i", path, "-fps_mode", "passthrough", "-enc_time_base", "-1",
        "-f", "null", "-",
    )  # fmt: skip
    lines = {line.partition("] ")[2] or line for line in err.replace(str(path), "").splitlines()}
    # Two frames have the same time if the last frame of a movie has duration 0.
    return {line for line in lines if "non monotonically increasing dts to muxer" not in line}


def facts_by_mediainfo(path):
    out, _ = runs.read_by("mediainfo", "--Output=JSON", path)
    tracks = json.loads(out or "{}").get("media", {}).get("track", [])
    return [
        (f"{track['@type']} {number} {name}", value)
        for number, track in enumerate(tracks)
        for name, value in track.items()
        if not LAYOUT_FACTS.search(name)
    ]


class Edited:
    """The outputs made from one movie, and what they should show."""

    def __init__(self, folder, name):
        self.name, self.source = name, runs.MEDIA / name
        self.folder = folder / name.replace("/", "-")
        self.folder.mkdir()
        whole_file = ("-q", "-self-contained", "-no-compressed-header", "-o")
        self.twice, self.middle, self.copy = (
            self.folder / f"{form}.mov" for form in ("twice", "middle", "copy")
        )
        plain = ("-no-convert-tags",)
        self.results = [
            runs.run("clipjoin", *plain, self.source, self.source, *whole_file, self.twice),
            runs.run("clipjoin", *plain, self.source, *whole_file, self.copy),
        ]
        # Other tests show that a plain copy shows what its source shows. Hint tracks refer to
        # samples by number and are left out.
        kinds, scale = runs.tracks(self.copy), movie_scale(self.copy)
        self.tracks = {n: t for n, t in stretches(self.copy).items() if kinds[n].kind != "hint"}
        self.end = end_of(self.tracks)
        third = F(round(self.end / 3 * scale), scale)
        self.inner = cut(cut(self.tracks, F(0), third), third, self.end)
        length = ("-startAt", f"{float(third):.9f}", "-trimTo", f"{float(third):.9f}")
        self.results.append(
            runs.run("cliptune", self.source, *length, *whole_file, self.middle)
        )

    def shown(self, path, number, track):
        """(time, hash) of everything that is shown for longer than a rounding error."""
        scale = runs.tracks(path)[number].scale
        margin = F(3, 1000) + max((s.rate or 0 for s in track), default=0) * F(3, 600)
        samples = whole(path, number)
        # ffprobe sometimes guesses durations; a sample cannot last beyond the start of the next
        # one.
        gaps = [after.pts - s.pts for s, after in zip(samples, samples[1:])] + [math.inf]
        usual = statistics.median_low(gaps)
        lasting = [
            s._replace(duration=min(max(s.duration or 0, usual if usual < math.inf else 0), gap))
            for s, gap in zip(samples, gaps)
        ]
        return runs.without_silence(presented(track, lasting, scale, margin))

    def shown_in_the_middle(self):
        return (self.shown(self.copy, n, track) for n, track in self.inner.items() if track)

    def twice_over(self, number):
        track = self.tracks[number]
        again = [Stretch(s.start + self.end, s.end + self.end, s.media, s.rate) for s in track]
        first = self.shown(self.copy, number, track)
        return first, self.shown(self.copy, number, again)


@runs.needs_corpus
@runs.has_tools("ffprobe", "ffmpeg", "mediainfo")
class EveryMovie(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        names = [n for n in corpus() if n not in NOT_OPENED and n not in NOT_COPIED]
        cls.movies = runs.in_parallel(lambda name: Edited(folder, name), names)

    def for_each(self, work):
        self.assertGreater(len(self.movies), 50)

        def fault(movie):
            try:
                work(movie)
            except AssertionError as error:
                return error

        for movie, found in zip(self.movies, runs.in_parallel(fault, self.movies)):
            with self.subTest(movie.name):
                if found:
                    raise found

    def for_each_track(self, work):
        def tracks(movie):
            raw = raw_sound(movie.copy)
            for number, track in movie.tracks.items():
                if number not in raw and track:
                    work(movie, number)

        self.for_each(tracks)

    def assert_shown(self, found, expected, track):
        what = f"track {track.number}"
        self.assert_same([h for _, h in found], [h for _, h in expected], what)
        for (at, _), (wanted, _) in zip(found, expected):
            # A cut is at a whole media unit.
            self.assertAlmostEqual(
                float(at), float(wanted), delta=max(0.006, 0.5 / track.scale), msg=what
            )

    def test_nothing_is_printed(self):
        self.for_each(lambda movie: self.assertEqual(set(movie.results), {runs.Result(0, "", "")}))

    def test_joined_with_itself_shows_everything_twice(self):
        def work(movie, number):
            if (movie.name, number) in WITHOUT_TIME:
                return
            made = stretches(movie.twice)
            first, second = movie.twice_over(number)
            found = movie.shown(movie.twice, number, made[number])
            if len(found) == len(first):  # media that cannot share a track has a separate track
                kind = runs.tracks(movie.copy)[number].kind
                found = min(
                    (found + movie.shown(movie.twice, other, made[other]) for other in made
                     if other not in movie.tracks and runs.tracks(movie.twice)[other].kind == kind),
                    key=lambda both: [h for _, h in both] != [h for _, h in first + second],
                    default=found,
                )  # fmt: skip
            # Frames after the end of a track are shown until the next part starts.
            between = len(found) - len(first) - len(second)
            self.assertIn(between, range(3))
            found = found[: len(first)] + found[len(first) + between :]
            self.assert_shown(found, first + second, runs.tracks(movie.copy)[number])

        self.for_each_track(work)

    def test_cut_in_the_middle_shows_the_middle(self):
        def work(movie, number):
            found = movie.shown(movie.middle, number, stretches(movie.middle)[number])
            wanted = movie.shown(movie.copy, number, movie.inner[number])
            self.assert_shown(found, wanted, runs.tracks(movie.copy)[number])

        self.for_each_track(work)

    def test_ffmpeg_finds_no_new_fault(self):
        def work(movie):
            for path in (movie.twice, movie.middle):
                if path == movie.middle and not any(movie.shown_in_the_middle()):
                    continue  # it is all a gap
                if found := play(path):
                    self.assertEqual(found - play(movie.source), set(), path.name)

        self.for_each(work)

    @runs.has_tools("exiftool")
    def test_a_join_keeps_the_metadata_of_the_first(self):
        movies = [m for m in self.movies if len(runs.tracks(m.twice)) == len(runs.tracks(m.copy))]
        self.assertGreater(len(movies), 50)
        facts = facts_by_exiftool([m.copy for m in movies] + [m.twice for m in movies])
        for movie in movies:
            with self.subTest(movie.name):
                before, after = facts[movie.copy], facts[movie.twice]
                changed = {
                    name: (before.get(name), after.get(name))
                    for name in before.keys() | after.keys()
                    if before.get(name) != after.get(name) and not name.endswith(OF_ALL_SAMPLES)
                }
                self.assertEqual(changed, {})

    def test_mediainfo_finds_the_same(self):
        def work(movie):
            before, after = facts_by_mediainfo(movie.source), facts_by_mediainfo(movie.copy)
            # mediainfo takes the handler name "soun" for a title.
            after, before = ([f for f in facts if f[1] != "soun"] for facts in (after, before))
            self.assertEqual(after, before)

        self.for_each(work)


if __name__ == "__main__":
    runs.main()
