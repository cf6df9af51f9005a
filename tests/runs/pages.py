"""Shared by the tests of the manual pages: what the pages say, and a shell to try it."""

import gzip
import os
import re

import runs
from runs import BIN, ROOT

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


def movie(seconds, picture="testsrc2=size=320x180:rate=25"):
    """Arguments of ffmpeg for a movie with B-frames, a key frame every two seconds, and a tone."""
    return (
        "-f", "lavfi", "-i", picture, *tone(seconds), "-c:v", "libx264", "-preset", "veryfast",
        "-g", "50", "-sc_threshold", "0", "-pix_fmt", "yuv420p",
    )  # fmt: skip


def tone(seconds, pitch=440):
    """Arguments of ffmpeg for a tone."""
    sine = f"sine=frequency={pitch}:sample_rate=48000"
    return "-f", "lavfi", "-i", sine, "-t", str(seconds), "-c:a", "aac"


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
