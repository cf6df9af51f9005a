#!/usr/bin/env python3
"""The manual pages are well-formed and explain all error numbers, and the examples in the pages and in
the README work."""

import gzip
import json
import os
import re
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

import runs
from runs import BIN, ROOT, make_clip

SVG = "{http://www.w3.org/2000/svg}"
COMMANDS = ("clipjoin", "clipstak", "cliptune")
INSTALLED = BIN.parent / "share" / "man"
if INSTALLED.is_dir():
    PAGES = {name: INSTALLED / "man1" / f"{name}.1.gz" for name in COMMANDS}
    PAGES["clipinfo"] = INSTALLED / "man1" / "clipinfo.1.gz"
    PAGES["Reelwork"] = INSTALLED / "man7" / "Reelwork.7.gz"
else:
    PAGES = {name: BIN.parent / "man" / f"{name}.1" for name in (*COMMANDS, "clipinfo")}
    PAGES["Reelwork"] = BIN.parent / "man" / "Reelwork.7"

TAGS_ARE_LOST = (
    "Warning: the movie has annotations that will not appear in the output file.\n"
    "iTunes can be used to manually add annotations to m4a files.\n"
)


def text_of(page):
    with (gzip.open if page.suffix == ".gz" else open)(page, "rt") as file:
        return file.read()


def section(page, name):
    return re.search(rf"^\.Sh {name}\n(.*?)(?=^\.Sh |\Z)", text_of(page), re.M | re.S)[1]


def plain(line):
    """A literal line, with its escapes replaced."""
    return re.sub(r"\\(e|-|\(aq)", lambda found: {"e": "\\", "-": "-", "(aq": "'"}[found[1]], line)


def examples(text):
    """The command lines of the examples in a part of a page, as a user types them."""
    blocks = re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", text, re.M | re.S)
    return [re.sub(r"^\$ ", "", plain(block), flags=re.M) for block in blocks]


def tone(seconds):
    """Arguments of ffmpeg for a tone."""
    return "-f", "lavfi", "-i", "sine=sample_rate=48000", "-t", str(seconds), "-c:a", "aac"


def movie(seconds):
    """Arguments of ffmpeg for a movie with B-frames, a key frame every two seconds, and a tone."""
    picture = "testsrc2=size=320x180:rate=25"
    return ("-f", "lavfi", "-i", picture, *tone(seconds), "-c:v", "libx264", "-g", "50",
            "-sc_threshold", "0", "-pix_fmt", "yuv420p")  # fmt: skip


class Shell(runs.RunTest):
    """Types command lines, and looks at what they have written."""

    def type(self, commands):
        path = {"PATH": f"{BIN}:{os.environ['PATH']}"}
        done = runs.run("/bin/sh", "-e", "-c", commands, cwd=self.folder, env=path)
        return done._replace(err=done.err.replace(TAGS_ARE_LOST, ""))

    def assert_written(self, name, duration, kinds, chapters=()):
        path = self.folder / name
        found = runs.ffprobe(path, "-show_format", "-show_streams", "-show_chapters")
        kinds_found = [s["codec_type"] for s in found["streams"] if s["codec_type"] != "data"]
        self.assertEqual(sorted(kinds_found), sorted(kinds), name)
        self.assertAlmostEqual(float(found["format"]["duration"]), duration, delta=0.03, msg=name)
        told = [(float(c["start_time"]), c["tags"]["title"]) for c in found["chapters"]]
        self.assertEqual(told, list(chapters), name)
        self.assertEqual(runs.complaints(path), [], name)


class Pages(unittest.TestCase):
    def test_every_error_number_is_explained(self):
        codes = set(re.findall(r"= (-\d+),", (ROOT / "toolbox" / "codes.h").read_text()))
        table = re.findall(r"^\.It (\S+) Ta .", section(PAGES["Reelwork"], "DIAGNOSTICS"), re.M)
        self.assertEqual({plain(number) for number in table}, codes | {"1"})

    def test_are_well_formed(self):
        ours = "|".join(PAGES)
        found = [
            f"{name}: {line}"
            for name, page in PAGES.items()
            for line in subprocess.run(
                ["mandoc", "-T", "lint"], input=text_of(page), capture_output=True, text=True
            ).stdout.splitlines()
            if not re.search(
                rf"referenced manual not found: Xr ({ours})|outdated mandoc.db|Os Reelwork", line
            )
        ]
        self.assertEqual(found, [])


def masked(text):
    """What clipinfo prints, without what depends on the encoder, the day and the folder."""
    text = re.sub(r"\d[\d,.]* (bytes|[kM]?B\b)|(?<=bytes at )[\d,]+", "X", text)
    text = re.sub(r"(?<=hash )[0-9a-f]{32}|Lavf\S+|\d+-\d+-\d+ \d+:\d+:\d+ UTC", "X", text)
    text = re.sub(r"/\S+(?=/build/demo/)", "X", text)
    return re.sub(" +", " ", text).rstrip("\n")


