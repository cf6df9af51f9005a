#!/usr/bin/env python3
"""The pictures of time lines that clipinfo -svg draws."""

import fractions
import os
import re
import unittest
import xml.etree.ElementTree as ElementTree

import runs
from runs import has_tools, make_clip

LEFT, WIDTH = 220, 956  # of the time line in the picture, in pixels

# All that a picture consists of: nothing that runs, and nothing that comes from elsewhere.
ELEMENTS = {"svg", "title", "style", "defs", "pattern", "rect", "path", "text", "g"}
ATTRIBUTES = {
    "width", "height", "viewBox", "role", "id", "patternUnits", "patternTransform", "class", "x",
    "y", "d", "opacity",
}  # fmt: skip


def seconds(text):
    """A time as the commands take it."""
    value = fractions.Fraction(0)
    for field in text.split(":"):
        value = value * 60 + fractions.Fraction(field)
    return value


def texts(picture):
    """All lines of text, visible or not."""
    return [line for text in picture.itertext() for line in text.split("\n")]


class Block:
    """A block of a row, and what is said about it while the pointer is on it."""

    def __init__(self, rect):
        self.classes = rect.get("class").split()[1:]
        self.x, self.width = float(rect.get("x")), float(rect.get("width"))
        first, *self.about = rect.find("title").text.split("\n")
        number, _, times = first.partition(": ")
        numbers = [int(digits) for digits in re.findall(r"\d+", number)]
        self.numbers = range(numbers[0], numbers[-1] + 1)
        self.start, self.end = map(seconds, times.split(" – "))


