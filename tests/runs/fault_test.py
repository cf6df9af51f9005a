#!/usr/bin/env python3
"""If the disk is full or fails at any call that writes, or if the process ends there, a file is the
old one or the complete new one. The CutShort unit tests try every form of file in memory; these
tests use the real system calls. Also: saves in place in each layout of a file, and who may do so."""

import os
import pathlib
import shutil
import struct
import unittest

import runs
from runs import Result

# A build with sanitizers has its own runtime, which the preloaded library does not work with.
SANITIZERS = b"__asan_init" in (runs.BIN / "cliptune").read_bytes()
PROGRAMS, LIBRARY = runs.RELEASE_BIN if SANITIZERS else runs.BIN, runs.BIN / "libfault.so"
NOBODY = 65534
LOOP = ("LOOP", bytes(4))
STRANGER = struct.pack(">I4s20s", 28, b"uuid", b"this is not our own.")
RECORDED = struct.pack(">I4s", 4000, b"free") + b"N 48.2 " * 570 + b"\0\0"
TRAILER = b"\0\0\0\5no atom"  # nothing can be appended to it, so a new file replaces the old one
FAST = ("-movflags", "+faststart")
# The options of ffmpeg and the bytes at the end of each layout of a file.
LAYOUTS = {
    "movie at the end": ((), b""),
    "movie in the middle": (FAST, STRANGER),
    "media to the end": (FAST, None),
    "free space before the media": (("-moov_size", "6000"), STRANGER),
    "free space after the media": (FAST, struct.pack(">I4s", 4000, b"free") + bytes(3992)),
    "what a recorder keeps": (FAST, RECORDED),
    "trailing bytes": ((), STRANGER + TRAILER),
}


def layout(data):
    """(type, start, end) of each atom of a file, up to the first that is cut off."""
    found, at = [], 0
    while at + 8 <= len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        end = at + (size or len(data) - at)
        if size in range(1, 8) or end > len(data):
            break
        found.append((kind.decode("latin-1"), at, end))
        at = end
    return found


