#!/usr/bin/env python3
"""Broken files: every command ends quickly, uses little memory, and prints one of its messages."""

import fcntl
import os
import pathlib
import re
import resource
import struct
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
        # A slow run may be the fault of other programs. So it fails the test only if a second run
        # uses too much processor time.
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


@runs.has_tools("ffmpeg")
class Trace(runs.RunTest):
    """With REELWORK_TRACE=1 a failure names the file and the place in it."""

    @classmethod
    def setUpClass(cls):
        clip = runs.temporary_folder(cls) / "clip.mov"
        source = ("-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1", "-c:v", "mpeg4", "-movflags")
        cls.clip = runs.make_clip(clip, *source, "faststart").read_bytes()
        cls.fragments = runs.make_clip(clip, *source, "empty_moov+frag_keyframe").read_bytes()

    def store(self, name, content):
        path = pathlib.Path(os.path.realpath(self.folder)) / name
        path.write_bytes(content)
        return path

    def assert_trace(self, line, *arguments, output="/dev/null"):
        """With REELWORK_TRACE=1 the run prints the line; else it prints everything except such
        lines."""
        arguments = ["clipjoin", *arguments, "-o", output]
        traced = self.run_in_folder(*arguments, env={"REELWORK_TRACE": "1"})
        lines = traced.err.splitlines(keepends=True)
        told = [one for one in lines if re.match(r"\w+: -\d+", one)]
        self.assertIn(line + "\n", told)
        for value in ("", "0"):
            plain = self.run_in_folder(*arguments, env={"REELWORK_TRACE": value})
            self.assertEqual(plain.err, "".join(one for one in lines if one not in told))

    def test_a_damaged_table_is_named_by_its_path(self):
        table = "/moov/trak/mdia/minf/stbl/stts: the table of rows is longer than its atom"
        for content, atom, fault in (
            (self.clip, b"stts", table),
            (self.fragments, b"trun", "/moof/traf: 'trun' is shorter than its count"),
        ):
            broken = bytearray(content)
            struct.pack_into(">I", broken, broken.index(atom) + 8, 1000)
            file = self.store("broken\n.mov", broken)
            shown = str(file).replace("\n", "?")
            self.assert_trace(f"NewMovieFromDataRef: -2002: {shown}: {fault}", file)

    def test_missing_media_are_named_by_their_bytes(self):
        file = self.store("short.mov", self.clip[:-100])
        whole = len(self.clip)
        for options in (["-self-contained"], ["-self-contained", "-startAt", "0.5"]):
            traced = self.run_in_folder("clipjoin", file, *options, "-o", "out.mov",
                                        env={"REELWORK_TRACE": "1"})  # fmt: skip
            line = r"(?m)^Flatten\w+: -39: (.*): (\d+) bytes at (\d+) lie behind its end$"
            found = re.search(line, traced.err)
            size, at = int(found[2]), int(found[3])
            self.assertEqual(found[1], str(file))
            self.assertLess(whole - 100, at + size)
            self.assertLessEqual(at + size, whole)

    def test_files_that_cannot_be_used_are_named(self):
        file = self.store("clip.mov", self.clip)
        missing = file.with_name("missing.mov")
        self.assert_trace(
            f"NewMovieFromDataRef: -2000: {missing}: No such file or directory", missing
        )
        self.assert_trace(
            f"NewMovieFromDataRef: -1302: {file.parent}: it is not a regular file", file.parent
        )
        text = self.store("text.mov", b"text")
        self.assert_trace(f"NewMovieFromDataRef: -2048: {text}: it has no movie header", text)
        self.join("refers.mov", "clip.mov")
        out = self.store("out.mov", b"old")
        with open(out, "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            self.assert_trace(
                f"FlattenMovieDataToDataRef: -47: {out}: another program uses it",
                file, "-self-contained", output=out,
            )  # fmt: skip
        file.unlink()
        refers = file.with_name("refers.mov")
        self.assert_trace(
            f"NewMovieFromDataRef: -2000: {refers}: /moov: media is missing in {file}", refers
        )


def limit_memory():
    resource.setrlimit(resource.RLIMIT_AS, (MEGABYTES << 20, MEGABYTES << 20))


if __name__ == "__main__":
    runs.main()
