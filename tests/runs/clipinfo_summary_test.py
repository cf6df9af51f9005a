#!/usr/bin/env python3
"""What clipinfo says about movies: the summary for people and the JSON for programs. ffprobe is asked
about the same files."""

import base64
import json
import os
import re
import resource
import struct
import subprocess

import runs

try:
    import jsonschema
except ImportError:
    jsonschema = None

PICTURE = ("-f", "lavfi", "-i", "testsrc2=size=128x96:rate=25:duration=3")
TONE = ("-f", "lavfi", "-i", "sine=frequency=400:sample_rate=44100:duration=3")
# Tags with the same text in every reader.
TAGS = {"title", "artist", "album", "album_artist", "comment", "genre", "composer", "copyright", "date",
        "description", "encoder", "make", "model", "com.apple.quicktime.make", "purl"}  # fmt: skip
SANITIZERS = b"__asan_init" in (runs.BIN / "clipinfo").read_bytes()
LANGUAGES = ("-metadata:s:v", "language=ger", "-metadata:s:a", "language=fra")
MPEG4 = ("-c:v", "mpeg4", "-c:a", "aac")


def validator(definition):
    """Checks one element of the output against that definition of the schema."""
    schema = json.loads((runs.ROOT / "clipinfo" / "schema.json").read_text())
    jsonschema.Draft202012Validator.check_schema(schema)
    schema |= {"type": "object", "$ref": f"#/$defs/{definition}"}
    del schema["items"]
    return jsonschema.Draft202012Validator(schema)


def atom(kind, *parts):
    content = b"".join(parts)
    return struct.pack(">I4s", 8 + len(content), kind) + content


