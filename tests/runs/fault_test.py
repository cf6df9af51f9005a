#!/usr/bin/env python3
"""A command that meets a full or failing disk at any of its writing calls: the output is what it
was before, or the whole new movie. The unit tests of CutShort try every form of file in memory;
here are the real system calls."""

import os
import shutil
import unittest

import runs

# A build with sanitizers has its own runtime, which the preloaded library does not work with.
LIBRARY = runs.BIN / "libfault.so"
PROGRAM = runs.RELEASE_BIN / "clipjoin"


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

    def run_with(self, options, **faults):
        """Joins the source with itself and replaces an old output."""
        for name in os.listdir(self.folder):
            (self.folder / name).unlink()
        self.out.write_bytes(self.old)
        return self.run_in_folder(
            PROGRAM, self.source, self.source, "-q", *options, "-o", "out.mov",
            env={"LD_PRELOAD": str(LIBRARY), **faults},
        )  # fmt: skip

    def whole(self, options):
        """The new movie, and how many calls write it."""
        count = self.movies / "count"
        self.assertEqual(self.run_with(options, FAULT_COUNT_FILE=str(count)), (0, "", ""))
        calls = int(count.read_text())
        self.assertGreater(calls, 3)
        return self.out.read_bytes(), calls

    def test_a_full_or_failing_disk_at_any_call(self):
        options = ["-self-contained"]
        new, calls = self.whole(options)
        for kind, code in (("ENOSPC", -34), ("EIO", -36)):
            for call in range(1, calls + 1):
                with self.subTest(kind=kind, call=call):
                    done = self.run_with(options, FAULT_AT=str(call), FAULT_KIND=kind)
                    self.assertEqual((done.status, done.out), (0, ""))
                    left = self.out.read_bytes()
                    self.assertIn(left, (self.old, new))
                    self.assertEqual(os.listdir(self.folder), ["out.mov"])
                    # A failure may be silent only if the call just makes writing faster.
                    error = rf"Error in \w+ at line \d+ of utils\.cpp: {code}\n"
                    may_be_silent = "?" if left == new else ""
                    self.assertRegex(done.err, f"^({error}){may_be_silent}$")

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
