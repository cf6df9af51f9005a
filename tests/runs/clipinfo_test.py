#!/usr/bin/env python3
"""clipinfo about hostile movies, and about every movie: its facts are those of ffprobe, a join of a
movie with itself shows the same, and only movies that are cut have a fault."""

import json
import os
import resource
import struct

import runs

MOVIES = [
    path
    for folder in (runs.ROOT / "tests" / "data", runs.MEDIA)
    for path in sorted(folder.rglob("*"))
    if path.suffix and path.parent.name != "finds" and path.stat().st_size < 20e6
]
# Movies of the collection that are not whole: their media were left out or cut.
NOT_WHOLE = {
    "adif_CBR88_8s.aac", "adts-sf-escape.aac", "fixture-adts-mpeg2.aac", "QuickTime.mov",
    "pentax_320x240.mov", "37.mp4", "QuickTime.m4a",
}  # fmt: skip
# Tags with the same text in every reader.
TAGS = {"title", "artist", "album", "album_artist", "comment", "genre", "composer", "copyright", "date",
        "description", "encoder", "make", "model", "com.apple.quicktime.make", "purl"}  # fmt: skip
SANITIZERS = b"__asan_init" in (runs.BIN / "clipinfo").read_bytes()
MANY = 0xFFFFFF00


def info(*arguments, **more):
    return runs.run("clipinfo", *map(os.fspath, arguments), **{"timeout": 300, **more})


def atom(kind, *parts):
    content = b"".join(parts)
    return struct.pack(">I4s", 8 + len(content), kind) + content


def u32(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


def track(number, samples, edits, references=b"", offsets=()):
    """A text track with `samples` samples of 2 bytes and 1 unit each in one chunk, and `edits`, each
    (duration, media time). `offsets` are those of the times at which samples are shown."""
    one = 0x10000
    table = atom(
        b"stbl",
        atom(b"stsd", u32(0, 1), atom(b"text", bytes(6), b"\0\1", bytes(43))),
        atom(b"stts", u32(0, 1, samples, 1)),
        atom(b"stsz", u32(0, 2, samples)),
        atom(b"stsc", u32(0, 1, 1, samples, 1)),
        atom(b"stco", u32(0, 1, 8)),
        atom(b"ctts", u32(1 << 24, len(offsets)), *[u32(1, at) for at in offsets]) if offsets else b"",
    )
    header = u32(15, 0, 0, number, *[0] * 6, one, 0, 0, 0, one, 0, 0, 0, 1 << 30, 0, 0)
    media = atom(b"mdhd", u32(0, 0, 0, 600, samples, 0)), atom(b"hdlr", u32(0), b"mhlrtext", bytes(13))
    files = atom(b"dinf", atom(b"dref", u32(0, 1), atom(b"alis", u32(1))))
    rows = [u32(*edit, one) for edit in edits]
    edited = atom(b"edts", atom(b"elst", u32(0, len(rows)), *rows))
    stored = atom(b"mdia", *media, atom(b"minf", files, table))
    return atom(b"trak", atom(b"tkhd", header), edited, references, stored)


def movie(*parts):
    header = u32(0, 0, 0, 600, 0, 0x10000, *[0] * 18, 9)
    return atom(b"mdat", bytes(64)) + atom(b"moov", atom(b"mvhd", header), *parts)


def limited():
    seconds, size = (80, resource.RLIM_INFINITY) if SANITIZERS else (20, 160 << 20)
    resource.setrlimit(resource.RLIMIT_AS, (size, size))
    resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))


