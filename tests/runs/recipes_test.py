#!/usr/bin/env python3
"""The recipes of the manual work as they are printed. Other programs look at what they make."""

import re

import runs
from pages import PAGES, Shell, examples, movie, section, tone
from runs import has_tools, make_clip


def recipes():
    """The command lines of each recipe."""
    parts = re.split(r"^\.Ss (.*)\n", section(PAGES["Reelwork"], "RECIPES"), flags=re.M)[1:]
    return {title: "".join(examples(text)) for title, text in zip(parts[::2], parts[1::2])}


def scene(turned):
    """Arguments of ffmpeg for pictures of 1920x1080 of an upright scene that is turned."""
    width, height = (540, 960) if "transpose" in turned else (960, 540)
    box = f"drawbox=w={width}:h={height}:t=fill:"
    colors = f"{box}c=red,{box}x={width}:c=lime,{box}y={height}:c=blue"
    picture = f"color=size={2 * width}x{2 * height}:rate=5,{colors},{turned}"
    return ("-f", "lavfi", "-i", picture, "-t", "0.4", "-c:v", "libx264", "-preset", "ultrafast",
            "-pix_fmt", "yuv420p")  # fmt: skip


def moved(frames, by):
    return [runs.Frame(time + by, content) for time, content in frames]


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

    def pixels(self, name):
        """The first picture as a player turns it: red, green and blue of each pixel."""
        out, _ = runs.read_by("ffmpeg", "-v", "error", "-i", self.folder / name, "-frames:v", "1",
                              "-f", "rawvideo", "-pix_fmt", "rgb24", "-")  # fmt: skip
        return out

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
        clips = [moved(runs.frames(self.folder / name), at * length) for at, name in enumerate(names)]
        return sum(clips, [])

    def test_cut_a_piece_out(self):
        self.make(*movie(12), names=["movie.mp4"])
        self.follow("Cut a piece out")
        frames = runs.frames(self.folder / "movie.mp4")
        self.assert_written("shorter.mov", 8, ["video", "audio"])
        self.assert_shows("shorter.mov", frames[:100] + moved(frames[200:], -4))

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
            name = f"hour-0{hour + 1}.mov"
            self.assert_shows(name, moved(part, -3600 * hour))
            self.assert_written(name, len(part), ["video", "audio"])
        self.assertFalse((self.folder / "hour-04.mov").exists())

    def test_split_by_chapters(self):
        self.make(*movie(12), names=["movie.mp4"])
        chapters = {"Welcome": 0, "The plan": 4.6, "The end": 10}
        options = ["-self-contained"]
        for title, start in chapters.items():
            options += ["-add-chapter", title, str(start)]
        self.join("talk.mov", "movie.mp4", options=options)
        self.follow("Split by chapters")
        frames = runs.frames(self.folder / "movie.mp4")
        starts = [*chapters.values(), 12]
        for number, title in enumerate(chapters):
            start, end = starts[number : number + 2]
            name = f"chapter-0{number + 1}.mov"
            self.assert_written(name, end - start, ["video", "audio"], [(0, title)])
            shown = [frame for frame in frames if start - 0.01 < frame.time < end - 0.01]
            self.assert_shows(name, moved(shown, -start))

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
        extracted, original = (runs.sound(self.folder / name) for name in ("sound.m4a", "movie.mp4"))
        self.assertEqual(extracted, original)
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
        turned = {
            "left.mp4": "transpose=2",
            "bottom.mp4": "hflip,vflip",
            "right.mp4": "transpose=1",
        }
        for name, how in turned.items():
            self.make(*scene(how), names=[name])
        self.follow("Turn a picture")
        for name in turned:
            width, height = (1920, 1080) if name == "bottom.mp4" else (1080, 1920)
            out = self.pixels(name)
            self.assertEqual(len(out), width * height * 3)
            corners = [3 * (y * width + x) for y in (9, height - 9) for x in (9, width - 9)]
            colors = [tuple(value > 128 for value in out[at : at + 3]) for at in corners]
            self.assertEqual(colors, [(1, 0, 0), (0, 1, 0), (0, 0, 1), (0, 0, 0)], name)
            # Where the corners of the coded picture are. FFmpeg does not move pictures.
            (stream, *_) = runs.ffprobe(self.folder / name, "-show_streams")["streams"]
            matrix = re.findall(r"(?<= )-?\d+", stream["side_data_list"][0]["displaymatrix"])
            a, b, _, c, d, _, x, y, _ = [int(number) / 65536 for number in matrix]
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
        done = self.type("set +e\n" + recipes()["Flatten a reference movie"])
        self.assertRegex(done.out, rf"fault: .*{parts[0]} is not there")
        self.assertFalse((self.folder / "flat.mov").exists())

    def test_make_an_audio_book(self):
        cover = self.folder / "cover.png"
        make_clip(cover, "-f", "lavfi", "-i", "color=red:size=64x64", "-frames:v", "1")
        self.make(*tone(1), names=["book/01.m4a"])
        self.make("-i", cover, *tone(1), "-map", "1:a", "-map", "0:v", "-c:v", "copy",
                  "-disposition:v", "attached_pic", "-metadata", "title=The Book", "-metadata",
                  "artist=A. Reader", names=["book/02.m4a"])  # fmt: skip
        plain = (self.folder / "book" / "01.m4a").read_bytes()
        for number in range(3, 31):
            (self.folder / "book" / f"{number:02}.m4a").write_bytes(plain)
        self.follow("Make an audio book")
        chapters = [(0, "Prologue"), (1, "The Book")]
        chapters += [(number - 1, f"{number:02}") for number in range(3, 31)]
        for name in ("book.mov", "book.m4b"):
            self.assert_written(name, 30, ["audio", "video"], chapters)
            tags = runs.description(self.folder / name)["format"]["tags"]
            self.assertEqual((tags["title"], tags["artist"]), ("The Book", "A. Reader"), name)
            out = self.pixels(name)
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
            self.assert_shows(cut, moved(frames, -2))

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
        done = self.type("set +e\n" + commands)
        self.assertRegex(done.out, r"^night/22.mp4: ok\nnight/23.mp4: fault: ")
        self.assertTrue(done.out.endswith("\nnight/23.mp4\n"), done.out)


if __name__ == "__main__":
    runs.main()