class Files(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movies = runs.temporary_folder(cls)
        cls.clip = runs.make_clip(
            cls.movies / "clip.mov", "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1",
            "-f", "lavfi", "-i", "sine=d=1", "-c:v", "mpeg4", "-c:a", "aac",
        )  # fmt: skip
        cls.samples, cls.made = runs.samples_by_track(cls.clip), {}

    def store(self, name, path="movie.mov"):
        """A file with that layout."""
        path = self.folder / path
        if name not in self.made:
            options, end = LAYOUTS[name]
            data = runs.make_clip(path, "-i", self.clip, "-c", "copy", *options).read_bytes()
            if end is None:
                at = next(start for kind, start, _ in layout(data) if kind == "mdat")
                data, end = data[:at] + bytes(4) + data[at + 4 :], b""
            self.made[name] = data + end
        path.write_bytes(self.made[name])
        return path

    def save(self, path, *options, program="cliptune", **more):
        return self.run_in_folder(program, path, "-save-in-place", "-q", *options, **more)

    def assert_saves(self, path, option):
        self.assertEqual(self.save(path, option), Result(0, "", ""))

    def looping(self, path):
        """Whether the movie in the file loops. It has all samples of the clip in any case."""
        found = runs.samples_by_track(path)
        for number, samples in self.samples.items():
            self.assert_same(found[number], samples, f"track {number}")
        return LOOP in runs.atoms(runs.child(runs.movie_header(path), "udta"))


class Saves(Files):
    def test_the_media_and_all_other_atoms_stay_where_they_are(self):
        for name in LAYOUTS:
            with self.subTest(name):
                path = self.store(name)
                old, inode = path.read_bytes(), path.stat().st_ino
                self.assert_saves(path, "-set-looping")
                self.assertTrue(self.looping(path))
                new = path.read_bytes()
                if name == "trailing bytes":
                    self.assertTrue(new.endswith(STRANGER + TRAILER))
                    self.assertNotEqual(path.stat().st_ino, inode)
                    self.assertEqual([kind for kind, _, _ in layout(new)].count("free"), 0)
                else:
                    self.assertEqual(path.stat().st_ino, inode)
                    self.assertEqual(layout(new)[-1][2], len(new), "atoms to the end")
                    for kind, start, end in layout(old):
                        head = 4 if name == "media to the end" and kind == "mdat" else 0
                        if kind not in ("moov", "free") or old[start:end] == RECORDED:
                            self.assertEqual(new[start + head : end], old[start + head : end], kind)
                self.assertEqual([kind for kind, _, _ in layout(new)].count("moov"), 1)
                if "free space" in name:
                    self.assertEqual(len(new), len(old), "the free space was not used")
                sizes = []
                for _ in range(3):
                    for option in ("-unset-looping", "-set-looping"):
                        self.assert_saves(path, option)
                        sizes.append(path.stat().st_size)
                self.assertTrue(self.looping(path))
                self.assertEqual(len(set(sizes[-3:])), 1 + (name == "trailing bytes"), sizes)

    def test_five_gigabytes_of_media_up_to_the_end(self):
        path = self.store("media to the end")
        old, length = path.read_bytes(), (5 << 30) + 1
        start = next(start for kind, start, _ in layout(old) if kind == "wide")
        os.truncate(path, length)
        self.assert_saves(path, "-set-looping")
        with open(path, "rb") as file:
            head = file.read(len(old))
            file.seek(length)
            movie = file.read()
        os.truncate(path, 0)
        self.assertEqual(head[start:][:16], struct.pack(">I4sQ", 1, b"mdat", length - start))
        self.assertEqual(head[start + 16 :], old[start + 16 :])
        self.assertEqual([kind for kind, _, _ in layout(movie)], ["moov"])
        self.assertIn(LOOP, runs.atoms(runs.child(movie, "moov", "udta")))

    def test_a_file_that_is_replaced_keeps_its_attributes(self):
        path = self.store("trailing bytes")
        os.setxattr(path, "user.note", b"mine")
        if os.geteuid() == 0:
            os.chown(path, NOBODY, NOBODY)
        path.chmod(0o640)
        was = path.stat()
        self.assert_saves(path, "-set-looping")
        now = path.stat()
        self.assertEqual((now.st_mode, now.st_uid, now.st_gid), (was.st_mode, was.st_uid, was.st_gid))
        self.assertEqual(os.getxattr(path, "user.note"), b"mine")

    @runs.needs_root
    def test_a_read_only_file(self):
        path = self.store("movie at the end")
        old = path.read_bytes()
        self.folder.chmod(0o755)
        program = shutil.copy((runs.BIN / "cliptune").resolve(), self.folder / "cliptune")
        done = self.save("movie.mov", program=pathlib.Path(program), user=NOBODY, extra_groups=[])
        said = (
            "Permissions error reading movie.mov\n"
            "Make sure the movie file is readable and writeable\n"
        )
        self.assertEqual(done, Result(0, "", said))
        self.assertEqual(path.read_bytes(), old)


@unittest.skipUnless(PROGRAMS.exists(), f"there is no release build: {PROGRAMS}")
class FailingDisk(Files):
    OLD = b"what was here before\n" * 1000

    def jobs(self):
        """(name, what makes the old file, command, what the file is then) of each job: joins in each
        form that replace a file or make a new one, and saves in place and by a new file."""

        def content(path):
            return path.read_bytes() if path.exists() else None

        out = self.folder / "out.mov"
        for options in ([], ["-self-contained"], ["-mp4"]):
            command = ["clipjoin", self.clip, self.clip, "-q", *options, "-o", "out.mov"]
            yield f"join {options}", lambda: out.write_bytes(self.OLD), command, content
            yield f"new join {options}", lambda: None, command, content
        for name in ("movie at the end", "trailing bytes"):
            command = ["cliptune", "out.mov", "-save-in-place", "-set-looping", "-q"]
            yield name, lambda name=name: self.store(name, "out.mov"), command, self.looping

    def run_job(self, prepare, command, **faults):
        for path in self.folder.iterdir():
            path.unlink()
        prepare()
        faults["LD_PRELOAD"] = str(LIBRARY)
        return self.run_in_folder(PROGRAMS / command[0], *command[1:], env=faults)

    def each_call(self, kind, **more):
        """Runs each job once for each of its calls that write, with a fault at that call. Yields the
        name of the job, the result, and whether the new file is there; otherwise the old one is."""
        path, count = self.folder / "out.mov", self.movies / "count"
        for name, prepare, command, state in self.jobs():
            done = self.run_job(prepare, command, FAULT_COUNT_FILE=str(count), **more)
            self.assertEqual(done, (0, "", ""))
            new = state(path)
            self.run_job(prepare, ["clipjoin"])
            old, calls = state(path), int(count.read_text())
            self.assertGreaterEqual(calls, 3)
            self.assertNotEqual(old, new)
            for call in range(1, calls + 1):
                with self.subTest(name, kind=kind, call=call, **more):
                    faults = {"FAULT_AT": str(call), "FAULT_KIND": kind, **more}
                    done = self.run_job(prepare, command, **faults)
                    found = state(path)
                    # A name that was free is taken by an empty file at first.
                    began = [b""] if "new" in name and kind in ("kill", "term") else []
                    self.assertIn(found, [old, new, *began])
                    yield name, done, found == new

    def test_a_full_or_failing_disk_at_any_call(self):
        for kind, code in (("ENOSPC", -34), ("EIO", -36)):
            for more in ({}, {"FAULT_NAMED": "1"}):
                for name, done, is_new in self.each_call(kind, **more):
                    # A failure may be silent only if the call just makes writing faster, or if it
                    # keeps an attribute of the old file that the system may refuse.
                    error = rf"Error in \w+ at line \d+ of utils\.cpp: {code}\n"
                    self.assertRegex(done.err, f"^({error}){'*' if is_new else '+'}$")
                    if "join" not in name:
                        self.assertEqual(done.status, 1 if done.err else 0)
                    left = os.listdir(self.folder)
                    self.assertEqual(left, ["out.mov"] if is_new or "new" not in name else [])

    def test_a_process_that_ends_at_any_call(self):
        for kind in ("kill", "term"):
            for more in ({}, {"FAULT_NAMED": "1"}):
                hidden = 0
                for name, done, _ in self.each_call(kind, **more):
                    self.assertLess(done.status, 0)
                    left = set(os.listdir(self.folder)) - {"out.mov"}
                    hidden += len(left) if name.startswith("join") else 0
                    if kind == "kill" and "join" not in name:  # the save can be repeated
                        self.assert_saves(self.folder / "out.mov", "-set-looping")
                        self.assertTrue(self.looping(self.folder / "out.mov"))
                if kind == "term":
                    self.assertEqual(hidden, 0)
                elif not more:
                    # A file without a name gets a hidden one just before it replaces another.
                    self.assertEqual(hidden, 3)

    def test_the_old_output_keeps_its_rights_and_the_new_one_has_them(self):
        _, prepare, command, _ = next(self.jobs())
        for faults in ({}, {"FAULT_AT": "4", "FAULT_KIND": "EIO"}):

            def with_rights():
                prepare()
                (self.folder / "out.mov").chmod(0o640)

            self.run_job(with_rights, command, **faults)
            self.assertEqual((self.folder / "out.mov").stat().st_mode & 0o777, 0o640)


if __name__ == "__main__":
    runs.main()
