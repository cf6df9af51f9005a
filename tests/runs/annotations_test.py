#!/usr/bin/env python3
"""Tags of MPEG-4 files: which annotations other readers find in the movies that are made from
them."""

import json
import struct
import unicodedata
import unittest

import runs
from runs import MEDIA, Result

# A text, the suffix that exiftool adds to names in its language, and the encoding of the text:
# exiftool's name for it, or Python's name if exiftool does not know it.
TEXTS = {
    "latin": ("Café – “Ω”", "", "MacRoman"),
    "polish": ("Żółw i Łódź", "-lt", "MacLatin2"),
    "croatian": ("Čeština", "-hr", "MacCroatian"),
    "greek": ("Ελλάδα", "-el", "MacGreek"),
    "cyrillic": ("Київ", "-ru", "MacCyrillic"),
    "japanese": ("日本の歌", "-ja", "shift_jis"),
    "korean": ("한국어 노래", "-ko", "euc_kr"),
}
# exiftool's names for a tag and for the annotation that is made from it.
NAMES = {
    "Title": "Title", "Artist": "Artist", "Album": "Album", "Comment": "Comment",
    "Composer": "Composer", "Grouping": "UserData_des", "Encoder": "EncoderID", "Genre": "Genre",
    "TrackNumber": "Track",
}  # fmt: skip
# Real files in which a second tag becomes the same annotation, or padding comes before the list.
EXCEPTIONS = {
    ("mp4-chapterized.m4a", "Encoder"): "Encoded By",
    ("mp4-full-meta.m4a", "Encoder"): "ENCODED BY",
    ("mp4-full-meta.m4a", "Grouping"): "DESCRIPTION",
    ("gnre.m4a", "Genre"): None,
}


def facts(*arguments):
    """exiftool's output, one entry per file."""
    out, _ = runs.read_by("exiftool", "-j", "-a", "-G1", "-s", *arguments)
    return json.loads(out)


def annotations(path, charset):
    """The annotations that exiftool reads. Those in other languages are decoded as `charset`."""
    if charset.startswith("Mac"):
        return facts("-charset", f"QuickTime={charset}", "-UserData:all", path)[0]
    found = facts("-UserData:all", path)[0]
    languages = {key for key in found if "-" in key}
    return {k: v.encode("mac_roman").decode(charset) if k in languages else v
            for k, v in found.items()}  # fmt: skip


def items(path):
    """The user data of the movie."""
    return list(runs.atoms(runs.child(runs.movie_header(path), "udta")))


def in_roman(text):
    return unicodedata.normalize("NFC", text).encode("mac_roman", "replace").decode("mac_roman")


