#!/usr/bin/env python3
"""If the disk is full or fails at any call that writes, or if the process ends there, the output is
the old file or the complete new movie. The CutShort unit tests try every form of file in memory.
These tests use the real system calls."""

import os
import shutil
import unittest

import runs

# A build with sanitizers has its own runtime, which the preloaded library does not work with.
LIBRARY = runs.BIN / "libfault.so"
PROGRAM = runs.RELEASE_BIN / "clipjoin"


FORMS = ([], ["-self-contained"], ["-mp4"])


@runs.has_tools("ffmpeg")
@unittest.skipUnless(PROGRAM.exists(), f"there is no release build: {PROGRAM}")
@unittest.skipUnless(LIBRARY.exists(), f"{LIBRARY} is not built")
class FailingDisk(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movies = runs.temporary_folder(cls)
        cls.source = runs.make_clip(
            cls.movies / "source.mov", "-f", "lavfi", "-i", "testsrc2=s=320x240:r=25:d=4",
            "-f", "lavfi", "-i", "sine=d=4", "-c:v", "mpeg4", "-b:v", "2M",
        )  # fmt: skip
        cls.old = b"what was here before\n" * 1000

    def setUp(self):
        super().setUp()
        self.out = self.folder / "out.mov"

    def run_with(self, options, is_new=False, **faults):
        """Joins the source with itself and replaces an old output, or makes a new one."""
        for name in os.listdir(self.folder):
            (self.folder / name).unlink()
        if not is_new:
            self.out.write_bytes(self.old)
        return self.run_in_folder(
            PROGRAM, self.source, self.source, "-q", *options, "-o", "out.mov",
            env={"LD_PRELOAD": str(LIBRARY), **faults},
        )  # fmt: skip

    def whole(self, options, **more):
        """The new movie, and the number of calls that write it."""
        count = self.movies / "count"
        self.assertEqual(self.run_with(options, FAULT_COUNT_FILE=str(count), **more), (0, "", ""))
        calls = int(count.read_text())
        self.assertGreaterEqual(calls, 3)
        return self.out.read_bytes(), calls

    def each_call(self, options, kind, **more):
        """Runs the command once for each of its calls, with a fault at that call. Yields the
        result, the output that is left (None: no file), and the complete new movie."""
        new, calls = self.whole(options, **more)
        for call in range(1, calls + 1):
            with self.subTest(options=options, kind=kind, call=call, **more):
                done = self.run_with(options, FAULT_AT=str(call), FAULT_KIND=kind, **more)
                yield done, self.out.read_bytes() if self.out.exists() else None, new

    def test_a_full_or_failing_disk_at_any_call(self):
        for options in FORMS:
            for kind, code in (("ENOSPC", -34), ("EIO", -36)):
                for more in ({}, {"FAULT_NAMED": "1"}, {"is_new": True}):
                    for done, left, new in self.each_call(options, kind, **more):
                        old = None if "is_new" in more else self.old
                        self.assertIn(left, (old, new))
                        self.assertEqual(os.listdir(self.folder), ["out.mov"] if left else [])
                        # A failure may be silent only if the call just makes writing faster, or
                        # if it keeps an attribute of the old file that the system may refuse.
                        error = rf"Error in \w+ at line \d+ of utils\.cpp: {code}\n"
                        may_be_silent = "*" if left == new else "+"
                        self.assertRegex(done.err, f"^({error}){may_be_silent}$")

    def test_a_process_that_ends_at_any_call(self):
        for options in FORMS:
            for kind in ("kill", "term"):
                for more in ({}, {"FAULT_NAMED": "1"}):
                    hidden = 0
                    for done, left, new in self.each_call(options, kind, **more):
                        self.assertLess(done.status, 0)
                        self.assertIn(left, (self.old, new))
                        hidden += len(os.listdir(self.folder)) - 1
                    if kind == "term":
                        self.assertEqual(hidden, 0)
                    elif not more:
                        # A file without a name gets a hidden one just before it replaces another.
                        self.assertEqual(hidden, 1)

    def test_the_old_output_keeps_its_rights_and_the_new_one_has_them(self):
        new, calls = self.whole([])
        for faults in ({}, {"FAULT_AT": str(calls - 2), "FAULT_KIND": "EIO"}):
            self.out.unlink()
            self.out.write_bytes(self.old)
            self.out.chmod(0o640)
            self.run_in_folder(
                PROGRAM, self.source, "-q", "-o", "out.mov",
                env={"LD_PRELOAD": str(LIBRARY), **faults},
            )  # fmt: skip
            self.assertEqual(self.out.stat().st_mode & 0o777, 0o640)


if __name__ == "__main__":
    runs.main()
