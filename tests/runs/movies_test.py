#!/usr/bin/env python3
"""Copies and edits every movie: what an output shows is computed from what its source shows.

The movies are those of the project and, where there is one, a collection of real movies.
"""

import fractions
import json
import pathlib
import re
import struct

import runs

F = fractions.Fraction

# Files of the collection that cannot be opened, and those whose media is not all there, which can
# only be referred to.
NOT_OPENED = {"truncated/fixture-moov.mov": -2002, "truncated/zero_empty_stsc.mp4": -2002}
NOT_COPIED = {
    "classic-mov/QuickTime.mov": -2011, "classic-mov/pentax_320x240.mov": -39,
    "core-media-mp4/37.mp4": -2011, "tags/QuickTime.m4a": -2011, "truncated/keyed.mp4": -39,
    "truncated/large_stbl_truncated_after_moov.m4b": -39, "truncated/sample_qt.mp4": -39,
}  # fmt: skip
# Files that get ordinary tables. Readers report other facts about these.
BECOME_OTHERS = ("fragmented/", "subtitles-metadata/sample.text.mp4", "fragments.", "dash.")
# Tracks that describe one file only. A copy may lack them.
BOUND_TO_THEIR_FILE = {"hint", "odsm", "sdsm"}
# Encrypted media is only copied.
ENCRYPTED = {"fragmented/av1-clearkey-cbcs-video.mp4", "fragmented/cbcs.mp4"}
# No edit can show telemetry of duration 0, so a join leaves out that of later movies.
WITHOUT_TIME = {("gpmf/max-heromode.mp4", 5)}

# What exiftool derives from the file, its path and its layout, or computes from the samples, and
# lists of times that a join turns into chapters.
FILE_FACTS = re.compile(
    r"(SourceFile|ExifToolVersion|Directory|File\w+|MIMEType|MajorBrand|MinorVersion|Wide|Warning"
    r"|CompatibleBrands|(Track|Media)?ModifyDate|MediaData\w+|AvgBitrate|NextTrackID|Error"
    r"|Compression|HandlerVendorID|HandlerClass|(Track|Media)?Duration|VideoFrameRate"
    r"|PartialSyncSamples|ChapterList)$"
)

# exiftool does not read compressed headers.
WHOLE = ("-self-contained", "-no-compressed-header")

def end_of(*tracks):
    return max((track[-1].end for track in tracks if track), default=F(0))


def cut(movie, start, end):
    """The movie without [start, end)."""

    def part(stretch, low, high, shift):
        low, high = max(low, stretch.start), min(high, stretch.end)
        media = stretch.media
        if media is not None:
            media += (low - stretch.start) * stretch.rate
        return [runs.Stretch(low - shift, high - shift, media, stretch.rate)] if low < high else []

    found = {}
    for number, track in movie.items():
        parts = [part(s, 0, start, 0) + part(s, end, s.end, end - start) for s in track]
        found[number] = sum(parts, [])
        if found[number] and found[number][-1].media is None:
            found[number].pop()
    return found


def scaled(movie, factor):
    """The movie with each track slower by factor(track)."""

    def slower(stretch, by):
        start, end, media, rate = stretch
        return runs.Stretch(start * by, end * by, media, rate and rate / by)

    return {number: [slower(s, factor(t)) for s in t] for number, t in movie.items()}


