#!/usr/bin/env python3
"""Rewrites every movie of the collection: independent readers report the same as before."""

import json
import pathlib

import runs
from runs import MEDIA

# Complete files that cannot be opened, and the error number of each.
NOT_OPENED = {
    "truncated/fixture-moov.mov": -2002,
    "truncated/zero_empty_stsc.mp4": -2002,
}
# Files that become movies with ordinary tables. Readers report other facts about these, and other
# tests cover them.
BECOME_OTHERS = ("adts/", "fragmented/", "subtitles-metadata/sample.text.mp4")
# Tracks of MPEG-4 systems and hint tracks describe one file only and may be left out.
BOUND_TO_THEIR_FILE = {"hint", "odsm", "sdsm"}
# Files with missing media, or with tables that do not locate all of it. They can only be referred
# to.
NOT_COPIED = {
    "classic-mov/QuickTime.mov": -2011,
    "classic-mov/pentax_320x240.mov": -39,
    "core-media-mp4/37.mp4": -2011,
    "tags/QuickTime.m4a": -2011,
    "truncated/keyed.mp4": -39,
    "truncated/large_stbl_truncated_after_moov.m4b": -39,
    "truncated/sample_qt.mp4": -39,
}

# The facts that ffprobe reports for a stream and that a copy must not change.
STREAM_FACTS = (
    "codec_name", "codec_tag_string", "profile", "level", "width", "height", "pix_fmt",
    "sample_aspect_ratio", "sample_rate", "channels", "channel_layout", "start_time", "time_base",
    "disposition", "side_data_list",
)  # fmt: skip
# The tags that ffmpeg reads from the file and does not compute.
STREAM_TAGS = ("language", "handler_name", "creation_time", "rotate", "timecode", "title")

# What exiftool derives from the file, its path and its layout, not from the movie.
FILE_FACTS = {
    "SourceFile", "ExifToolVersion", "FileName", "Directory", "FileSize", "FileModifyDate",
    "FileAccessDate", "FileInodeChangeDate", "FilePermissions", "FileType", "FileTypeExtension",
    "MIMEType", "MajorBrand", "MinorVersion", "CompatibleBrands", "ModifyDate", "TrackModifyDate",
    "MediaModifyDate", "MediaDataSize", "MediaDataOffset", "AvgBitrate", "NextTrackID", "Warning",
    "Error", "Compression", "HandlerVendorID", "Duration", "TrackDuration", "MediaDuration", "Wide",
}  # fmt: skip


def corpus():
    names = sorted(str(path.relative_to(MEDIA)) for path in MEDIA.glob("*/*"))
    return [name for name in names if not name.startswith(BECOME_OTHERS)]


def refusal(name):
    """The message for a file that cannot be opened."""
    return f"Error {NOT_OPENED[name]} reading " if name in NOT_OPENED else None


class Written:
    """The outputs made of one movie."""

    def __init__(self, folder, name):
        self.name = name
        self.source = MEDIA / name
        self.folder = folder / name.replace("/", "-")
        self.folder.mkdir()
        whole = ("-q", "-self-contained", "-o")
        self.copy, self.plain, self.reference, self.flat = (
            self.folder / f"{form}.mov" for form in ("copy", "plain", "reference", "flat")
        )
        self.copied = runs.run("clipjoin", self.source, *whole, self.copy)
        # exiftool does not read compressed headers, and it would report converted tags twice.
        plainly = ("-no-compressed-header", "-no-convert-tags")
        runs.run("clipjoin", self.source, *plainly, *whole, self.plain)
        self.referred = runs.run("clipjoin", self.source, "-q", "-o", self.reference)
        self.flattened = None
        if self.reference.exists() and not refusal(name):
            self.flattened = runs.run("clipjoin", self.reference, *whole, self.flat)

    def read(self):
        """Runs the readers, so that the tests find the results in the cache."""
        if self.name not in NOT_COPIED:
            for path in (self.source, self.copy):
                runs.samples_by_track(path)
                runs.description(path)


def uncounted(name):
    """A handler name without its length byte, which only QuickTime has. Readers expect it by the
    brand."""
    return name[1:] if name and ord(name[0]) == len(name) - 1 else name


def facts_of_streams(path):
    """The facts that must not change, by track number."""
    found = {}
    for stream in runs.description(path)["streams"]:
        if not int(stream.get("id", "0"), 16):
            continue  # a cover
        facts = {name: stream.get(name) for name in STREAM_FACTS}
        tags = {k.lower(): v for k, v in stream.get("tags", {}).items()}
        tags["handler_name"] = uncounted(tags.get("handler_name", ""))
        found[int(stream["id"], 16)] = {**facts, **{name: tags.get(name) for name in STREAM_TAGS}}
    return found


def facts_by_exiftool(paths):
    out, _ = runs.read_by("exiftool", "-j", "-a", "-G1", "-api", "largefilesupport=1", *paths)
    facts = {}
    for movie in json.loads(out):
        for name in list(movie):
            # QuickTime stores the length of a handler name and the kind of the handler.
            if name.endswith(":HandlerClass"):
                del movie[name]
            elif name.endswith(":HandlerDescription"):
                movie[name] = uncounted(str(movie[name]))
        kept = {k: v for k, v in movie.items() if k.rpartition(":")[2] not in FILE_FACTS}
        facts[pathlib.Path(movie["SourceFile"])] = kept
    return facts


def is_subsequence(part, whole):
    rest = iter(whole)
    return all(item in rest for item in part)


