#!/usr/bin/env python3
"""If the disk is full or fails at any call that writes, or if the process ends there, a file is the
old one or the complete new one; where there was none, it may be empty if the process ends. The
CutShort unit tests try every form of file in memory; these tests use the real system calls."""

import errno
import itertools
import os
import signal

import runs
from runs import Result

OLD = b"what was here before\n" * 1000
CLIP = runs.DATA / "h264.mp4"
ALWAYS_NAMED = {"FAULT_NAMED": "1"}  # as on file systems where each file has a name
TRAILER = b"\0\0\0\5no atom"  # nothing can be appended to it, so a new file replaces the old one


class FailingDisk(runs.RunTest):
    def setUp(self):
        super().setUp()
        self.out = self.folder / "out.mov"

    def jobs(self):
        """(name, the old file, command) of each job: joins in each form that make a new file or
        replace one, and saves in place and by a new file."""
        for options in ([], ["-self-contained"], ["-mp4"]):
            command = ["clipjoin", CLIP, CLIP, "-q", *options, "-o", "out.mov"]
            yield f"replace {options}", OLD, command
            yield f"new {options}", None, command
        for name, end in (("save", b""), ("save in a new file", TRAILER)):
            save = ["cliptune", "out.mov", "-save-in-place", "-set-looping", "-q"]
            yield name, CLIP.read_bytes() + end, save

    def state(self, name):
        """The file; after a save, whether its movie loops. It then has all samples of the clip."""
        if not name.startswith("save"):
            return self.out.read_bytes() if self.out.exists() else None
        self.assertEqual(runs.samples(self.out), runs.samples(CLIP))
        return b"LOOP" in runs.movie_header(self.out)

    def run_job(self, old, command, **faults):
        for path in self.folder.iterdir():
            path.unlink()
        if old:
            self.out.write_bytes(old)
            self.out.chmod(0o640)
        environment = {"ASAN_OPTIONS": "detect_leaks=0", **faults}
        return self.run_in_folder("failing_clipjoin", f"-{command[0]}", *command[1:], env=environment)

    def each_call(self, **faults):
        """Runs each job once for each of its calls that write, with a fault at that call. Yields
        the name of the job, the result, and whether the new file is in place."""
        for name, old, command in self.jobs():
            self.run_job(old, ["clipjoin"])
            was = self.state(name)
            self.assertEqual(self.run_job(old, command), (0, "", ""))
            new = self.state(name)
            self.assertNotEqual(was, new)
            # For a new name, an empty file is created first.
            begun = [b""] if old is None and "FAULT_SIGNAL" in faults else []
            for call in itertools.count(1):
                with self.subTest(name, call=call, **faults):
                    done = self.run_job(old, command, FAULT_AT=str(call), **faults)
                    if not done.err.startswith("fault\n"):
                        break
                    self.assertIn(self.state(name), [was, new, *begun])
                    if old:
                        self.assertEqual(self.out.stat().st_mode & 0o777, 0o640)
                    err = done.err.removeprefix("fault\n")
                    yield name, Result(done.status, done.out, err), self.state(name) == new
            self.assertEqual(done, (0, "", ""))
            self.assertGreater(call, 3)

    def test_a_full_or_failing_disk_at_any_call(self):
        for number, code, more in ((errno.ENOSPC, -34, {}), (errno.EIO, -36, ALWAYS_NAMED)):
            for name, done, is_new in self.each_call(FAULT_ERROR=str(number), **more):
                # A failure may be silent only if the call just makes writing faster, or if it
                # keeps an attribute of the old file that the system may refuse.
                error = rf"Error in \w+ at line \d+ of utils\.cpp: {code}\n"
                self.assertRegex(done.err, f"^({error}){'*' if is_new else '+'}$")
                if name.startswith("save"):
                    self.assertEqual(done.status, 1 if done.err else 0)
                left = [] if "new [" in name and not is_new else ["out.mov"]
                self.assertEqual(os.listdir(self.folder), left)

    def test_a_process_that_ends_at_any_call(self):
        for number, more in itertools.product((signal.SIGKILL, signal.SIGTERM), ({}, ALWAYS_NAMED)):
            hidden = 0
            for name, done, _ in self.each_call(FAULT_SIGNAL=str(int(number)), **more):
                self.assertEqual(done.status, -number)
                left = set(os.listdir(self.folder)) - {"out.mov"}
                hidden += len(left) if name.startswith("replace") else 0
                if name.startswith("save") and number == signal.SIGKILL:  # it can be repeated
                    save = ["out.mov", "-save-in-place", "-set-looping", "-q"]
                    self.assertEqual(self.run_in_folder("cliptune", *save), (0, "", ""))
                    self.assertTrue(self.state(name))
            if number == signal.SIGTERM:
                self.assertEqual(hidden, 0)
            elif not more:
                # A file without a name gets a hidden one just before it replaces another.
                self.assertEqual(hidden, 3)


if __name__ == "__main__":
    runs.main()
