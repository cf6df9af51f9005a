#!/usr/bin/env python3
"""The manual pages are well-formed and explain all error numbers, and the examples in the pages and
in the README work."""

import gzip
import os
import re
import shutil
import unittest
import xml.etree.ElementTree as ElementTree

import runs
from runs import BIN, ROOT, make_clip

SVG = "{http://www.w3.org/2000/svg}"
IS_INSTALLED = (BIN.parent / "share" / "man").is_dir()
FORM = "share/man/man{0}/{1}.{0}.gz" if IS_INSTALLED else "man/{1}.{0}"
PAGES = {
    name: BIN.parent / FORM.format(7 if name == "Reelwork" else 1, name)
    for name in ("clipjoin", "clipstak", "cliptune", "clipinfo", "Reelwork")
}
BOTH = ["audio", "video"]
# The files that the examples of a page write: the duration and the kinds of the streams.
WRITTEN = {
    "clipjoin": {"joined.mov": (12, BOTH), "all.mov": (18, BOTH), "short.mov": (6.5, BOTH)},
    "clipstak": {"commented.mov": (12, ["audio", *BOTH]), "both.mov": (12, [*BOTH, "video"])},
    "cliptune": {"cut.mov": (10, BOTH), "talk.mov": (6, BOTH)},
    "clipinfo": {},
}


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


def movie(path, seconds, *more):
    """A movie with B-frames, a key frame every two seconds, and a tone."""
    tone = ("-f", "lavfi", "-i", "sine=sample_rate=48000", "-t", str(seconds), "-c:a", "aac")
    return make_clip(path, *more, *tone, "-c:v", "libx264", "-g", "50", "-sc_threshold", "0",
                     "-pix_fmt", "yuv420p")  # fmt: skip


PICTURE = ("-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25")


class Pages(unittest.TestCase):
    def test_every_error_number_is_explained(self):
        codes = set(re.findall(r"= (-\d+),", (ROOT / "toolbox" / "codes.h").read_text()))
        table = re.findall(r"^\.It (\S+) Ta .", section(PAGES["Reelwork"], "DIAGNOSTICS"), re.M)
        self.assertEqual({plain(number) for number in table}, codes | {"1"})

    def test_are_well_formed(self):
        # One at a time: mandoc unpacks only the first of several compressed files.
        said = b"".join(runs.read_by("mandoc", "-T", "lint", page)[0] for page in PAGES.values())
        ours = "|".join(PAGES)
        known = rf"referenced manual not found: Xr ({ours})|outdated mandoc.db|Os Reelwork"
        found = [line for line in said.decode().splitlines() if not re.search(known, line)]
        self.assertEqual(found, [])


def masked(text):
    """What clipinfo prints, without what depends on the encoder, the day and the folder."""
    text = re.sub(r"\d[\d,.]* (bytes|[kM]?B\b)|(?<=bytes at )[\d,]+", "X", text)
    text = re.sub(r"(?<=hash )[0-9a-f]{32}|Lavf\S+|\d+-\d+-\d+ \d+:\d+:\d+ UTC", "X", text)
    text = re.sub(r"/\S+(?=/build/demo/)", "X", text)
    return re.sub(" +", " ", text).rstrip("\n")


class Examples(runs.RunTest):
    """Each example runs without an error message in a folder with the files that it names, and
    writes what the text before it promises."""

    @classmethod
    def setUpClass(cls):
        cls.inputs = runs.temporary_folder(cls)
        for name in ("one.mov", "two.mov", "other.mp4", "talk.mp4"):
            movie(cls.inputs / name, 6, *PICTURE)
        movie(cls.inputs / "movie.mp4", 12, *PICTURE)
        movie(cls.inputs / "comment.m4a", 2)
        (cls.inputs / "list.txt").write_text("one.mov\ntwo.mov\none.mov\n")

    def run_examples(self, page):
        """The standard output of each example of the page, whose files are checked."""
        self.folder = shutil.copytree(self.inputs, self.folder / page)
        said = []
        path = {"PATH": f"{BIN}:{os.environ['PATH']}"}
        commands = examples(section(PAGES[page], "EXAMPLES"))
        self.assertGreaterEqual(len(commands), 2)
        for command in commands:
            done = runs.run("/bin/sh", "-e", "-c", command, cwd=self.folder, env=path)
            self.assertEqual((done.status, done.err), (0, ""), command)
            said.append(done.out)
        for name, (duration, kinds) in WRITTEN[page].items():
            found = runs.description(self.folder / name)
            streams = sorted(s["codec_type"] for s in found["streams"] if s["codec_type"] != "data")
            self.assertEqual(streams, kinds, name)
            self.assertAlmostEqual(float(found["format"]["duration"]), duration, delta=0.03, msg=name)
            self.assertEqual(runs.complaints(self.folder / name), [], name)
        return said

    def test_of_the_pages(self):
        listed = self.run_examples("clipjoin")[-1]
        self.assertEqual(listed, "Track list for one.mov:\n\t* Video Track\n\t* Sound Track\n")
        self.run_examples("clipstak")
        edits = [track.edits[0] for track in runs.tracks(self.folder / "commented.mov").values()]
        self.assertEqual([edit.duration for edit in edits if edit.media < 0], [3])
        chapters = self.run_examples("cliptune")[-1]
        self.assertIn("Chapter list for talk.mov:\n\t* Welcome\n\t* The plan\n", chapters)
        found = runs.ffprobe(self.folder / "talk.mov", "-show_chapters")["chapters"]
        self.assertEqual([float(chapter["start_time"]) for chapter in found], [0, 4.5])
        self.assertEqual(len(runs.frames(self.folder / "cut.mov")), 250)
        seen, _, checked, *proofs, _ = self.run_examples("clipinfo")
        self.assertIn("\n  duration 0:12\n", seen)
        self.assertEqual(checked, "one.mov: ok\ntwo.mov: ok\n")
        self.assertEqual([proof.split()[:3] for proof in proofs], [[], ["same:", "2", "tracks,"]] * 2)

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


if __name__ == "__main__":
    runs.main()