@runs.needs_corpus
@runs.has_tools("ffprobe", "ffmpeg", "exiftool")
class EveryMovie(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.written = runs.in_parallel(lambda name: Written(folder, name), corpus())
        cls.copies = [w for w in cls.written if not refusal(w.name) and w.name not in NOT_COPIED]
        runs.in_parallel(Written.read, cls.copies)

    def assert_unchanged(self, before, after, what=""):
        changed = [
            f"{name}: {before.get(name)!r} -> {after.get(name)!r}"
            for name in sorted(before.keys() | after.keys())
            if before.get(name) != after.get(name)
        ]
        self.assertFalse(changed, "\n".join([what, *changed]))

    def test_movies_are_written_or_refused_for_the_expected_reason(self):
        self.assertGreater(len(self.copies), len(self.written) / 2)
        for movie in self.written:
            with self.subTest(movie.name):
                done = [d for d in (movie.copied, movie.referred, movie.flattened) if d is not None]
                self.assertEqual({(d.status, d.out) for d in done}, {(0, "")})
                if refusal(movie.name):
                    self.assertIn(refusal(movie.name), movie.copied.err)
                    self.assertEqual(movie.referred.err, movie.copied.err)
                    continue
                self.assertEqual(movie.referred.err, "")
                for copied in (movie.copied, movie.flattened):
                    if movie.name in NOT_COPIED:
                        self.assertRegex(
                            copied.err,
                            r"^Error in FlattenMovieDataToDataRef at line \d+ of utils\.cpp: "
                            rf"{NOT_COPIED[movie.name]}\n$",
                        )
                    else:
                        self.assertEqual(copied.err, "")
                self.assertEqual(movie.copy.exists(), movie.name not in NOT_COPIED)

    def test_a_reference_movie_flattens_to_what_a_copy_holds(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                self.assertTrue(movie.flat.read_bytes() == movie.copy.read_bytes())

    def test_samples_keep_their_bytes_and_their_order(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                before, after = (runs.samples_by_track(p) for p in (movie.source, movie.copy))
                for number, samples in after.items():
                    kept = [packet.data_hash for packet in samples]
                    whole = [packet.data_hash for packet in before[number]]
                    if self.is_uncompressed(movie, number):
                        # ffprobe splits it into packets at the chunks.
                        kept, whole = (self.bytes_of(p, number) for p in (movie.copy, movie.source))
                        self.assertIn(kept, whole, f"track {number}")
                    else:
                        self.assertTrue(is_subsequence(kept, whole), f"track {number}")

    def test_what_is_shown_stays_shown_at_its_time(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                kept = {n for n, t in runs.tracks(movie.source).items()
                        if t.kind not in BOUND_TO_THEIR_FILE}
                self.assertLessEqual(kept, runs.tracks(movie.copy).keys())
                for number in sorted(kept):
                    if self.is_uncompressed(movie, number):
                        continue
                    shown = runs.shown(movie.source, number)
                    self.assert_same(runs.shown(movie.copy, number), shown, f"track {number}")

    def test_edit_lists_and_durations_stay(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                before, after = runs.tracks(movie.source), runs.tracks(movie.copy)
                for number, track in after.items():
                    self.assertEqual(track.scale, before[number].scale)
                    self.assertEqual(track.language, before[number].language)
                    if before[number].edits:
                        spans = self.spans(before[number].edits)
                        self.assertEqual(self.spans(track.edits), spans, f"track {number}")

    @staticmethod
    def spans(edits):
        """The edits without their media times, which change if unused media is left out. Empty
        edits at the end are not included."""
        found = [(e.start, e.duration, e.media < 0, e.rate) for e in edits if e.duration]
        while found and found[-1][2]:
            found.pop()
        return found

    def test_references_between_tracks_stay(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                before, after = runs.tracks(movie.source), runs.tracks(movie.copy)
                for number, track in after.items():
                    kept = [
                        (kind, targets)
                        for kind, targets in before[number].references
                        if all(target in after for target in targets)
                    ]
                    self.assertEqual(track.references, kept, f"track {number}")

    def test_ffprobe_reports_the_same_for_every_stream(self):
        for movie in self.copies:
            with self.subTest(movie.name):
                before, after = facts_of_streams(movie.source), facts_of_streams(movie.copy)
                for number, facts in after.items():
                    self.assert_unchanged(before[number], facts, f"track {number}")

    def test_exiftool_finds_the_same_metadata(self):
        facts = facts_by_exiftool([w.source for w in self.copies] + [w.plain for w in self.copies])
        for movie in self.copies:
            kinds = {track.kind for track in runs.tracks(movie.source).values()}
            if kinds & (BOUND_TO_THEIR_FILE - {"hint"}):
                continue  # exiftool numbers the tracks that remain
            with self.subTest(movie.name):
                self.assert_unchanged(facts[movie.source], facts[movie.plain])

    @staticmethod
    def stream(path, number):
        streams = runs.description(path)["streams"]
        return next((s for s in streams if int(s.get("id", "0"), 16) == number), {})

    def is_uncompressed(self, movie, number):
        stream = self.stream(movie.source, number)
        codec, tag = stream.get("codec_name", ""), stream.get("codec_tag_string", "")
        return codec.startswith("pcm_") or tag in ("fpcm", "ipcm")

    def bytes_of(self, path, number):
        index = self.stream(path, number)["index"]
        out, _ = runs.read_by(
            "ffmpeg", "-v", "error", "-ignore_editlist", "1", "-i", path, "-map", f"0:{index}",
            "-c", "copy", "-f", "data", "-",
        )  # fmt: skip
        return out


if __name__ == "__main__":
    runs.main()
