#!/usr/bin/env python3
"""The manual pages describe all options of the commands, and the examples in the pages and in the
README work."""

import gzip
import os
import re
import subprocess
import unittest

import runs
from runs import BIN, ROOT, has_tools, make_clip

COMMANDS = ("clipjoin", "clipstak", "cliptune")
INSTALLED = BIN.parent / "share" / "man"
if INSTALLED.is_dir():
    PAGES = {name: INSTALLED / "man1" / f"{name}.1.gz" for name in COMMANDS}
    PAGES["clipinfo"] = INSTALLED / "man1" / "clipinfo.1.gz"
    PAGES["Reelwork"] = INSTALLED / "man7" / "Reelwork.7.gz"
else:
    PAGES = {name: BIN.parent / "man" / f"{name}.1" for name in COMMANDS}
    PAGES["clipinfo"] = ROOT / "man" / "clipinfo.1"
    PAGES["Reelwork"] = ROOT / "man" / "Reelwork.7"

# Options that the usage text of a command does not list, or lists in only one form.
UNLISTED = {"-clipjoin", "-clipstak", "-cliptune", "-name-from-stdin", "-names-from-stdin"}

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


def examples(page):
    """The command lines of the page, as a user types them."""
    blocks = re.findall(r"^\.Bd -literal[^\n]*\n(.*?)^\.Ed$", section(page, "EXAMPLES"), re.M | re.S)
    return [plain(block).removeprefix("$ ") for block in blocks]


class Pages(unittest.TestCase):
    def test_every_error_number_is_explained(self):
        codes = set(re.findall(r"= (-\d+),", (ROOT / "toolbox" / "codes.h").read_text()))
        table = re.findall(r"^\.It (\S+) Ta .", section(PAGES["Reelwork"], "DIAGNOSTICS"), re.M)
        self.assertEqual({plain(number) for number in table}, codes | {"1"})

    def test_every_option_has_an_entry_and_every_entry_is_an_option(self):
        for name in COMMANDS:
            usage = runs.run(name).err
            listed = set(re.findall(r"^ {3,4}(-[^ \n]*)", usage, re.M)) | UNLISTED
            if name == "clipjoin":
                listed.add("-manual-join")
            text = section(PAGES[name], "OPTIONS")
            entries = {
                "-" + option
                for line in re.findall(r"^\.It (Fl.*)$", text, re.M)
                for option in re.findall(r"\bFl(?: ([\w-]+))?", line)
            }
            entries |= UNLISTED & {"-" + option for option in re.findall(r"^\.Fl ([\w-]+)", text, re.M)}
            entries.discard("-sameAsTrack")  # a value of -timescale
            self.assertEqual(entries, listed, name)

    def test_clipinfo_has_an_entry_for_each_option(self):
        listed = set(re.findall(r"(?<=[ \[])-[a-zA-Z]+", runs.run("clipinfo").err))
        entries = re.findall(r"^\.It (Fl .*)$", section(PAGES["clipinfo"], "OPTIONS"), re.M)
        self.assertEqual({f"-{option}" for line in entries for option in re.findall(r"Fl (\w+)", line)}, listed)

    @has_tools("mandoc")
    def test_are_well_formed(self):
        ours = "|".join(PAGES)
        found = [
            f"{name}: {line}"
            for name, page in PAGES.items()
            for line in subprocess.run(
                ["mandoc", "-T", "lint"], input=text_of(page), capture_output=True, text=True
            ).stdout.splitlines()
            if not re.search(rf"referenced manual not found: Xr ({ours})|outdated mandoc.db", line)
        ]
        self.assertEqual(found, [])