class Hostile(runs.RunTest):
    def store(self, *parts):
        path = self.folder / "hostile.mov"
        path.write_bytes(movie(*parts))
        return path

    def test_too_many_chapters_take_little_time_and_memory(self):
        def chapters(of):
            return atom(b"tref", atom(b"chap", u32(of)))

        places = range(100_000)
        listed = atom(b"chpl", u32(1 << 24), b"\0", u32(200_000), bytes(9 * 200_000))
        disorder = track(1, len(places), [(5, i) for i in places], chapters(1),
                         [(1 << 31) + i for i in places])  # fmt: skip
        for name, *parts in (
            ("in one edit", track(1, 9, [(9, 0)], chapters(2)), track(2, MANY, [(MANY, 0)])),
            ("in 100,000 edits", track(1, 9, [(9, 0)], chapters(2)),
             track(2, MANY, [(40000, i) for i in places])),
            ("each edit can show any sample", disorder),
            ("in a list", track(1, 9, [(9, 0)]), atom(b"udta", listed)),
        ):  # fmt: skip
            with self.subTest(name):
                path = self.store(*parts)
                self.assertIn("too many", info(path, preexec_fn=limited).out)
                (told,) = json.loads(info("-json", path, preexec_fn=limited).out)
                self.assertNotIn("chapters", told)
        path = self.store(disorder)
        if not SANITIZERS:  # with them, this takes a minute
            compared = info("-same", path, "-from", path, preexec_fn=limited)
            self.assertEqual(compared.status, 1)
            self.assertIn("too great disorder", compared.err)

    def test_many_edits_take_little_memory(self):
        path = self.store(track(1, 900, [(1, i % 2 * 100) for i in range(300_000)]))
        (told,) = json.loads(info("-json", path, preexec_fn=limited).out)
        self.assertEqual(len(told["tracks"][0]["edits"]), 300_000)


class EveryMovie(runs.RunTest):
    def test_has_the_facts_and_tags_that_ffprobe_finds(self):
        told = [each for each in json.loads(info("-json", *MOVIES).out) if "error" not in each]
        runs.in_parallel(runs.description, [each["path"] for each in told])  # they are cached
        compared = tags = 0
        for each in told:
            description = runs.description(each["path"])
            texts = {tag.get("text") for tag in each["tags"]}
            for name, text in description.get("format", {}).get("tags", {}).items():
                if name in TAGS and each["kind"] != "AAC (ADTS)":  # these have tags outside the movie
                    tags += 1
                    self.assertIn(text, texts, (each["file"], name))
            for stream in description["streams"]:
                number = int(stream.get("id", "0"), 16)
                found = [track for track in each["tracks"] if track["id"] == number]
                # ffprobe counts only the samples of the first fragment, and cuts at edits.
                if len(found) != 1 or each["isFragmented"] or "nb_frames" not in stream:
                    continue
                with self.subTest(file=each["file"], track=number):
                    compared += 1
                    (track,) = found
                    self.assertEqual(track["samples"], int(stream["nb_frames"]))
                    language = stream.get("tags", {}).get("language", track["language"])
                    self.assertEqual(track["language"], language)
                    if "codedSize" in track:
                        size = {key: stream[key] for key in ("width", "height")}
                        self.assertEqual(track["codedSize"], size)
        self.assertGreater(compared, len(told))
        self.assertGreater(tags, len(told) / 3)

    def test_has_a_fault_only_if_it_is_cut(self):
        for path, entry in zip(MOVIES, json.loads(info("-check", "-json", *MOVIES).out), strict=True):
            is_cut = path.name in NOT_WHOLE or path.parent.name == "truncated"
            with self.subTest(str(path)):
                self.assertEqual(entry["status"] == "fault", is_cut, entry["findings"])

    def test_shows_the_same_if_it_is_joined_with_itself(self):
        """Files that are damaged are left out: they do not even show what they show themselves."""
        forms = {"reference": [], "whole": ["-self-contained"], "MPEG-4": ["-mp4"]}

        def faults(number):
            path, found = MOVIES[number], []
            if info("-same", path, "-from", path).status != 0:
                return None
            for name, form in forms.items():
                output = self.folder / f"{number} {name}.mov"
                made = runs.run("clipjoin", path, path, "-q", *form, "-o", output)
                if made.status == 0 and output.exists():  # not encrypted, and a codec of MPEG-4
                    done = info("-same", output, "-from", path, path)
                    found += [(path.name, name, done.out)] if done.status else []
                output.unlink(missing_ok=True)
            return found

        results = [found for found in runs.in_parallel(faults, range(len(MOVIES))) if found is not None]
        self.assertGreater(len(results), len(MOVIES) * 0.6)
        self.assertEqual([fault for found in results for fault in found], [])


if __name__ == "__main__":
    runs.main()
