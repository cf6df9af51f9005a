#!/usr/bin/env python3
"""No command harms a file that it was not asked to change. After mistakes, races and odd inputs,
every file is as it was, and a message says so."""

import os
import resource
import struct
import subprocess
import time
import unittest

import runs
from runs import Result

BUSY = (
    "The output file {} is busy.\nPlease check to see if another application has it open\n"
)
FORMS = {"reference": [], "self-contained": ["-self-contained"], "MPEG-4": ["-mp4"]}


def atom(kind, content):
    return struct.pack(">I4s", 8 + len(content), kind) + content


@runs.has_tools("ffmpeg", "ffprobe")
class Unharmed(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        source = ("-f", "lavfi", "-i", "testsrc2=s=160x120:r=25:d=2",
                  "-f", "lavfi", "-i", "sine=d=2", "-c:v", "mpeg4")  # fmt: skip
        cls.clip = runs.make_clip(folder / "clip.mov", *source).read_bytes()
        fragmented = ("-movflags", "frag_keyframe+empty_moov")
        cls.fragments = runs.make_clip(folder / "f.mov", *source, *fragmented).read_bytes()

    def store(self, name, content):
        path = self.folder / name
        path.write_bytes(content)
        return path

    def contents(self):
        return {p.name: p.read_bytes() for p in self.folder.iterdir() if p.is_file()}

    def assert_nothing_changes(self, command, *arguments, **more):
        """The files in the folder stay as they are. Returns the result."""
        before = self.contents()
        done = self.run_in_folder(command, *arguments, **more)
        self.assertEqual(self.contents(), before, done)
        return done

    def test_a_movie_that_shows_nothing_replaces_no_file(self):
        self.store("in.mov", self.clip)
        self.store("out.mov", b"an old movie")
        self.store("text.mov", b"no movie")
        mistakes = (["missing.mov"], ["text.mov"], ["in.mov", "-track", "none"],
                    ["in.mov", "-startAt", "1:00"])  # fmt: skip
        for inputs in mistakes:
            for options in FORMS.values():
                with self.subTest(inputs=inputs, options=options):
                    done = self.assert_nothing_changes(
                        "clipjoin", *inputs, "-q", *options, "-o", "out.mov"
                    )
                    if "-mp4" not in options:
                        self.assertRegex(done.err, r"at line \d+ of utils\.cpp: -2048\n$")
                    # An output that replaces nothing is written.
                    self.run_in_folder("clipjoin", *inputs, "-q", *options, "-o", "new.mov")
                    self.assertEqual((self.folder / "new.mov").exists(), "-mp4" not in options)
                    (self.folder / "new.mov").unlink(missing_ok=True)
        done = self.assert_nothing_changes("cliptune", "in.mov", "-startAt", "1:00",
                                           "-save-in-place")  # fmt: skip
        self.assertRegex(done.err, r"^Error in UpdateMovieInStorage at line \d+ of .*: -2048\n")

    def test_an_output_never_replaces_an_input(self):
        movie = self.store("in.mov", self.clip)
        self.store("other.mov", self.clip)
        os.link(movie, self.folder / "hard.mov")
        (self.folder / "soft.mov").symlink_to("in.mov")
        for options in FORMS.values():
            for name in ("in.mov", "hard.mov", "soft.mov"):
                for inputs in (["in.mov"], ["other.mov", "in.mov"], ["in.mov", "-track", "none"]):
                    with self.subTest(options=options, name=name, inputs=inputs):
                        done = self.assert_nothing_changes(
                            "clipjoin", *inputs, "-q", *options, "-o", name
                        )
                        if "none" not in inputs:
                            self.assertIn(BUSY.format(name), done.err)
        self.join("refers.mov", "in.mov")
        (self.folder / "elsewhere").mkdir()
        done = self.assert_nothing_changes("clipjoin", "refers.mov", "-q", "-o", "in.mov")
        self.assertEqual(done.err, BUSY.format("in.mov"))

    def test_closed_standard_streams_get_no_movie(self):
        for closed in ("<&-", ">&-", "2>&-", "<&- >&- 2>&-"):
            with self.subTest(closed):
                path = self.store("in.mov", self.clip)
                # Prints to both streams while the movie is open for writing.
                script = f'"$0" in.mov -set-looping -save-in-place -list missing.mov {closed}'
                subprocess.run(["sh", "-c", script, runs.BIN / "cliptune"], cwd=self.folder,
                               capture_output=True, timeout=60)  # fmt: skip
                self.assertIn(b"LOOP", runs.movie_header(path))
                self.assertEqual(path.read_bytes()[:4], self.clip[:4])

    def test_a_failed_export_leaves_nothing(self):
        self.store("in.mov", self.clip)
        with open(self.folder / "in.mov", "r+b") as file:
            file.truncate(file.seek(0, os.SEEK_END) // 2 if self.clip[4:8] == b"moov" else 400)
        media = self.store("media.mov", self.clip)
        self.join("refers.mov", "media.mov")
        media.write_bytes(self.clip[:200])
        self.assert_nothing_changes("clipjoin", "refers.mov", "-q", "-mp4", "-o", "out.mp4")

    def test_a_file_that_references_need_is_not_rearranged(self):
        self.store("refers.mov", self.clip)
        self.store("in.mov", self.fragments)
        done = self.run_in_folder(
            "cliptune", "refers.mov", "-save-in-place", "in.mov", "-save-in-place"
        )
        self.assertEqual((self.folder / "in.mov").read_bytes(), self.fragments)
        self.assertRegex(done.err, r"^Error in UpdateMovieInStorage at line \d+ of .*: -47\n")
        flat = self.join_whole("flat.mov", "refers.mov")
        self.assertEqual(len(runs.frames(flat)), 100)

    def test_a_file_that_is_replaced_keeps_its_attributes(self):
        path = self.store("in.mov", self.clip + b"trailing bytes")
        try:
            os.setxattr(path, "user.note", b"mine")
        except OSError:
            self.skipTest("there are no extended attributes here")
        if os.geteuid() == 0:
            os.chown(path, 65534, 65534)
        path.chmod(0o640)
        was = path.stat()
        done = self.run_in_folder("cliptune", "in.mov", "-set-looping", "-save-in-place")
        self.assertEqual(done, Result(0, "", ""))
        now = path.stat()
        self.assertNotEqual(now.st_ino, was.st_ino)
        for field in ("st_mode", "st_uid", "st_gid"):
            self.assertEqual(getattr(now, field), getattr(was, field), field)
        self.assertEqual(os.getxattr(path, "user.note"), b"mine")

    def test_a_save_cut_short_costs_the_next_one_nothing(self):
        # What a power cut leaves of a movie header, or of media, that was being appended.
        for tail in (struct.pack(">I4s", 5000, b"moov") + bytes(100),
                     atom(b"wide", b"") + struct.pack(">I4s", 5000, b"mdat") + bytes(100)):  # fmt: skip
            path = self.store("in.mov", self.clip + tail)
            inode = path.stat().st_ino
            for option in ("-set-looping", "-unset-looping"):
                done = self.run_in_folder("cliptune", "in.mov", option, "-save-in-place")
                self.assertEqual(done, Result(0, "", ""))
                self.assertEqual(path.stat().st_ino, inode)
                self.assertEqual(len(runs.frames(path)), 50)
        # A limit on the size of files does not harm the file either, and does not end the process.
        path = self.store("in.mov", self.clip)
        limit = len(self.clip) + 300
        done = self.assert_nothing_changes(
            "cliptune", "in.mov", "-set-looping", "-save-in-place", "-q",
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit)),
        )  # fmt: skip
        self.assertRegex(done.err, r"^Error in UpdateMovieInStorage at line \d+ of .*: -36\n$")
        # Truncated media at the end is not such a tail if the movie needs it.
        fast = self.join("fast.mov", self.store("in2.mov", self.clip),
                         options=["-self-contained"])  # fmt: skip
        data = fast.read_bytes()
        self.assertLess(data.index(b"moov"), data.index(b"mdat"))
        short = self.store("short.mov", data[: len(data) * 3 // 4])
        self.run_in_folder("cliptune", "short.mov", "-set-looping", "-save-in-place")
        self.assertTrue(short.read_bytes().endswith(data[len(data) // 2 : len(data) * 3 // 4]))

    def test_a_free_atom_with_data_is_not_overwritten(self):
        note = b"what the recorder knows"
        path = self.store("in.mov", self.clip + atom(b"free", bytes(3 << 20) + note))
        with open(path, "ab") as file:  # a hole of one gigabyte, which takes no disk space
            file.write(struct.pack(">I4s", 1 << 30, b"free"))
            file.truncate(file.tell() + (1 << 30) - 8)
        for option in ("-set-looping", "-unset-looping"):
            done = self.run_in_folder("cliptune", "in.mov", option, "-save-in-place",
                                      timeout=10)  # fmt: skip
            self.assertEqual(done, Result(0, "", ""))
        with open(path, "rb") as file:
            self.assertIn(note, file.read(len(self.clip) + (4 << 20)))
        self.assertLess(path.stat().st_blocks * 512, len(self.clip) + (8 << 20))
        self.assertEqual(path.stat().st_size, len(self.clip) + (3 << 20) + 8 + len(note) + (1 << 30))

    def test_of_two_saves_at_once_none_is_lost(self):
        edits = {"-set-looping": "LOOP", "-set-auto-play": "play"}
        refused = 0
        for number in range(24):
            path = self.store("in.mov", self.fragments if number % 2 else self.clip)
            saves = {}
            for option in edits:
                command = [runs.BIN / "cliptune", "in.mov", "-save-in-place", option, "-q"]
                saves[option] = subprocess.Popen(command, cwd=self.folder, stderr=subprocess.PIPE)
                time.sleep(number * 0.0005)
            texts = {option: save.communicate(timeout=60)[1] for option, save in saves.items()}
            header = runs.movie_header(path)
            for option, kind in edits.items():
                # A save that prints nothing has succeeded.
                if texts[option]:
                    self.assertIn(b"-47", texts[option])
                    refused += 1
                else:
                    self.assertIn(kind.encode(), header, f"pair {number}: {option} is lost")
            self.assertEqual(len(runs.frames(path)), 50)
        self.assertGreater(refused, 0)

    def test_an_input_that_is_no_regular_file_is_refused_at_once(self):
        os.mkfifo(self.folder / "pipe")
        for name in ("pipe", "/dev/zero", "."):
            done = self.run_in_folder("clipjoin", name, "-o", "out.mov", "-q", timeout=10)
            self.assertIn(f"Error -1302 reading {name}\n", done.err)
            (self.folder / "out.mov").unlink(missing_ok=True)
        with open(self.store("in.mov", self.clip), "rb") as movie:
            command = [runs.BIN / "clipjoin", "/dev/stdin", "-self-contained", "-o", "out.mov"]
            subprocess.run(command, cwd=self.folder, stdin=movie, check=True, timeout=60)
        self.assertEqual(len(runs.frames(self.folder / "out.mov")), 50)


if __name__ == "__main__":
    runs.main()
