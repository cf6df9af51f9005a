#!/usr/bin/env python3
"""The manual pages describe all options of the commands, and the examples in the pages and in the
README work."""

import gzip
import json
import os
import re
import subprocess
import unittest
import xml.etree.ElementTree as ElementTree

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

SVG = "{http://www.w3.org/2000/svg}"

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


def recipes():
    """The command lines of each recipe."""
    parts = re.split(r"^\.Ss (.*)\n", section(PAGES["Reelwork"], "RECIPES"), flags=re.M)[1:]
    return {title: "".join(examples(text)) for title, text in zip(parts[::2], parts[1::2])}


class Pages(unittest.TestCase):
    def test_apropos_finds_the_words_that_people_type(self):
        words = {
            "clipjoin": ["join movie", "audio book"],
            "clipstak": ["combine", "music"],
            "cliptune": ["cut", "rotate", "slow", "chapters"],
            "clipinfo": ["check", "compare", "chapters"],
            "Reelwork": ["recipes", "audio book", "reference movie"],
        }
        for name, expected in words.items():
            line = re.search(r"^\.Nd (.*)$", text_of(PAGES[name]), re.M)[1]
            self.assertEqual([word for word in expected if word not in line], [], name)
            if name != "Reelwork":
                self.assertIn(".Xr Reelwork 7\nhas recipes for", section(PAGES[name], "DESCRIPTION"))

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


def masked(text):
    """What clipinfo prints, without what depends on the encoder, the day and the folder."""
    text = re.sub(r"\d[\d,.]* (bytes|[kM]?B\b)|(?<=bytes at )[\d,]+|(?<=hash )[0-9a-f]{32}|Lavf\S+", "X", text)
    text = re.sub(r"\d+-\d+-\d+ \d+:\d+:\d+ UTC|/\S+(?=/build/demo/)", "X", text)
    return re.sub(" +", " ", text).rstrip("\n")


def movie(seconds, picture="testsrc2=size=320x180:rate=25", pitch=440, keys=50):
    """Arguments of ffmpeg for a movie with B-frames and a tone."""
    return (
        "-f", "lavfi", "-i", picture, "-f", "lavfi", "-i", f"sine=frequency={pitch}:sample_rate=48000",
        "-t", str(seconds), "-c:v", "libx264", "-preset", "veryfast", "-g", str(keys),
        "-sc_threshold", "0", "-pix_fmt", "yuv420p", "-c:a", "aac",
    )  # fmt: skip


def tone(seconds, pitch=440):
    """Arguments of ffmpeg for a tone."""
    return "-f", "lavfi", "-i", f"sine=frequency={pitch}:sample_rate=48000", "-t", str(seconds), "-c:a", "aac"


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


@has_tools("ffmpeg", "ffprobe")
class Examples(Shell):
    """Each example runs without an error message in a folder with the files that it names, and
    writes what the text before it promises."""

    @classmethod
    def setUpClass(cls):
        cls.inputs = runs.temporary_folder(cls)
        for name, seconds in {"one.mov": 6, "two.mov": 6, "other.mp4": 6, "talk.mp4": 6, "movie.mp4": 12}.items():
            make_clip(cls.inputs / name, *movie(seconds))
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
        for movie in re.findall(r'make_movie "\$demo/(\w+.mov)" (.*)', script):
            done = runs.run("/bin/bash", "-e", "-c", f"{make_movie}make_movie {' '.join(movie)}", cwd=demo)
            self.assertEqual(done, runs.Result(0, "", ""))
        blocks = re.findall(r"^```console\n(.*?)^```$", readme, re.M | re.S)
        steps = [step for block in blocks for step in block.removeprefix("$ ").split("\n$ ")]
        self.assertGreaterEqual(len(steps), 12)
        for step in steps:
            command, _, expected = step.rstrip("\n").partition("\n")
            done = runs.run("/bin/sh", "-c", f"{setup}({command}) 2>&1", cwd=self.folder)
            self.assertEqual(masked(done.out), masked(expected), command)
        drawn, kept = demo / "stack.svg", ROOT / "pictures" / "stack.svg"
        self.assertEqual(*([text.text for text in ElementTree.parse(picture).iter(f"{SVG}text")] for picture in (drawn, kept)))

    def test_cliptune(self):
        said = self.run_examples("cliptune")
        both = ["video", "audio"]
        self.assert_written("cut.mov", 10, both)
        self.assertEqual(len(runs.frames(self.folder / "cut.mov")), 250)
        chapters = [(0, "Welcome"), (4.5, "The plan")]
        self.assert_written("talk.mov", 6, both, chapters)
        self.assertIn("Chapter list for talk.mov:\n\t* Welcome\n\t* The plan\n", said[-1])


