#!/usr/bin/env python3
"""Broken files: every command ends quickly, uses little memory, and prints one of its messages."""

import os
import re
import resource
import subprocess
import time
import unittest

import runs

SANITIZERS = b"__asan_init" in (runs.BIN / "clipjoin").read_bytes() if runs.BIN.exists() else False
SECONDS = 5 if SANITIZERS else 1
MEGABYTES = 100

PROMISED = re.compile(
    r"(.+ does not appear to be a valid movie file\. Skipping it\.\n"
    r"|.+ does not exist\. Make sure that special characters are properly quoted or\n.*\n"
    r"|Permissions error reading .+\n"
    r"|Error -\d+ reading .+\n"
    r"|" + re.escape(runs.HINT) + r"|" + re.escape(runs.REFERENCE_NOTICE) + r"s?\.\n"
    r"|Error in \w+ at line \d+ of (clipjoin|utils|chapter)\.cpp: -\d+\n"
    r"|" + re.escape(runs.ONE_ERROR) + "|" + re.escape(runs.MORE_ERRORS) + ")*"
)


@unittest.skipUnless((runs.CORPUS / "malformed").is_dir(), f"there is no collection {runs.CORPUS}")
class MalformedFiles(runs.RunTest):
    def assert_ends_well(self, file, arguments):
        before = time.monotonic()
        try:
            done = self.run_in_folder(
                *arguments, timeout=10 * SECONDS, preexec_fn=None if SANITIZERS else limit_memory
            )
        except subprocess.TimeoutExpired:
            self.fail("the command does not end")
        # It only counts if it happens twice, because other programs use the machine too.
        if time.monotonic() - before > SECONDS:
            used = os.times()
            self.run_in_folder(*arguments, timeout=10 * SECONDS)
            after = os.times()
            spent = after.children_user - used.children_user
            self.assertLess(spent + after.children_system - used.children_system, SECONDS)
        self.assertIn(done.status, (0, 1, 2), done.err)
        self.assertRegex(done.err, f"^(?:{PROMISED.pattern})$")
        self.assertEqual(done.out, "")
        self.assertNotIn("AddressSanitizer", done.err)
        self.assertNotIn("runtime error", done.err)

    def test_every_broken_file_is_handled_quickly(self):
        files = sorted(path for path in (runs.CORPUS / "malformed").rglob("*") if path.is_file())
        self.assertGreater(len(files), 50)
        for file in files:
            out = self.folder / "out.mov"
            for arguments in (
                ["clipjoin", file, "-self-contained", "-o", out],
                ["clipjoin", file, file, "-o", out],
                ["clipstak", file, file, "-self-contained", "-no-fast-start", "-o", out],
                ["cliptune", file, "-q", "-self-contained", "-no-compressed-header", "-o", out],
            ):
                with self.subTest(str(file.relative_to(runs.CORPUS)), command=arguments[0]):
                    self.assert_ends_well(file, arguments)


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEGABYTES << 20, MEGABYTES << 20))


if __name__ == "__main__":
    runs.main()
