#!/usr/bin/env python3
"""clipinfo -check: what it says of movies that are whole, cut off, changed and missing."""

import json
import os
import struct
import unittest

import runs

try:
    import jsonschema
except ImportError:
    jsonschema = None

CHAPTERS = """;FFMETADATA1
title=Book
[CHAPTER]
TIMEBASE=1/1
START=0
END=2
title=One
[CHAPTER]
TIMEBASE=1/1
START=2
END=4
title=Two
"""

# Changes of a movie with 100 pictures in its first track, sound in its second and chapters in its
# third: the type and the number of an atom, the place of a field in its content, its new value, and
# the finding for it. Fields have 32 bits if the value does not say otherwise.
CHANGES = {
    "too few durations": ("stts", 0, 8, 90, "fault", "trak[1]/mdia/minf/stbl/stts", "the track has 100"),
    "too many durations": ("stts", 0, 8, 110, "warning", "trak[1]/mdia/minf/stbl/stts", "for 110 samples"),
    "too few offsets": ("ctts", 0, 8, 0, "fault", "trak[1]/mdia/minf/stbl/ctts", "for 99 samples"),
    "too many offsets": ("ctts", 0, 8, 2, "warning", "trak[1]/mdia/minf/stbl/ctts", "for 101 samples"),
    "no order of sync samples": ("stss", 0, 8, 99, "fault", "trak[1]/mdia/minf/stbl/stss", "not in order"),
    "a sync sample too many": ("stss", 0, -4, 101, "warning", "trak[1]/mdia/minf/stbl/stss", "names 1 sample that the track does not have"),
    "a chunk without samples": ("stsc", 0, -8, 0, "fault", "trak[1]/mdia/minf/stbl/stsc", "no place in a file"),
    "a size too few": ("stsz", 0, 8, 99, "warning", "trak[1]/mdia/minf/stbl/stsc", "the track has 99"),
    "another description": ("stsd", 0, 22, b"\0\5", "warning", "trak[1]/mdia/minf/stbl/stsd", "data reference 5 of 1"),
    "a chunk in the header": ("stco", 0, 8, 64, "warning", "trak[1]/mdia/minf/stbl/stco", "no media data at the place of"),
    "a chunk after the end": ("stco", 0, 8, 1 << 30, "fault", "trak[1]/mdia/minf/stbl/stco", "the first at 0.000 s"),
    "another file": ("dref", 0, 16, 0, "fault", "trak[1]/mdia/minf/dinf/dref[1]", "no data for all of Video Track (4.000 s)"),
    "a long edit": ("elst", 0, 8, 9000, "fault", "trak[1]/edts/elst", "the last 5.000 s of edit 1 have no data"),
    "an edit a bit long": ("elst", 0, 8, 4300, "warning", "trak[1]/edts/elst", "the last 0.300 s of edit 1"),
    "an edit before the media": ("elst", 0, 12, 0xFFFFFF00, "fault", "trak[1]/edts/elst", "impossible time"),
    "a long media": ("mdhd", 1, 16, 44100 * 60, "warning", "trak[2]/mdia/mdhd", "the header states 60.000 s"),
    "a long track": ("tkhd", 1, 20, 7000, "warning", "trak[2]/tkhd", "the header states 7.000 s"),
    "a long movie": ("mvhd", 0, 16, 8000, "warning", "mvhd", "the header states 8.000 s"),
    "an id twice": ("tkhd", 1, 12, 1, "warning", "trak[2]/tkhd", "same id 1"),
    "lost chapters": ("chap", 0, 0, 9, "warning", "trak[1]/tref/chap", "the id 9, which is missing: the chapters are lost"),
    "late chapters": ("stts", 2, 12, 0, "warning", "trak[3]/mdia/minf/stbl/stts", "last no time"),
    "no order of chapters": ("chpl", 0, 9, struct.pack(">Q", 30_000_000), "warning", "udta/chpl", "chapter 2 starts before"),
    "a tag that is too long": ("data", 0, -0x100, 0x100, "warning", "udta/meta/ilst/\\xa9nam", "no whole atom"),
}  # fmt: skip

# Sound movies of the collection that are not whole: their media were left out or cut.
NOT_WHOLE = {
    "adts/adif_CBR88_8s.aac", "adts/adts-sf-escape.aac", "adts/fixture-adts-mpeg2.aac",
    "classic-mov/QuickTime.mov", "classic-mov/pentax_320x240.mov", "core-media-mp4/37.mp4",
    "tags/QuickTime.m4a",
}  # fmt: skip
# Those of the broken files whose tables are right: the fault is in a sample, a picture or a key.
RIGHT_TABLES = {"covr-junk.m4a", "sample_with_invalid_nalu.mp4", "cbcs_audio.mp4"}


def content_of(data, kind, number):
    """Where the content of the atom of that type starts and ends. Only types that occur nowhere
    else may be asked for."""
    at = 0
    for _ in range(number + 1):
        at = data.index(kind.encode(), at) + 4
    (size,) = struct.unpack_from(">I", data, at - 8)
    return at, at + size - 8