class Examples(Shell):
    """Each example runs without an error message in a folder with the files that it names, and
    writes what the text before it promises."""

    @classmethod
    def setUpClass(cls):
        cls.inputs = runs.temporary_folder(cls)
        for name in ("one.mov", "two.mov", "other.mp4", "talk.mp4"):
            make_clip(cls.inputs / name, *movie(6))
        make_clip(cls.inputs / "movie.mp4", *movie(12))
        make_clip(cls.inputs / "comment.m4a", *tone(2))
        (cls.inputs / "list.txt").write_text("one.mov\ntwo.mov\none.mov\n")

    def setUp(self):
        super().setUp()
        for path in self.inputs.iterdir():
            (self.folder / path.name).write_bytes(path.read_bytes())

    def run_examples(self, page):
        """The standard output of each example of the page."""
        said = []
        commands = examples(section(PAGES[page], "EXAMPLES"))
        self.assertGreaterEqual(len(commands), 2)
        for command in commands:
            done = self.type(command)
            self.assertEqual((done.status, done.err), (0, ""), command)
            said.append(done.out)
        return said

    def test_clipjoin(self):
        said = self.run_examples("clipjoin")
        both = ["video", "audio"]
        self.assert_written("joined.mov", 12, both)
        self.assert_written("all.mov", 18, both)
        self.assert_written("short.mov", 6.5, both)
        self.assertEqual(said[-1], "Track list for one.mov:\n\t* Video Track\n\t* Sound Track\n")

    def test_clipstak(self):
        self.run_examples("clipstak")
        self.assert_written("commented.mov", 12, ["video", "audio", "audio"])
        starts = sorted(t.edits[0].duration for t in runs.tracks(self.folder / "commented.mov").values()
                        if t.edits and t.edits[0].media < 0)  # fmt: skip
        self.assertEqual(starts, [3])
        self.assert_written("both.mov", 12, ["video", "video", "audio"])

    def test_clipinfo(self):
        seen, _, checked, *proofs, _ = self.run_examples("clipinfo")
        self.assertIn("\n  duration 0:12\n", seen)
        (facts,) = json.loads((self.folder / "movie.json").read_text())
        self.assertEqual([track["name"] for track in facts["tracks"]], ["Video Track", "Sound Track"])
        self.assertEqual(checked, "one.mov: ok\ntwo.mov: ok\n")
        self.assertEqual([proof.split()[:3] for proof in proofs], [[], ["same:", "2", "tracks,"]] * 2)
        drawn = ElementTree.parse(self.folder / "movie.svg").getroot()
        self.assertEqual(drawn[0].text, "The time line of movie.mp4")

    def test_the_tour_in_the_readme(self):
        readme = (ROOT / "README.md").read_text().partition("\n## Two minutes\n")[2]
        setup = re.search(r"^```sh\n(.*?)^```$", readme, re.M | re.S)[1]
        # A fresh shell in the folder of the project, as `scripts/run` leaves it.
        demo = self.folder / "build" / "demo"
        demo.mkdir(parents=True)
        (self.folder / "build" / "bin").symlink_to(BIN)
        script = (ROOT / "scripts" / "run").read_text()
        (make_movie,) = re.findall(r"^make_movie\(\) \{\n.*?^\}\n", script, re.M | re.S)
        movies = re.findall(r"^ *make_movie .*\n", script, re.M)
        make_movies = f"demo=.\n{make_movie}{''.join(movies)}"
        self.assertEqual(runs.run("/bin/bash", "-e", "-c", make_movies, cwd=demo), runs.Result(0, "", ""))
        blocks = re.findall(r"^```console\n(.*?)^```$", readme, re.M | re.S)
        steps = [step for block in blocks for step in block.removeprefix("$ ").split("\n$ ")]
        self.assertGreaterEqual(len(steps), 12)
        for step in steps:
            command, _, expected = step.rstrip("\n").partition("\n")
            done = runs.run("/bin/sh", "-c", f"{setup}({command}) 2>&1", cwd=self.folder)
            self.assertEqual(masked(done.out), masked(expected), command)
        pictures = (demo / "stack.svg", ROOT / "pictures" / "stack.svg")
        drawn, kept = (ElementTree.parse(picture).iter(SVG + "text") for picture in pictures)
        self.assertEqual([text.text for text in drawn], [text.text for text in kept])

    def test_cliptune(self):
        said = self.run_examples("cliptune")
        both = ["video", "audio"]
        self.assert_written("cut.mov", 10, both)
        self.assertEqual(len(runs.frames(self.folder / "cut.mov")), 250)
        chapters = [(0, "Welcome"), (4.5, "The plan")]
        self.assert_written("talk.mov", 6, both, chapters)
        self.assertIn("Chapter list for talk.mov:\n\t* Welcome\n\t* The plan\n", said[-1])


if __name__ == "__main__":
    runs.main()