def scene(turned):
    """Arguments of ffmpeg for pictures of 1920x1080 of an upright scene that is turned."""
    upright = "2" if "transpose" in turned else "1"
    width, height = (540, 960) if upright == "2" else (960, 540)
    box = f"drawbox=w={width}:h={height}:t=fill:"
    colors = f"{box}c=red,{box}x={width}:c=lime,{box}y={height}:c=blue"
    return ("-f", "lavfi", "-i", f"color=size={2 * width}x{2 * height}:rate=5,{colors},{turned}", "-t", "0.4",
            "-c:v", "libx264", "-preset", "ultrafast", "-pix_fmt", "yuv420p")  # fmt: skip


@has_tools("ffmpeg", "ffprobe", "jq")
class Recipes(Shell):
    """Each recipe runs as it is printed, and does what it says."""

    def make(self, *arguments, names):
        for name in names:
            (self.folder / name).parent.mkdir(exist_ok=True)
            make_clip(self.folder / name, *arguments)

    def follow(self, title):
        """Types the command lines of a recipe, which print no error. Returns what they print."""
        done = self.type(recipes()[title])
        self.assertEqual((done.status, done.err), (0, ""), title)
        return done.out

    def assert_shows(self, name, expected, delta=0.001):
        """Checks which pictures are shown, and when."""
        found = runs.frames(self.folder / name)
        self.assert_same([frame.hash for frame in found], [frame.hash for frame in expected], name)
        for one, other in zip(found, expected):
            self.assertAlmostEqual(one.time, other.time, delta=delta, msg=name)

    def pitch(self, name, stream="a:0"):
        """The frequency of a tone."""
        wave = runs.sound(self.folder / name, stream)[4800:52800]
        return sum(one < 0 <= other for one, other in zip(wave, wave[1:]))

    def test_there_is_a_test_for_each(self):
        tried = {re.sub(r"^test_", "", name) for name in dir(self) if name.startswith("test_")}
        named = {re.sub(r"\W", "_", title.lower()) for title in recipes()}
        self.assertEqual(named, tried - {"there_is_a_test_for_each"})

    def test_join_the_files_of_one_recording(self):
        parts = ("GOPR0001.MP4", "GP010001.MP4", "GP020001.MP4")
        for hue, name in enumerate(parts):
            self.make(*movie(2, f"testsrc2=size=320x180:rate=25,hue=h={90 * hue}"), names=[name])
        said = self.follow("Join the files of one recording")
        self.assertRegex(said, r"^same: 2 tracks")
        self.assert_written("recording.mov", 6, ["video", "audio"])
        self.assert_shows("recording.mov", self.joined(parts, 2))

    def joined(self, names, length):
        """The pictures of clips of the same length, one clip after the other."""
        return [
            runs.Frame(number * length + frame.time, frame.hash)
            for number, name in enumerate(names)
            for frame in runs.frames(self.folder / name)
        ]

    def test_cut_a_piece_out(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.follow("Cut a piece out")
        frames = runs.frames(self.folder / "movie.mp4")
        kept = frames[:100] + [runs.Frame(time - 4, content) for time, content in frames[200:]]
        self.assert_written("shorter.mov", 8, ["video", "audio"])
        self.assert_shows("shorter.mov", kept)

    def test_split_by_hours(self):
        self.make("-f", "lavfi", "-i", "testsrc2=size=64x64:rate=1", "-f", "lavfi", "-i",
                  "sine=sample_rate=8000", "-t", "420", "-c:v", "libx264", "-g", "10", "-c:a", "aac",
                  names=["piece.mov"])  # fmt: skip
        self.join_whole("day.mov", *["piece.mov"] * 18)
        self.assertRegex(self.follow("Split by hours"), r"^same: ")
        frames = runs.frames(self.folder / "day.mov")
        self.assertEqual(len(frames), 7560)
        for hour in range(3):
            part = frames[3600 * hour : 3600 * (hour + 1)]
            shown = [runs.Frame(time - 3600 * hour, content) for time, content in part]
            self.assert_shows(f"hour-0{hour + 1}.mov", shown)
            self.assertAlmostEqual(float(runs.movie_duration(self.folder / f"hour-0{hour + 1}.mov")), len(part), delta=0.2)
        self.assertFalse((self.folder / "hour-04.mov").exists())

    def test_split_by_chapters(self):
        self.make(*movie(12), names=["movie.mp4"])
        chapters = {"Welcome": 0, "The plan": 4.6, "The end": 10}
        options = [word for title, start in chapters.items() for word in ("-add-chapter", title, str(start))]
        self.join("talk.mov", "movie.mp4", options=[*options, "-self-contained"])
        self.follow("Split by chapters")
        frames = runs.frames(self.folder / "movie.mp4")
        starts = [*chapters.values(), 12]
        for number, title in enumerate(chapters):
            start, end = starts[number : number + 2]
            name = f"chapter-0{number + 1}.mov"
            self.assert_written(name, end - start, ["video", "audio"], [(0, title)])
            shown = [runs.Frame(f.time - start, f.hash) for f in frames if start - 0.01 < f.time < end - 0.01]
            self.assert_shows(name, shown)

    def test_repair_late_or_early_sound(self):
        for name, onset in (("late.mp4", 2.3), ("early.mp4", 1.7)):
            self.make("-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25", "-f", "lavfi", "-i",
                      f"aevalsrc=gte(t\\,{onset})*sin(2*PI*880*t):sample_rate=48000", "-t", "4",
                      "-c:v", "libx264", "-pix_fmt", "yuv420p", "-c:a", "aac", names=[name])  # fmt: skip
        self.follow("Repair late or early sound")
        for name, before in (("repaired.mov", "late.mp4"), ("delayed.mov", "early.mp4")):
            self.assert_shows(name, runs.frames(self.folder / before))
            (_, stream) = runs.ffprobe(self.folder / name, "-show_streams")["streams"]
            wave = runs.sound(self.folder / name)
            onset = next(at for at, value in enumerate(wave) if abs(value) > 3000) / 48000
            self.assertAlmostEqual(float(stream["start_time"]) + onset, 2.0, delta=0.022, msg=name)

    def test_slow_motion(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.follow("Slow motion")
        frames = runs.frames(self.folder / "movie.mp4")
        self.assert_written("slow.mp4", 24, ["video"])
        self.assert_shows("slow.mp4", [runs.Frame(2 * time, content) for time, content in frames])
        slowed = [max(0, min(f.time, 6) - 4) * 3 + f.time for f in frames]
        shown = [runs.Frame(time, frame.hash) for time, frame in zip(slowed, frames)]
        self.assert_written("partly.mov", 18, ["video"])
        self.assert_shows("partly.mov", shown, delta=0.32)

    def test_remove__extract_or_replace_the_sound(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.make(*tone(15, 880), names=["music.m4a"])
        self.follow("Remove, extract or replace the sound")
        self.assert_written("silent.mov", 12, ["video"])
        self.assert_written("sound.m4a", 12, ["audio"])
        self.assertEqual(runs.sound(self.folder / "sound.m4a"), runs.sound(self.folder / "movie.mp4"))
        self.assert_written("scored.mov", 12, ["video", "audio"])
        self.assertAlmostEqual(self.pitch("scored.mov"), 880, delta=2)
        for name in ("silent.mov", "scored.mov"):
            self.assert_shows(name, runs.frames(self.folder / "movie.mp4"))

    def test_put_music_under_a_clip(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.make(*tone(15, 880), names=["music.m4a"])
        self.follow("Put music under a clip")
        self.assert_written("music.mov", 12, ["video", "audio", "audio"])
        self.assert_shows("music.mov", runs.frames(self.folder / "movie.mp4"))
        streams = runs.ffprobe(self.folder / "music.mov", "-show_streams")["streams"]
        self.assertEqual([float(stream["start_time"]) for stream in streams], [0, 0, 3])
        pitches = [self.pitch("music.mov", stream) for stream in ("a:0", "a:1")]
        self.assertEqual([round(pitch, -1) for pitch in pitches], [440, 880])

    def test_turn_a_picture(self):
        turned = {"left.mp4": "transpose=2", "bottom.mp4": "hflip,vflip", "right.mp4": "transpose=1"}
        for name, how in turned.items():
            self.make(*scene(how), names=[name])
        self.follow("Turn a picture")
        for name in turned:
            width, height = (1920, 1080) if name == "bottom.mp4" else (1080, 1920)
            out, _ = runs.read_by("ffmpeg", "-v", "error", "-i", self.folder / name, "-frames:v", "1",
                                  "-f", "rawvideo", "-pix_fmt", "rgb24", "-")  # fmt: skip
            self.assertEqual(len(out), width * height * 3)
            corners = [3 * (y * width + x) for y in (9, height - 9) for x in (9, width - 9)]
            colors = [tuple(value > 128 for value in out[at : at + 3]) for at in corners]
            self.assertEqual(colors, [(1, 0, 0), (0, 1, 0), (0, 0, 1), (0, 0, 0)], name)
            # Where the corners of the coded picture are. FFmpeg does not move pictures.
            (stream, *_) = runs.ffprobe(self.folder / name, "-show_streams")["streams"]
            rows = stream["side_data_list"][0]["displaymatrix"].strip().split("\n")
            (a, b, _), (c, d, _), (x, y, _) = ([int(word) / 65536 for word in row.split()[1:]] for row in rows)
            places = {(x + a * w + c * h, y + b * w + d * h) for w in (0, 1920) for h in (0, 1080)}
            self.assertEqual(places, {(w, h) for w in (0, width) for h in (0, height)}, name)

    def test_flatten_a_reference_movie(self):
        parts = [f"part{number}.mp4" for number in (1, 2)]
        self.make(*movie(2), names=parts)
        self.join("reference.mov", *parts)
        paths = "".join(f"{(self.folder / name).resolve()}\n" for name in parts)
        said = self.follow("Flatten a reference movie")
        self.assertTrue(said.startswith(paths + "reference.mov: ok\nsame: 2 tracks"), said)
        shown = self.joined(parts, 2)
        (self.folder / parts[0]).unlink()
        self.assert_written("flat.mov", 4, ["video", "audio"])
        self.assert_shows("flat.mov", shown)

        (self.folder / "flat.mov").unlink()
        done = self.type(recipes()["Flatten a reference movie"])
        self.assertRegex(done.out, rf"fault: .*{parts[0]} is not there")
        self.assertFalse((self.folder / "flat.mov").exists())

    def test_make_an_audio_book(self):
        cover = self.folder / "cover.png"
        make_clip(cover, "-f", "lavfi", "-i", "color=red:size=64x64", "-frames:v", "1")
        self.make(*tone(1), names=["book/01.m4a"])
        self.make("-i", cover, *tone(1), "-map", "1:a", "-map", "0:v", "-c:v", "copy", "-disposition:v",
                  "attached_pic", "-metadata", "title=The Book", "-metadata", "artist=A. Reader",
                  names=["book/02.m4a"])  # fmt: skip
        for number in range(3, 31):
            (self.folder / "book" / f"{number:02}.m4a").write_bytes((self.folder / "book/01.m4a").read_bytes())
        self.follow("Make an audio book")
        chapters = [(0, "Prologue"), (1, "The Book")]
        chapters += [(number - 1, f"{number:02}") for number in range(3, 31)]
        for name in ("book.mov", "book.m4b"):
            self.assert_written(name, 30, ["audio", "video"], chapters)
            tags = runs.description(self.folder / name)["format"]["tags"]
            self.assertEqual((tags["title"], tags["artist"]), ("The Book", "A. Reader"), name)
            out, _ = runs.read_by("ffmpeg", "-v", "error", "-i", self.folder / name, "-map", "0:v",
                                  "-f", "rawvideo", "-pix_fmt", "rgb24", "-")  # fmt: skip
            self.assertEqual((len(out), out[0] > 240, out[1] < 16), (64 * 64 * 3, True, True), name)
        self.assertEqual(*(runs.sound(self.folder / name) for name in ("book.mov", "book.m4b")))

    def test_edit_a_folder_of_clips(self):
        names = ["clips/first.mp4", "clips/the second.mp4"]
        self.make(*movie(4), names=names)
        self.follow("Edit a folder of clips")
        self.assert_shows("all.mov", self.joined(names, 4))
        for name in names:
            frames = runs.frames(self.folder / name)[50:]
            cut = name.replace("clips/", "cut/").replace(".mp4", ".mov")
            self.assert_written(cut, 2, ["video", "audio"])
            self.assert_shows(cut, [runs.Frame(time - 2, content) for time, content in frames])

    def test_make_an_mp4_for_a_web_page(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.follow("Make an MP4 for a web page")
        self.assert_written("web.mp4", 12, ["video", "audio"])
        self.assert_shows("web.mp4", runs.frames(self.folder / "movie.mp4"))
        kinds = [kind for kind, _ in runs.atoms((self.folder / "web.mp4").read_bytes())]
        self.assertLess(kinds.index("moov"), kinds.index("mdat"))
        self.assertNotEqual(runs.child((self.folder / "web.mp4").read_bytes(), "moov", "mvhd"), b"")

    def test_check_and_prove_the_recordings_of_a_night(self):
        names = [f"night/{hour}.mp4" for hour in (22, 23)]
        self.make(*movie(2), names=names)
        said = self.follow("Check and prove the recordings of a night")
        self.assertRegex(said, r"^night/22.mp4: ok\nnight/23.mp4: ok\nsame: 2 tracks, .*\n$")
        self.assert_shows("night.mov", self.joined(names, 2))

        with open(self.folder / names[1], "r+b") as damaged:
            damaged.truncate(20000)
        commands = recipes()["Check and prove the recordings of a night"]
        done = self.type(commands.replace("\n$", " || true\n", 1).replace("mp4\nclip", "mp4 || true\nclip"))
        self.assertRegex(done.out, r"^night/22.mp4: ok\nnight/23.mp4: fault: ")
        self.assertTrue(done.out.endswith("\nnight/23.mp4\n"), done.out)


if __name__ == "__main__":
    runs.main()