class Movie:
    """A movie, its copy, and what each track of the copy shows."""

    def __init__(self, folder, source):
        self.source, self.is_own = source, source.parent == runs.DATA
        self.name = source.name if self.is_own else str(source.relative_to(runs.MEDIA))
        self.folder = folder / self.name.replace("/", "-")
        self.folder.mkdir()
        names = ("copy.mov", "reference.mov", "twice.mov")
        self.copy, self.reference, self.twice = (self.folder / name for name in names)
        self.results = [
            self.write("copy.mov", "clipjoin", source, *WHOLE),
            self.write("reference.mov", "clipjoin", source),
        ]
        if self.name not in NOT_OPENED:
            self.results.append(self.write("flat.mov", "clipjoin", self.reference, *WHOLE))
        self.is_copied = not {self.name} & (NOT_OPENED.keys() | NOT_COPIED.keys())
        if self.is_copied:
            self.joined = self.write("twice.mov", "clipjoin", source, source, *WHOLE)
            self.tracks = runs.stretches(self.copy)
            self.end = end_of(*self.tracks.values())
            self.scale = runs.time_scale(runs.child(runs.movie_header(self.copy), "mvhd"))
            self.raw = {n for n in self.tracks if self.is_uncompressed(n)}

    def write(self, name, program, *arguments):
        # exiftool reports converted tags twice.
        return runs.run(program, "-no-convert-tags", *arguments, "-q", "-o", self.folder / name)

    def is_uncompressed(self, number):
        """Whether ffprobe splits the track into packets of any size."""
        streams = runs.description(self.copy)["streams"]
        stream = next((s for s in streams if int(s.get("id", "0"), 16) == number), {})
        codec, tag = stream.get("codec_name", ""), stream.get("codec_tag_string", "")
        return codec.startswith("pcm_") or tag in ("fpcm", "ipcm")

    def edits(self):
        """(options, what the output shows) of each edit."""
        movie, end = self.tracks, self.end
        units = lambda seconds: F(round(F(seconds) * self.scale), self.scale)  # noqa: E731
        third = units(end / 3)
        inner = cut(cut(movie, F(0), third), third, end)
        yield ["-startAt", f"{float(third):.9f}", "-trimTo", f"{float(third):.9f}"], inner
        if not self.is_own:
            return
        lengths = [track.duration for track in runs.tracks(self.copy).values()]
        shortest, longest = min(lengths), max(lengths)
        yield ["-trimBy", "0.2"], cut(movie, end - units("0.2"), end)
        yield ["-trimToShortestTrack"], cut(movie, shortest, end)
        yield ["-rate", "1/2"], scaled(movie, lambda track: F(2))
        yield ["-rate", "2"], scaled(movie, lambda track: units(end / 2) / end)
        yield ["-scaleMovieTo", "7"], scaled(movie, lambda track: F(7) / end)
        yield ["-scaleTo", "7"], scaled(movie, lambda track: F(7) / track[-1].end)
        yield ["-scaleToLongestTrack"], scaled(movie, lambda track: longest / track[-1].end)
        yield ["-scaleToShortestTrack"], scaled(movie, lambda track: shortest / track[-1].end)
        yield ["-timescale", "90000"], movie
        yield ["-timescale", "6000", "-startAt", "0.25"], cut(movie, 0, F(1, 4))


DESCRIPTIONS = ("mdia", "minf", "stbl", "stsd")


def header_of(track):
    """The descriptions of the samples, and the fields of the track header that are not times: the
    flags, and everything from the layer to the size."""
    head, table = runs.child(track.content, "tkhd"), runs.child(track.content, *DESCRIPTIONS)
    (count,) = struct.unpack_from(">I", table, 4)
    return list(runs.atoms(table[8:]))[:count], head[1:4], head[-52:]


def uncounted(name):
    """A handler name without its length byte, which readers expect only if the brand is QuickTime's."""
    return name[1:] if name and ord(name[0]) == len(name) - 1 else name


def facts_by_exiftool(paths):
    out, _ = runs.read_by("exiftool", "-j", "-a", "-G1", "-api", "largefilesupport=1", *paths)
    return {
        pathlib.Path(movie["SourceFile"]): {
            name: uncounted(str(value)) if name.endswith(":HandlerDescription") else value
            for name, value in movie.items() if not FILE_FACTS.match(name.rpartition(":")[2])
        }
        for movie in json.loads(out)
    }  # fmt: skip


def is_subsequence(part, whole):
    rest = iter(whole)
    return all(item in rest for item in part)


def spans(edits):
    """The edits without their media times, which change if unused media is left out, and without
    empty edits at the end."""
    found = [(e.start, e.duration, e.media < 0, e.rate) for e in edits or [] if e.duration]
    while found and found[-1][2]:
        found.pop()
    return found