@has_tools("ffmpeg", "ffprobe")
class Examples(runs.RunTest):
    """Each example runs without an error message in a folder with the files that it names, and
    writes what the text before it promises."""

    @classmethod
    def setUpClass(cls):
        cls.inputs = runs.temporary_folder(cls)
        picture = "testsrc2=size=320x180:rate=25"
        sound = "sine=frequency=440:sample_rate=48000"
        fast = ("-c:v", "libx264", "-preset", "ultrafast", "-g", "50", "-pix_fmt", "yuv420p")

        def clip(name, seconds, picture=picture):
            make_clip(cls.inputs / name, "-f", "lavfi", "-i", picture, "-f", "lavfi", "-i", sound,
                      "-t", str(seconds), *fast, "-c:a", "aac")  # fmt: skip

        def tone(name, seconds):
            make_clip(cls.inputs / name, "-f", "lavfi", "-i", sound, "-t", str(seconds), "-c:a", "aac")

        for name in ("GOPR0001.MP4", "GP010001.MP4", "GP020001.MP4"):
            clip(name, 2)
        for name in ("one.mov", "two.mov", "other.mp4", "talk.mp4"):
            clip(name, 6)
        clip("movie.mp4", 12)
        clip("phone.mp4", 1, "color=size=1920x1080:rate=5")
        for name, seconds in (("01.m4a", 2), ("02.m4a", 3), ("03.m4a", 4), ("music.m4a", 15),
                              ("comment.m4a", 2)):  # fmt: skip
            tone(name, seconds)
        (cls.inputs / "list.txt").write_text("one.mov\ntwo.mov\none.mov\n")

    def setUp(self):
        super().setUp()
        for path in self.inputs.iterdir():
            (self.folder / path.name).write_bytes(path.read_bytes())

    path = {"PATH": f"{BIN}:{os.environ['PATH']}"}

    def run_examples(self, page):
        """The standard output of each example of the page."""
        said = []
        commands = examples(PAGES[page])
        self.assertGreaterEqual(len(commands), 3)
        for command in commands:
            done = runs.run("/bin/sh", "-c", command, cwd=self.folder, env=self.path)
            self.assertEqual((done.status, done.err.replace(TAGS_ARE_LOST, "")), (0, ""), command)
            said.append(done.out)
        return said

    def assert_written(self, name, duration, kinds, chapters=()):
        path = self.folder / name
        found = runs.ffprobe(path, "-show_format", "-show_streams", "-show_chapters")
        kinds_found = [s["codec_type"] for s in found["streams"] if s["codec_type"] != "data"]
        self.assertEqual(sorted(kinds_found), sorted(kinds), name)
        self.assertAlmostEqual(float(found["format"]["duration"]), duration, delta=0.03, msg=name)
        told = [(float(c["start_time"]), c["tags"]["title"]) for c in found["chapters"]]
        self.assertEqual(told, list(chapters), name)
        self.assertEqual(runs.complaints(path), [], name)

    def test_clipjoin(self):
        said = self.run_examples("clipjoin")
        both = ["video", "audio"]
        self.assert_written("recording.mov", 6, both)
        self.assert_written("all.mov", 18, both)
        book = [(0, "Prologue"), (2, "02"), (5, "03")]
        self.assert_written("book.mov", 9, ["audio"], book)
        self.assert_written("book.m4b", 9, ["audio"], book)
        self.assert_written("short.mov", 6.5, both)
        self.assertEqual(said[-1], "Track list for one.mov:\n\t* Video Track\n\t* Sound Track\n")

    def test_clipstak(self):
        self.run_examples("clipstak")
        self.assert_written("scored.mov", 12, ["video", "audio"])
        self.assert_written("commented.mov", 12, ["video", "audio", "audio"])
        starts = sorted(t.edits[0].duration for t in runs.tracks(self.folder / "commented.mov").values()
                        if t.edits and t.edits[0].media < 0)  # fmt: skip
        self.assertEqual(starts, [3])
        self.assert_written("both.mov", 12, ["video", "video", "audio"])

    def test_the_tour_in_the_readme(self):
        readme = (ROOT / "README.md").read_text().partition("\n## Two minutes\n")[2]
        setup = re.search(r"^```sh\n(.*?)^```$", readme, re.M | re.S)[1]
        # A fresh shell in the folder of the project, as `scripts/run` leaves it.
        (self.folder / "build").mkdir()
        (self.folder / "build" / "bin").symlink_to(BIN)
        (self.folder / "build" / "demo").symlink_to("..")
        blocks = re.findall(r"^```console\n(.*?)^```$", readme, re.M | re.S)
        steps = [step for block in blocks for step in block.removeprefix("$ ").split("\n$ ")]
        self.assertGreaterEqual(len(steps), 5)
        for step in steps:
            command, _, expected = step.rstrip("\n").partition("\n")
            done = runs.run("/bin/sh", "-c", f"{setup}({command}) 2>&1", cwd=self.folder)
            self.assertEqual(done.out.rstrip("\n"), expected, command)

    def test_cliptune(self):
        said = self.run_examples("cliptune")
        both = ["video", "audio"]
        self.assert_written("cut.mov", 10, both)
        self.assertEqual(len(runs.frames(self.folder / "cut.mov")), 250)
        self.assert_written("web.mp4", 12, both)
        order = [kind for kind, _ in runs.atoms((self.folder / "web.mp4").read_bytes())]
        self.assertLess(order.index("moov"), order.index("mdat"))
        (turned, *_) = runs.ffprobe(self.folder / "phone.mp4", "-show_streams")["streams"]
        (matrix,) = turned["side_data_list"]
        self.assertEqual(matrix["rotation"], -90)
        self.assertIn("\n00000002:     70778880           0  1073741824\n", matrix["displaymatrix"])
        chapters = [(0, "Welcome"), (4.5, "The plan")]
        self.assert_written("talk.mov", 6, both, chapters)
        self.assertIn("Chapter list for talk.mov:\n\t* Welcome\n\t* The plan\n", said[-1])


if __name__ == "__main__":
    runs.main()