@runs.has_tools("ffmpeg", "ffprobe", "exiftool", "mediainfo")
class MadeFiles(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.sources = runs.temporary_folder(cls)
        for name, (text, _, _) in TEXTS.items():
            tags = {"title": text, "artist": text + " a", "composer": text + " c",
                    "grouping": text + " g", "track": "3/12", "genre": "Rock"}  # fmt: skip
            options = [word for tag in tags.items() for word in ("-metadata", "=".join(tag))]
            runs.make_clip(
                cls.sources / f"{name}.m4a", "-f", "lavfi", "-i", "anullsrc=r=8000", "-t", "0.2",
                "-c:a", "aac", *options,
            )  # fmt: skip

    def test_tags_are_read_in_the_encoding_of_their_language(self):
        for name, (text, language, charset) in TEXTS.items():
            source = self.sources / f"{name}.m4a"
            for options in ([], ["-self-contained"]):
                with self.subTest(name, options=options):
                    plain = [*options, "-no-compressed-header"]
                    movie = self.join("out.mov", source, options=plain)
                    found = annotations(movie, charset)
                    expected = {
                        f"UserData:Title{language}": text,
                        f"UserData:Artist{language}": f"{text} a",
                        f"UserData:Composer{language}": f"{text} c",
                        f"UserData:UserData_des{language}": f"{text} g",
                        "UserData:Genre": "Rock",
                        "UserData:Track": "3/12",
                    }
                    self.assertEqual(found, {**found, **expected})
                    # A text that is all ASCII or all Mac Roman is stored only once.
                    others = {key for key in found if key.rpartition("-")[0]}
                    self.assertEqual(others, {key for key in expected if "-" in key})
                    tags = runs.description(movie)["format"]["tags"]
                    self.assertEqual(tags["title"], in_roman(text))
                    self.assertEqual((tags["track"], tags["genre"]), ("3/12", "Rock"))
                    self.assertEqual(self.media_info(movie)["Title"], text)

    @staticmethod
    def media_info(path):
        out, _ = runs.read_by("mediainfo", "--Output=JSON", path)
        return json.loads(out)["media"]["track"][0]

    def test_the_tags_are_kept_and_are_not_converted_twice(self):
        source = self.sources / "greek.m4a"
        movie = self.join_whole("out.mov", source)
        self.assertEqual(items(movie)[: len(items(source))], items(source))
        again = self.join_whole("again.mov", movie, self.sources / "polish.m4a")
        self.assertEqual(items(again), items(movie))

    def test_no_convert_tags_applies_to_one_file(self):
        greek, polish = (self.sources / f"{name}.m4a" for name in ("greek", "polish"))
        plain = self.join("out.mov", greek, options=["-no-convert-tags"])
        self.assertEqual(items(plain), items(greek))
        # The option applies to the file before it.
        second = self.join("out.mov", greek, polish, "-no-convert-tags")
        self.assertGreater(len(items(second)), len(items(greek)))

    def test_a_file_saved_in_place_keeps_its_annotations(self):
        path = self.folder / "saved.m4a"
        path.write_bytes((self.sources / "japanese.m4a").read_bytes())
        done = self.run_in_folder("cliptune", "-save-in-place", path)
        self.assertEqual(done, Result(0, "", ""))
        found = annotations(path, "shift_jis")
        self.assertEqual(found["UserData:Title-ja"], TEXTS["japanese"][0])
        self.assertEqual(self.media_info(path)["Title"], TEXTS["japanese"][0])

    def test_a_malformed_list_ends_at_its_stated_size(self):
        data = bytearray((self.sources / "latin.m4a").read_bytes())
        start = data.index(b"ilst") + 4
        artist = data.index(b"\xa9ART") - 4
        (size,) = struct.unpack_from(">I", data, start - 8)
        struct.pack_into(">I", data, artist, 0x7FFFFFF0)
        path = self.folder / "broken.m4a"
        path.write_bytes(data)
        done = self.run_in_folder(
            "clipjoin", path, "-q", "-self-contained", "-no-compressed-header", "-o", "out.mov"
        )  # fmt: skip
        said = (f"Error processing user data; atom \udca9ART length {0x7FFFFFF0} at "
                f"{artist - start} exceeds container length {size}\n")  # fmt: skip
        self.assertEqual(done, Result(0, "", said))
        found = facts("-UserData:all", self.folder / "out.mov")[0]
        self.assertEqual(found["UserData:Title"], TEXTS["latin"][0])
        self.assertNotIn("UserData:Artist", found)


@runs.needs_corpus
@runs.has_tools("exiftool")
class RealFiles(runs.RunTest):
    def test_every_tag_becomes_the_annotation_with_the_same_meaning(self):
        files = sorted(MEDIA.glob("*/*.m4?")) + sorted(MEDIA.glob("*/*.mp4"))
        movies = [self.folder / f"{number}.mov" for number in range(len(files))]
        plainly = ("-q", "-no-compressed-header", "-o")
        done = runs.in_parallel(
            lambda pair: runs.run("clipjoin", pair[0], *plainly, pair[1]), zip(files, movies)
        )
        made = [
            pair for pair, run in zip(zip(files, movies), done) if pair[1].exists() and not run.err
        ]
        before, after = zip(*made)
        converted = 0
        for path, tags, found in zip(
            before, facts("-ItemList:all", *before), facts("-UserData:all", *after), strict=True
        ):
            for tag, name in NAMES.items():
                value = tags.get(f"ItemList:{tag}")
                if value is None:
                    continue
                with self.subTest(str(path.relative_to(MEDIA)), tag=tag):
                    if tag == "TrackNumber":
                        number, _, total = str(value).partition(" of ")
                        value = f"{number}/{total or 0}"
                    value = EXCEPTIONS.get((path.name, tag), value)
                    annotation = found.get(f"UserData:{name}")
                    self.assertEqual(in_roman(str(annotation)), in_roman(str(value)))
                    converted += 1
        self.assertGreater(converted, 50)


if __name__ == "__main__":
    runs.main()