class EveryMovie(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.movies = runs.in_parallel(lambda source: Movie(folder, source), runs.MOVIES)
        cls.copied = [movie for movie in cls.movies if movie.is_copied]
        cls.edited = [movie for movie in cls.copied if movie.name not in ENCRYPTED]

    def for_each(self, movies, work):
        def fault(movie):
            try:
                work(movie)
            except AssertionError as error:
                return error

        self.assertGreater(len(movies), 10)
        for movie, found in zip(movies, runs.in_parallel(fault, movies)):
            with self.subTest(movie.name):
                if found:
                    raise found

    def assert_shown(self, path, number, found, expected, what=""):
        what = f"{what} track {number}"
        self.assert_same([h for _, h in found], [h for _, h in expected], what)
        # A cut is at a whole media unit.
        delta = max(0.006, 0.5 / runs.tracks(path)[number].scale)
        for (at, _), (wanted, _) in zip(found, expected):
            self.assertAlmostEqual(float(at), float(wanted), delta=delta, msg=what)

    def assert_proved(self, movie, path, times):
        proof = runs.run("clipinfo", "-same", path, "-from", *[movie.source] * times)
        self.assertEqual((proof.status, proof.err), (0, ""), proof.out)

    def test_movies_are_written_or_refused_for_the_expected_reason(self):
        def work(movie):
            self.assertEqual({(done.status, done.out) for done in movie.results}, {(0, "")})
            copied, referred, *flattened = (done.err for done in movie.results)
            if movie.name in NOT_OPENED:
                self.assertIn(f"Error {NOT_OPENED[movie.name]} reading ", copied)
                self.assertEqual((referred, flattened), (copied, []))
                return
            code = NOT_COPIED.get(movie.name)
            told = rf"Error in FlattenMovieDataToDataRef at line \d+ of utils\.cpp: {code}\n"
            for err in (copied, *flattened):
                self.assertRegex(err, f"^{told if code else ''}$")
            self.assertEqual(referred, "")
            self.assertEqual(movie.copy.exists(), not code)
            if not code:
                flat = movie.folder / "flat.mov"
                self.assertTrue(flat.read_bytes() == movie.copy.read_bytes(), "the reference")

        self.for_each(self.movies, work)

    def test_a_copy_is_the_same_to_every_reader(self):
        def work(movie):
            before, after = runs.tracks(movie.source), runs.tracks(movie.copy)
            samples, kept = (runs.samples_by_track(p) for p in (movie.source, movie.copy))
            bound = {n for n, track in before.items() if track.kind in BOUND_TO_THEIR_FILE}
            self.assertLessEqual(before.keys() - bound, after.keys())
            for number, track in after.items():
                source, what = before[number], f"track {number}"
                self.assertEqual((track.scale, track.language), (source.scale, source.language), what)
                if source.edits:
                    self.assertEqual(spans(track.edits), spans(source.edits), what)
                self.assertEqual(header_of(track), header_of(source), what)
                references = [r for r in source.references if all(n in after for n in r[1])]
                self.assertEqual(track.references, references, what)
                if number in movie.raw:
                    continue
                hashes = ([p.data_hash for p in side.get(number, [])] for side in (kept, samples))
                self.assertTrue(is_subsequence(*hashes), what)
                if number not in bound:
                    shown, found = (runs.presented(p, number) for p in (movie.source, movie.copy))
                    self.assertTrue(is_subsequence(shown, found), what)
                    # ffprobe finds other durations before samples that the copy leaves out.
                    self.assertLessEqual(len(found) - len(shown), 3, what)
            self.assert_proved(movie, movie.copy, 1)
            self.assert_proved(movie, movie.reference, 1)

        self.for_each([m for m in self.edited if not m.name.startswith(BECOME_OTHERS)], work)

    def test_exiftool_finds_the_same_in_copies_and_joins(self):
        movies = [m for m in self.edited if not m.name.startswith(BECOME_OTHERS)]
        facts = facts_by_exiftool([p for m in movies for p in (m.source, m.copy, m.twice)])
        for movie in movies:
            with self.subTest(movie.name):
                source, copy, joined = (facts[p] for p in (movie.source, movie.copy, movie.twice))
                kinds = {track.kind for track in runs.tracks(movie.source).values()}
                # exiftool numbers the tracks that remain.
                if source and not kinds & (BOUND_TO_THEIR_FILE - {"hint"}):
                    self.assertEqual(copy, source)
                if len(runs.tracks(movie.twice)) == len(runs.tracks(movie.copy)):
                    self.assertEqual(joined, copy)

    def test_joined_with_itself_it_shows_everything_twice(self):
        def work(movie):
            self.assertEqual(movie.joined, runs.Result(0, "", ""))
            path, made = movie.twice, runs.stretches(movie.twice)
            self.assert_proved(movie, path, 2)
            kinds = {number: track.kind for number, track in runs.tracks(path).items()}
            for number, track in movie.tracks.items():
                if number in movie.raw or (movie.name, number) in WITHOUT_TIME:
                    continue
                first = runs.presented(movie.copy, number, track)
                expected = first + [(at + movie.end, content) for at, content in first]
                found = runs.presented(path, number, made[number])
                if len(found) == len(first):  # media that cannot share a track has another one
                    new = [n for n in made.keys() - movie.tracks if kinds[n] == kinds[number]]
                    both = [found + runs.presented(path, n, made[n]) for n in new]
                    hashes = [h for _, h in expected]
                    found = next((f for f in both if [h for _, h in f] == hashes), found)
                # Frames after the end of a track are shown until the next part starts.
                between = len(found) - len(expected)
                self.assertIn(between, range(3))
                found = found[: len(first)] + found[len(first) + between :]
                self.assert_shown(path, number, found, expected)

        self.for_each(self.edited, work)

    def test_an_edit_shows_what_is_computed(self):
        def work(movie):
            for options, expected in movie.edits():
                done = movie.write("out.mov", "cliptune", movie.source, *options, *WHOLE)
                self.assertEqual(done, runs.Result(0, "", ""))
                outputs = [movie.folder / "out.mov"]
                if movie.is_own:
                    movie.write("refers.mov", "cliptune", movie.source, *options)
                    movie.write("again.mov", "clipjoin", movie.folder / "refers.mov", *WHOLE)
                    if (movie.folder / "again.mov").read_bytes() != outputs[0].read_bytes():
                        outputs.append(movie.folder / "again.mov")
                for out in outputs:
                    self.assert_edited(movie, out, expected, f"{options} {out.name}")

        self.for_each(self.edited, work)

    def assert_edited(self, movie, out, expected, what):
        made = runs.stretches(out)
        for number, track in expected.items():
            ends = end_of(made[number]), end_of(track)
            self.assertAlmostEqual(*map(float, ends), delta=0.06, msg=f"{what} {number}")
            if number not in movie.raw and track:
                shown = runs.presented(out, number, made[number])
                self.assert_shown(out, number, shown, runs.presented(movie.copy, number, track), what)


class Pictures(runs.RunTest):
    """Pictures that are shown in another order than they are decoded in, in three codecs."""

    NAMES = ("open_gop.mov", "hevc.mp4", "hinted.mp4")

    def test_a_cut_has_every_picture(self):
        for name in self.NAMES:
            pictures = runs.frames(runs.DATA / name)
            step = pictures[1].time
            for first in range(8, 40, 3):
                with self.subTest(name, first=first):
                    part = ("-startAt", f"{first * step:.6f}", "-trimTo", f"{5 * step:.6f}")
                    cut = self.join("out.mov", runs.DATA / name, options=[*part, *WHOLE])
                    shown = [p.hash for p in runs.frames(cut) if p.time >= 0]
                    self.assertEqual(shown, [p.hash for p in pictures[first : first + 5]])

    def test_without_an_edit_list_every_picture_is_shown(self):
        for name in self.NAMES:
            for option in ("-remove-edit-list", "-remove-output-edit-list"):
                for form in ([], ["-self-contained"], ["-self-contained", "-manual-join"]):
                    with self.subTest(name, option=option, form=form):
                        out = self.join("out.mov", runs.DATA / name, options=[option, *form])
                        self.assertNotIn(b"elst", runs.movie_header(out))
                        # ffmpeg plays it as a player that knows no edits.
                        flat = runs.frames(self.join_whole("flat.mov", out))
                        self.assert_same(flat, runs.frames(runs.DATA / name))


if __name__ == "__main__":
    runs.main()