@has_tools("ffmpeg", "ffprobe")
class Picture(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        # Six seconds, with a sync sample each second. Video is shown 0.08 s after it
        # is decoded.
        cls.clip = make_clip(
            runs.temporary_folder(cls) / "clip.mov", "-f", "lavfi", "-i",
            "testsrc2=size=64x64:rate=25", "-t", "6", "-c:v", "libx264", "-preset", "ultrafast",
            "-g", "25", "-sc_threshold", "0", "-bf", "2",
        )  # fmt: skip

    def copies(self, *names):
        for name in names:
            (self.folder / os.fsdecode(name)).write_bytes(self.clip.read_bytes())
        return names

    def draw(self, movie):
        """The picture of a movie. Checks that it is well-formed and complete in itself."""
        done = self.run_in_folder("clipinfo", "-svg", "out.svg", movie)
        self.assertEqual(done, runs.Result(0, "", ""))
        content = (self.folder / "out.svg").read_bytes()
        content.decode("utf-8")
        picture = ElementTree.fromstring(content)
        for element in picture.iter():
            element.tag = element.tag.removeprefix("{http://www.w3.org/2000/svg}")
            self.assertIn(element.tag, ELEMENTS)
            self.assertLessEqual(set(element.attrib), ATTRIBUTES)
        self.assertEqual(re.findall(rb"@import|@font-face|url\((?!#)", content), [])
        return picture

    def blocks(self, picture):
        """The blocks of each row."""
        rows = [row for row in picture.iter("g") if row.get("class").split()[0] == "track"]
        return [
            [Block(rect) for rect in row.iter("rect") if rect.get("class").startswith("edit ")]
            for row in rows
        ]

    def assert_draws_all_edits(self, movie, picture):
        """Each block is at the times of its edits."""
        duration = runs.movie_duration(self.folder / movie)
        rows = self.blocks(picture)
        tracks = runs.tracks(self.folder / movie).values()
        self.assertEqual(len(rows), len(tracks))
        for row, track in zip(rows, tracks):
            ends = [(edit.start, edit.start + edit.duration) for edit in track.edits]
            drawn = []
            for block in row:
                self.assertAlmostEqual(block.x, LEFT + WIDTH * block.start / duration, delta=2)
                right = block.x + block.width
                self.assertAlmostEqual(right, LEFT + WIDTH * block.end / duration, delta=2)
                if drawn and block.numbers[0] == drawn[-1][0][-1]:  # the next file of an edit
                    numbers, start, end = drawn.pop()
                    self.assertEqual(end, block.start)
                    drawn.append(([*numbers, *block.numbers[1:]], start, block.end))
                else:
                    drawn.append(([*block.numbers], block.start, block.end))
            self.assertEqual([n for numbers, _, _ in drawn for n in numbers], [*range(1, len(ends) + 1)])
            for numbers, start, end in drawn:
                self.assertEqual((start, end), (ends[numbers[0] - 1][0], ends[numbers[-1] - 1][1]))

    def test_shows_the_files_speeds_gaps_and_hidden_media_of_edits(self):
        self.copies("one.mov", "two.mov", "three.mov")
        self.join("both.mov", "one.mov", "-startAt", "1", "-trimTo", "2.4", "two.mov", "-rate", "2")
        done = self.run_in_folder("clipstak", "-q", "both.mov", "three.mov", "-placeAt", "1.5",
                                  "-trimTo", "1", "-o", "out.mov")  # fmt: skip
        self.assertEqual(done.status, 0)
        picture = self.draw("out.mov")
        self.assert_draws_all_edits("out.mov", picture)
        rows = self.blocks(picture)
        self.assertEqual(
            [[block.about for block in row] for row in rows],
            [
                [["shows 0:01.08 – 0:03.48 of the media", "in one.mov"],
                 ["shows 0:06.08 – 0:12.08 of the media", "at 2× the speed", "in two.mov"]],
                [["empty: nothing is shown"], ["shows 0:00.08 – 0:01.08 of the media", "in three.mov"]],
            ],
        )  # fmt: skip
        colors = [block.classes[0] for row in rows for block in row]
        self.assertEqual(len(set(colors)), 4)
        hidden = [rect.findtext("title") for rect in picture.iter("rect")
                  if rect.get("class") == "hidden" and rect.find("title") is not None]  # fmt: skip
        self.assertEqual(
            [title.partition(" of")[0] for title in hidden],
            ["0:00.08 – 0:01.08", "0:03.48 – 0:06.08", "0:01.08 – 0:06.08"],
        )

    def test_draws_ticks_where_sync_samples_are_shown(self):
        self.copies("one.mov")
        self.join("out.mov", "one.mov", "-startAt", "0.5", "-rate", "2")
        out = self.folder / "out.mov"
        (track,) = runs.tracks(out).values()
        (edit,) = track.edits
        keys = [packet.pts for packet in runs.samples_by_track(self.clip)[1] if "K" in packet.flags]
        times = [(key - edit.media) / track.scale / edit.rate for key in keys if key >= edit.media]
        self.assertEqual((len(times), edit.rate), (5, 2))
        (path,) = (p.get("d") for p in self.draw("out.mov").iter("path") if p.get("class") == "sync tick")
        found = [float(x) for x in re.findall(r"M([\d.]+) ", path)]
        for x, time in zip(found, times, strict=True):
            self.assertAlmostEqual(x, LEFT + WIDTH * time / edit.duration, delta=1)

    def test_shows_which_files_are_missing(self):
        self.copies("one.mov", "gone.mov")
        self.join("out.mov", "one.mov", "gone.mov")
        (self.folder / "gone.mov").unlink()
        picture = self.draw("out.mov")
        ((one, gone),) = self.blocks(picture)
        self.assertEqual(("missing" in one.classes, "missing" in gone.classes), (False, True))
        self.assertEqual(gone.about[-1], "in gone.mov, which is missing")
        self.assertIn("gone.mov (missing)", texts(picture))

    def test_text_from_files_is_escaped(self):
        names = self.copies("a<b>&\"']]>\x1b\n\x85.mov", b"\xff\xfe\xed\xa0\x80.mov", "\ufffe😀.mov")
        title = "<script>alert(1)</script>&amp;\x1b[31m\ufffe"
        self.join("out.mov", *names, options=["-add-chapter", title, "0"])
        found = texts(self.draw("out.mov"))
        self.assertIn("a<b>&\"']]>\\x1b\\x0a\\xc2\\x85.mov", found)
        self.assertIn("\ufffd\ufffd\ufffd\ufffd\ufffd.mov", found)
        self.assertIn("\ufffd😀.mov", found)
        self.assertIn("<script>alert(1)</script>&amp;\\x1b[31m\ufffd", found)

    def test_is_small_and_complete_if_there_are_many_edits(self):
        self.copies("one.mov")
        for count, blocks in (200, range(200, 201)), (1500, range(1, 1000)):
            self.join("out.mov", *["one.mov", "-trimTo", "1"] * count)
            picture = self.draw("out.mov")
            self.assert_draws_all_edits("out.mov", picture)
            (row,) = self.blocks(picture)
            self.assertIn(len(row), blocks)
            self.assertLess((self.folder / "out.svg").stat().st_size, 100_000)

    def test_does_not_replace_a_movie(self):
        self.copies("one.mov", "two.mov")
        done = self.run_in_folder("clipinfo", "-svg", "one.mov", "two.mov")
        self.assertEqual(done, runs.Result(1, "", "clipinfo: one.mov: it is a movie\n"))
        self.assertEqual((self.folder / "one.mov").read_bytes(), self.clip.read_bytes())


if __name__ == "__main__":
    runs.main()