def u32(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


def track(number, samples, edits, references=b"", offsets=()):
    """A text track with `samples` samples of 2 bytes and 1 unit each in one chunk, and `edits`, each
    (duration, media time). `offsets` are those of the times at which samples are shown."""
    one = 0x10000
    entry = atom(b"text", bytes(6), b"\0\1", bytes(43))
    table = atom(
        b"stbl",
        atom(b"stsd", u32(0, 1), entry),
        atom(b"stts", u32(0, 1, samples, 1)),
        atom(b"stsz", u32(0, 2, samples)),
        atom(b"stsc", u32(0, 1, 1, samples, 1)),
        atom(b"stco", u32(0, 1, 8)),
        atom(b"ctts", u32(1 << 24, len(offsets)), *[u32(1, each) for each in offsets]) if offsets else b"",
    )
    return atom(
        b"trak",
        atom(b"tkhd", u32(15, 0, 0, number, 0, 0), bytes(16), u32(*[one, 0, 0, 0, one, 0, 0, 0, 1 << 30]), u32(0, 0)),
        atom(b"edts", atom(b"elst", u32(0, len(edits)), *[u32(*edit, one) for edit in edits])),
        references,
        atom(
            b"mdia",
            atom(b"mdhd", u32(0, 0, 0, 600, samples, 0)),
            atom(b"hdlr", u32(0), b"mhlrtext", bytes(13)),
            atom(b"minf", atom(b"dinf", atom(b"dref", u32(0, 1), atom(b"alis", u32(1)))), table),
        ),
    )  # fmt: skip


def movie(*tracks):
    header = u32(0, 0, 0, 600, 0, 0x10000) + bytes(12) + bytes(36) + bytes(24) + u32(9)
    return atom(b"mdat", bytes(64)) + atom(b"moov", atom(b"mvhd", header), *tracks)


class Summary(runs.RunTest):
    def info(self, *arguments, status=0, **more):
        done = self.run_in_folder("clipinfo", *arguments, **more)
        self.assertEqual(done.status, status, done.err)
        return done

    def lines(self, *arguments):
        """The lines of a summary, with one space between the words."""
        return [re.sub(" +", " ", line).strip() for line in self.info(*arguments).out.splitlines()]

    def json(self, *names, **more):
        """The elements of the JSON, each checked against the schema."""
        found = json.loads(self.info("-json", *names, **more).out)
        self.assertEqual([each["file"] for each in found], list(map(os.fspath, names)))
        if jsonschema:
            for each in found:
                validator("unreadable" if "error" in each else "movie").validate(each)
        return found

    def clip(self, name, *options):
        return runs.make_clip(self.folder / name, *PICTURE, *TONE, *MPEG4, *options)

    def tune(self, *arguments):
        done = self.run_in_folder("cliptune", "-q", *arguments)
        self.assertEqual(done, runs.Result(0, "", ""))

    def test_a_screen_about_a_movie(self):
        self.clip("clip.mov", *LANGUAGES, "-metadata", "creation_time=2020-02-29T23:59:59Z", "-metadata", "title=Übung\nfür \x1b[31malle", "-movflags", "+faststart")
        self.tune("clip.mov", "-rotate", "90", "-add-chapter", "Anfang", "0", "-add-chapter", "Ende", "0:01.5",
                  "-disable", "Sound Track", "-self-contained", "-o", "out.mov")  # fmt: skip
        lines = self.lines("out.mov")
        size = (self.folder / "out.mov").stat().st_size
        self.assertEqual(lines[:3], ["out.mov", f"file QuickTime (qt), {size:,} bytes", "duration 0:03"])
        self.assertEqual(lines[3], "dates created 2020-02-29 23:59:59 UTC, modified 2001-09-09 01:46:40 UTC")
        self.assertRegex(lines[4], r"^header [\d,]+ bytes at [\d,]+, compressed,")
        picture, sound, text = [lines.index(line) for line in lines if re.match(r"\d ", line)]
        self.assertRegex(lines[picture], r"^1 Video Track MPEG-4 Visual deu 75 [\d.]+ kB 0:03 \d")
        self.assertEqual(lines[picture + 1], "128x96, shown 96x128, 25 fps")
        self.assertRegex(lines[sound], r"^2 Sound Track AAC-LC fra 13\d [\d.]+ kB 0:03")
        self.assertEqual(lines[sound + 1], "off, mono, 44.1 kHz")
        self.assertRegex(lines[text], r"^3 Text Track text \w+ 2 \d+ B 0:03 1")
        at = lines.index("chapters")
        self.assertEqual(lines[at + 1 : at + 4], ["0:00 Anfang", "0:01.5 Ende", ""])
        self.assertIn("title Übung\\x0afür \\x1b[31malle", lines)
        self.assertLessEqual(max(map(len, self.info("out.mov").out.splitlines())), 80)
        [found] = self.json("out.mov")
        self.assertTrue(found["header"]["isCompressed"])
        self.assertEqual(found["chapters"][1], {"start": 1.5, "duration": 1.5, "title": "Ende"})
        self.assertEqual(
            [(each["name"], each["isEnabled"]) for each in found["tracks"]],
            [("Video Track", True), ("Sound Track", False), ("Text Track", False)],
        )
        [original] = self.json("clip.mov")
        self.assertTrue(original["header"]["isBeforeMedia"])
        self.assertFalse(original["header"]["isCompressed"])

    def test_printed_times_can_be_typed(self):
        # No time scale here divides a second into powers of ten.
        self.clip("clip.mov", "-video_track_timescale", "30000", "-movie_timescale", "90000")
        for units in 1, 3003, 45045, 89999, 200001:
            self.tune("clip.mov", "-trimTo", f"{units / 90000:.9f}", "-o", "cut.mov")
            [told] = self.json("cut.mov")
            self.assertEqual(round(told["duration"] * told["timeScale"]), units)
            time = self.lines("cut.mov")[2].removeprefix("duration ")
            self.assertLessEqual(len(time), len("0:02.22223"))
            self.tune("clip.mov", "-trimTo", time, "-o", "again.mov")
            self.assertEqual(self.json("again.mov")[0]["duration"], told["duration"])

    def test_constant_and_changing_frame_rates(self):
        for name, rate in ("fast.mov", 25), ("slow.mov", 10):
            pictures = [option.replace("rate=25", f"rate={rate}") for option in PICTURE]
            scale = ("-c:v", "mjpeg", "-video_track_timescale", "600")
            runs.make_clip(self.folder / name, *pictures, *scale)
        self.join_whole("both.mov", "fast.mov", "slow.mov")
        both = [each["tracks"][0]["frameRate"] for each in self.json("slow.mov", "both.mov")]
        self.assertEqual(both[0], {"isConstant": True, "average": 10, "lowest": 10, "highest": 10})
        # 75 pictures in the first half, and 29 in all but the last tenth of a second of the other.
        self.assertAlmostEqual(both[1].pop("average"), 104 / 5.9, 3)
        self.assertEqual(both[1], {"isConstant": False, "lowest": 10, "highest": 25})
        self.assertIn("10-25 fps", self.info("both.mov").out)

    def test_the_channels_of_every_codec(self):
        for name, channels, *options in (
            ("a.mp4", 6, "-c:a", "ac3"), ("b.mp4", 6, "-c:a", "eac3"), ("c.mp4", 6, "-c:a", "aac"),
            ("d.m4a", 1, "-c:a", "alac"), ("e.mp4", 2, "-c:a", "flac", "-strict", "-2", "-ar", "96000"),
            ("f.mp4", 2, "-c:a", "libopus", "-strict", "-2", "-ar", "48000"),
            ("g.mov", 3, "-c:a", "pcm_s24le", "-ar", "96000"), ("h.mov", 1, "-c:a", "pcm_f64be"),
            ("i.mov", 2, "-c:a", "pcm_u8"), ("j.mov", 2, "-c:a", "pcm_s16le"),
        ):  # fmt: skip
            with self.subTest(options=options):
                path = runs.make_clip(self.folder / name, *TONE, "-ac", str(channels), *options)
                [sound] = self.json(name)[0]["tracks"]
                [stream] = runs.description(path)["streams"]
                self.assertEqual(sound["sound"]["channels"], channels)
                self.assertEqual(sound["sound"]["rate"], int(stream["sample_rate"]))
                codec = stream["codec_name"].replace("pcm_", "PCM ")
                names = {"ac3": "AC-3", "eac3": "E-AC-3", "aac": "AAC-LC"}
                self.assertEqual(
                    sound["codecs"][0].lower(), names.get(codec, codec).lower(), sound["codecs"]
                )

    def test_missing_files_are_named(self):
        for name in "one.mov", "two.mov":
            self.clip(name)
        self.join("out.mov", "one.mov", "two.mov")
        (self.folder / "two.mov").rename(self.folder / "moved.mov")
        lines = self.lines("out.mov")
        one, two = self.folder / "one.mov", self.folder / "two.mov"
        self.assertEqual(lines[lines.index("files") + 1 :], [str(one), f"{two} missing"])
        references = self.json("out.mov")[0]["tracks"][0]["dataReferences"]
        self.assertEqual(
            references[-2:],
            [
                {"kind": "file", "path": str(one), "isMissing": False},
                {"kind": "file", "path": str(two), "isMissing": True},
            ],
        )

    def test_chapters_that_are_only_in_a_list(self):
        notes = self.folder / "chapters.txt"
        chapters = [("Anfang", 0, 1250), ("Mitte 四", 1250, 2000), ("Ende", 2000, 3000)]
        marks = (
            f"[CHAPTER]\nTIMEBASE=1/1000\nSTART={start}\nEND={end}\ntitle={title}\n"
            for title, start, end in chapters
        )
        notes.write_text(";FFMETADATA1\n" + "".join(marks))
        # The file has a list and a chapter track, which no other track refers to after the change.
        path = self.clip("list.mp4", "-f", "ffmetadata", "-i", notes, "-map_metadata", "2")
        self.assertEqual(path.read_bytes().count(b"chpl"), 1)
        path.write_bytes(path.read_bytes().replace(b"chap", b"none"))
        lines = self.lines(path)
        at = lines.index("chapters") + 1
        self.assertEqual(lines[at : at + 3], ["0:00 Anfang", "0:01.25 Mitte 四", "0:02 Ende"])
        told = self.json(path)[0]
        self.assertEqual(
            [(each["title"], each["start"], each["start"] + each["duration"]) for each in told["chapters"]],
            [(title, start / 1000, told["duration"] if end == 3000 else end / 1000) for title, start, end in chapters],
        )  # fmt: skip
        self.assertEqual(len(told["tracks"]), 3)  # none is added
        self.info("-svg", "out.svg", path)
        picture = (self.folder / "out.svg").read_text()
        self.assertIn("3 tracks, 3 chapters", picture)
        for number, start in (1, "0:00"), (2, "0:01.25"), (3, "0:02"):
            self.assertIn(f"Chapter {number}: {start}\n", picture)

    def test_bytes_of_the_file_in_json(self):
        path = self.clip("clip.mov", "-metadata", "artist=Anna")
        [found] = self.json("clip.mov")
        header = runs.movie_header(path)
        tracks = [content for kind, content in runs.atoms(header) if kind == "trak"]
        for told, content in zip(found["tracks"], tracks, strict=True):
            entries = runs.child(content, "mdia", "minf", "stbl", "stsd")[8:]
            [description] = told["sampleDescriptions"]
            self.assertEqual(bytes.fromhex(description["configuration"]), entries[16:])
            self.assertEqual(description["format"].encode(), entries[4:8])
        # Items of every length, without and with text.
        items = [bytes(range(1, length)) for length in range(1, 9)] + [b"gr\xc3\xbcn"]
        user = b"".join(atom(b"Tst%d" % i, item) for i, item in enumerate(items))
        data = bytearray(path.read_bytes())
        at, end = data.rindex(b"udta") - 4, len(data)
        size = struct.unpack_from(">I", data, at)[0]
        self.assertEqual(at + size, end)  # 'udta' is the last child of the last atom
        moov = data.rindex(b"moov") - 4
        data += user
        struct.pack_into(">I", data, at, size + len(user))
        struct.pack_into(">I", data, moov, struct.unpack_from(">I", data, moov)[0] + len(user))
        path.write_bytes(data)
        told = {item["type"]: item for item in self.json("clip.mov")[0]["userData"]}
        self.assertEqual(told["©ART"]["texts"][0]["text"], "Anna")
        for i, item in enumerate(items[:-1]):
            self.assertEqual(base64.b64decode(told[f"Tst{i}"]["base64"], validate=True), item)
        self.assertEqual(told["Tst8"]["texts"], [{"text": "grün"}])

    def test_names_that_are_not_utf8(self):
        name = os.fsdecode(b"\xff\n.mov")
        self.clip("clip.mov").rename(self.folder / name)
        done = self.info("-json", name)
        self.assertEqual(json.loads(done.out.encode())[0]["file"], "\ufffd\n.mov")
        self.assertEqual(self.info(name).out.splitlines()[0], os.fsdecode(b"\xff\\x0a.mov"))

    def test_a_bad_file_does_not_stop_the_others(self):
        self.clip("clip.mov")
        data = (self.folder / "clip.mov").read_bytes()
        (self.folder / "bad.mov").write_bytes(data.replace(b"stsc\0\0\0\0\0\0\0", b"stsc\0\0\0\0\xff\0\0"))
        done = self.info("bad.mov", "missing.mov", "clip.mov", status=1)
        bad, missing = done.err.splitlines()
        self.assertRegex(bad, r"^clipinfo: .*bad\.mov: /moov/trak/mdia/minf/stbl/stsc: ")
        self.assertRegex(missing, r"^clipinfo: .*missing\.mov: ")
        self.assertIn("clip.mov", done.out)
        told = self.json("bad.mov", "missing.mov", "clip.mov", status=1)
        self.assertEqual(told[0]["error"]["atom"], "/moov/trak/mdia/minf/stbl/stsc")
        self.assertEqual(len(told[2]["tracks"]), 2)

    def test_hostile_tables_take_little_time_and_memory(self):
        def limit():
            if not SANITIZERS:
                resource.setrlimit(resource.RLIMIT_AS, (160 << 20, 160 << 20))
            seconds = 80 if SANITIZERS else 20
            resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))

        many = 0xFFFFFF00
        chapters = atom(b"tref", atom(b"chap", u32(2)))
        # A chapter track with 4,000,000,000 chapters, once in one edit and once in 100,000.
        for edits in [(many, 0)], [(40000, i) for i in range(100_000)]:
            path = self.folder / "chapters.mov"
            path.write_bytes(movie(track(1, 9, [(9, 0)], chapters), track(2, many, edits)))
            self.assertIn("too many", self.info(path, preexec_fn=limit).out)
            [told] = self.json(path, preexec_fn=limit)
            self.assertEqual(told["tracks"][1]["samples"], many)
            self.assertNotIn("chapters", told)
        # Each of 100,000 edits can show any of 100,000 samples.
        places, itself = range(100_000), atom(b"tref", atom(b"chap", u32(1)))
        offsets = [(1 << 31) + i for i in places]
        path.write_bytes(movie(track(1, len(places), [(5, i) for i in places], itself, offsets)))
        self.assertIn("too many", self.info(path, preexec_fn=limit).out)
        if not SANITIZERS:  # with them, this takes a minute
            compared = self.info("-same", path, "-from", path, status=1, preexec_fn=limit)
            self.assertIn("too great disorder", compared.err)
        # A list with 200,000 chapters.
        listed = atom(b"udta", atom(b"chpl", u32(1 << 24), b"\0", u32(200_000), bytes(9 * 200_000)))
        path.write_bytes(movie(track(1, 9, [(9, 0)]), listed))
        self.assertIn("too many", self.info(path, preexec_fn=limit).out)
        edits = [(1, i % 2 * 100) for i in range(300_000)]
        (self.folder / "edits.mov").write_bytes(movie(track(1, 900, edits)))
        with open(self.folder / "out.json", "wb") as out:
            subprocess.run(
                [runs.BIN / "clipinfo", "-json", self.folder / "edits.mov"],
                stdout=out, check=True, preexec_fn=limit,
            )  # fmt: skip
        [told] = json.loads((self.folder / "out.json").read_bytes())
        self.assertEqual(len(told["tracks"][0]["edits"]), len(edits))

    def test_tags_of_every_kind_of_file(self):
        said = {"title": "Größe", "artist": "Anna", "genre": "Jazz", "comment": "a\nb", "track": "3/12"}
        options = [option for item in said.items() for option in ("-metadata", "=".join(item))]
        for name, *more in ("a.mp4",), ("b.mov",), ("c.mov", "-movflags", "use_metadata_tags"), ("d.3gp",):
            runs.make_clip(self.folder / name, *PICTURE, "-c:v", "mpeg4", *options, *more)
            tags = self.json(name)[0]["tags"]
            self.assertEqual([tag["text"] for tag in tags if tag["name"] == "title"], ["Größe"])
            texts = {tag["text"] for tag in tags}
            # Neither 3GPP files nor user data have a tag for track numbers.
            missing = {"3/12"} if name in ("b.mov", "d.3gp") else set()
            self.assertEqual(set(said.values()) - texts, missing, name)

    @runs.needs_corpus
    def test_real_movies_as_ffprobe_sees_them(self):
        files = [path for path in sorted(runs.MEDIA.rglob("*")) if path.is_file()]
        told = [each for each in self.json(*files, status=1) if "error" not in each]
        self.assertGreater(len(told), 100)
        runs.in_parallel(runs.description, [each["file"] for each in told])  # they are cached
        compared = tags = 0
        for each in told:
            description = runs.description(each["file"])
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
                    [track] = found
                    self.assertEqual(track["samples"], int(stream["nb_frames"]))
                    language = stream.get("tags", {}).get("language", track["language"])
                    self.assertEqual(track["language"], language)
                    if "codedSize" in track:
                        size = {key: stream[key] for key in ("width", "height")}
                        self.assertEqual(track["codedSize"], size)
        self.assertGreater(compared, 150)
        self.assertGreater(tags, 100)


if __name__ == "__main__":
    runs.main()