def changed(data, kind, number, place, value):
    data = bytearray(data)
    start, end = content_of(data, kind, number)
    if place == -0x100:  # the size of the atom itself
        start, place = start - 8, 0
    at = start + place if place >= 0 else end + place
    new = value if isinstance(value, bytes) else struct.pack(">I", value)
    data[at : at + len(new)] = new
    return bytes(data)


def read_json(text):
    """The answer of -check -json, checked against its schema."""
    answer = json.loads(text)
    if jsonschema:
        schema = json.loads((runs.ROOT / "clipinfo" / "check-schema.json").read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        jsonschema.Draft202012Validator(schema).validate(answer)
    return answer


@runs.has_tools("ffmpeg", "ffprobe")
class Check(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        notes = folder / "chapters.txt"
        notes.write_text(CHAPTERS)
        cls.clip = runs.make_clip(
            folder / "clip.mp4",
            "-f", "lavfi", "-i", "testsrc2=s=96x64:r=25:d=4", "-f", "lavfi", "-i", "sine=d=4",
            "-i", notes, "-map_metadata", "2",
            "-c:v", "libx264", "-bf", "2", "-g", "20", "-c:a", "aac", "-movflags", "+faststart",
        )  # fmt: skip

    def check(self, *files, status):
        """The findings as (severity, atom, text) for each file."""
        done = self.run_in_folder("clipinfo", "-check", "-json", *files)
        self.assertEqual((done.status, done.err), (status, ""), done.out)
        answer = read_json(done.out)
        self.assertEqual([entry["file"] for entry in answer], [str(file) for file in files])
        return [
            [(found["severity"], found.get("atom", ""), found["text"]) for found in entry["findings"]]
            for entry in answer
        ]

    def check_text(self, *files, status):
        done = self.run_in_folder("clipinfo", "-check", *files)
        self.assertEqual((done.status, done.err), (status, ""), done.out)
        return done.out.splitlines()

    def test_whole_movies_of_every_form(self):
        runs.make_clip(self.folder / "fragments.mp4", "-i", self.clip, "-map", "0:v", "-map", "0:a",
                       "-c", "copy", "-movflags", "+frag_keyframe+empty_moov")  # fmt: skip
        runs.make_clip(self.folder / "sound.aac", "-i", self.clip, "-c:a", "copy", "-vn")
        # Pictures in another order, 0.4 s late: two lengths of the media are right.
        runs.make_clip(self.folder / "slow.mp4", "-f", "lavfi", "-i", "testsrc2=s=96x64:r=5:d=4",
                       "-c:v", "libx264", "-bf", "2")  # fmt: skip
        self.join("reference.mov", self.clip, "fragments.mp4")
        self.join_whole("joined.mov", self.clip, "fragments.mp4")
        files = ["fragments.mp4", "slow.mp4", "sound.aac", "reference.mov", "joined.mov"]
        self.assertEqual(self.check_text(*files, status=0), [f"{file}: ok" for file in files])

    def lost_by(self, size):
        """What the first `size` bytes of the clip do not have, by ffprobe."""
        answer = runs.ffprobe(
            self.clip, "-ignore_editlist", "1", "-show_packets", "-show_streams",
            "-show_entries", "stream=index,time_base:packet=stream_index,pos,size,duration",
        )  # fmt: skip
        lost = []
        for stream, name in enumerate(["Video Track", "Sound Track"]):
            scale = int(answer["streams"][stream]["time_base"].split("/")[1])
            packets = [p for p in answer["packets"] if p["stream_index"] == stream]
            missing = [p for p in packets if int(p["pos"]) + int(p["size"]) > size]
            if missing:
                length = sum(int(p["duration"]) for p in missing) / scale
                lost.append(f"the last {length:.3f} s of {name}")
        return ", ".join(lost)

    def test_a_recording_that_was_cut_off(self):
        data = self.clip.read_bytes()
        packets = runs.ffprobe(self.clip, "-show_packets", "-show_entries", "packet=pos,size")
        ends = sorted(int(p["pos"]) + int(p["size"]) for p in packets["packets"] if "pos" in p)
        between = [len(data) - end for end in ends[-12:-4]]
        for cut in [1, 2000, 5000, 9000, *between]:
            (self.folder / "cut.mp4").write_bytes(data[:-cut])
            with self.subTest(cut=cut):
                (findings,) = self.check("cut.mp4", status=1)
                faults = [text for severity, _, text in findings if severity == "fault"]
                self.assertEqual(len(faults), 1)
                self.assertTrue(faults[0].endswith(f"of {len(data)} bytes)"), faults)
                expected = self.lost_by(len(data) - cut)
                self.assertTrue(expected)
                self.assertIn(f"no data for {expected}", faults[0])

    def test_fragments_and_sound_that_were_cut_off(self):
        plain = ("-i", self.clip, "-map", "0:v", "-c", "copy")
        whole = runs.make_clip(self.folder / "fragments.mp4", *plain,
                               "-movflags", "+frag_keyframe+empty_moov").read_bytes()  # fmt: skip
        fragments = [i for i in range(len(whole)) if whole[i : i + 4] == b"moof"]
        # Two fragments of 20 pictures are whole. The pictures start at 0.08 s.
        inside = {"in a header": fragments[2] + 20, "in data": fragments[3] - 100}
        for name, size in inside.items():
            (self.folder / "cut.mp4").write_bytes(whole[:size])
            with self.subTest(name):
                ((_, _, text),) = self.check("cut.mp4", status=1)[0]
                self.assertIn("cut off inside a fragment: from 1.680 s on", text)
        sound = runs.make_clip(self.folder / "sound.aac", "-i", self.clip, "-c:a", "copy", "-vn")
        sound.write_bytes(sound.read_bytes()[:-3])
        self.assertIn("cut off inside the frame", self.check("sound.aac", status=1)[0][0][2])
        (self.folder / "started.mp4").write_bytes(self.clip.read_bytes()[:20])
        unfinished = whole[: fragments[0] - 4].replace(b"moov", b"free") + b"\0\0\0\x08mdat"
        (self.folder / "unfinished.mp4").write_bytes(unfinished)
        for name, words in ("started.mp4", "it ends inside"), ("unfinished.mp4", "not finished"):
            self.assertIn(words, self.check(name, status=1)[0][0][2])

    def test_files_that_a_reference_movie_needs(self):
        one, two = self.folder / "one.mp4", self.folder / "two.mp4"
        for path in one, two:
            path.write_bytes(self.clip.read_bytes())
        self.join("movie.mov", one, two)
        os.utime(two, (4e9, 4e9))
        ((severity, atom, text),) = self.check("movie.mov", status=0)[0]
        self.assertEqual((severity, atom), ("warning", "/moov/trak[1]/mdia/minf/dinf/dref[2]"))
        self.assertIn(f"{two} was changed", text)
        two.write_bytes(self.clip.read_bytes()[:-5000])
        ((severity, atom, text),) = self.check("movie.mov", status=1)[0]
        self.assertIn(f"{two} was cut off", text)
        self.assertIn(self.lost_by(two.stat().st_size).partition(",")[0], text)
        two.unlink()
        ((severity, atom, text),) = self.check("movie.mov", status=1)[0]
        self.assertEqual((severity, atom), ("fault", "/moov/trak[1]/mdia/minf/dinf/dref[2]"))
        self.assertIn("no data for the last 4.000 s of Video Track", text)
        self.assertIn(f"{two} is not there", text)

    def test_each_contradiction_is_named(self):
        data = self.clip.read_bytes()
        self.assertEqual(self.check(self.clip, status=0), [[]])
        for name, (kind, number, place, value, severity, atom, words) in CHANGES.items():
            (self.folder / "changed.mp4").write_bytes(changed(data, kind, number, place, value))
            with self.subTest(name):
                (findings,) = self.check("changed.mp4", status=int(severity == "fault"))
                fitting = [f for f in findings if f[:2] == (severity, f"/moov/{atom}")]
                self.assertTrue(any(words in text for _, _, text in fitting), findings)

    def test_a_batch_goes_on_and_shows_every_name(self):
        odd = self.folder / os.fsdecode(b"odd\x1b\xff.mp4")
        odd.write_bytes(self.clip.read_bytes()[:3000])
        names = [odd.name, "none.mov", self.clip]
        lines = self.check_text(*names, status=1)
        self.assertEqual(len(lines), 3, lines)
        self.assertTrue(lines[0].startswith("odd\\x1b"), lines)
        self.assertIn(": fault: the file ends inside 'moov'", lines[0])
        self.assertTrue(lines[1].startswith("none.mov: fault: "), lines)
        self.assertEqual(lines[2], f"{self.clip}: ok")
        done = self.run_in_folder("clipinfo", "-check", "-json", *names)
        self.assertEqual([e["status"] for e in read_json(done.out)], ["fault", "fault", "ok"])
        done.out.encode()  # valid UTF-8 has no surrogates here


class Collection(runs.RunTest):
    def statuses(self, folder):
        """The kind of the worst finding, and the lines, by the path in the folder."""
        files = sorted(path for path in folder.rglob("*") if path.is_file())
        done = self.run_in_folder("clipinfo", "-check", "-json", *files)
        self.assertIn(done.status, (0, 1), done.err)
        answer = read_json(done.out)
        self.assertEqual(len(answer), len(files))
        return {path.relative_to(folder): entry for path, entry in zip(files, answer)}

    @runs.needs_corpus
    def test_real_movies_have_a_fault_only_if_they_are_cut(self):
        for path, entry in self.statuses(runs.MEDIA).items():
            is_cut = str(path) in NOT_WHOLE or path.parts[0] == "truncated"
            with self.subTest(str(path)):
                self.assertEqual(entry["status"] == "fault", is_cut, entry["findings"])

    @runs.needs_corpus
    def test_broken_files_say_what_is_wrong(self):
        for path, entry in self.statuses(runs.CORPUS / "malformed").items():
            with self.subTest(str(path)):
                self.assertEqual(entry["status"] == "ok", path.name in RIGHT_TABLES)


if __name__ == "__main__":
    runs.main()
