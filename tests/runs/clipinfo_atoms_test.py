#!/usr/bin/env python3
"""What clipinfo -atoms prints for movies that are made here. REELWORK_BIN names the folder of the
programs."""

import os
import pathlib
import struct
import subprocess
import tempfile
import unittest

BIN = pathlib.Path(os.environ["REELWORK_BIN"])


def run(folder, *command):
    return subprocess.run(command, cwd=folder, capture_output=True, text=True)


def atom(kind, *parts):
    content = b"".join(parts)
    return struct.pack(">I4s", 8 + len(content), kind) + content


def u32(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


class Atoms(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def dump(self, *arguments, status=0):
        done = run(self.folder, BIN / "clipinfo", "-atoms", *arguments)
        self.assertEqual(done.returncode, status, done.stderr)
        return done.stdout.splitlines()

    def dump_bytes(self, content):
        pathlib.Path(self.folder, "bytes.mov").write_bytes(content)
        return self.dump("bytes.mov")

    def make_movies(self):
        """Makes two movies of one second, each with ten frames of 768 bytes."""
        for name, author in ("one.mov", "Ann"), ("two.mov", "Bob"):
            made = run(
                self.folder, "ffmpeg", "-nostdin", "-loglevel", "error", "-f", "lavfi",
                "-i", "testsrc2=size=16x16:rate=10:duration=1", "-c:v", "rawvideo",
                "-pix_fmt", "rgb24", "-fflags", "+bitexact", "-metadata", f"title={author}", name,
            )
            self.assertEqual(made.returncode, 0, made.stderr)

    def join(self, *options):
        done = run(
            self.folder, BIN / "clipjoin", "-q", "one.mov", "two.mov", *options, "-o", "out.mov"
        )
        self.assertEqual(done.returncode, 0, done.stderr)

    def test_the_atoms_of_a_compressed_movie_header(self):
        self.make_movies()
        self.join("-self-contained")
        lines = self.dump("out.mov")
        self.assertRegex(lines[2], r"^  \d+ 'cmov' \d+$")
        described = [line.strip().split(" ", 3)[-1] for line in lines if "in cmov" in line]
        for line in (
            "'hdlr' 45 componentType='mhlr' subtype='vide' manufacturer='\\x00\\x00\\x00\\x00'"
            ' componentFlags=0 componentFlagsMask=0 name="VideoHandler"',
            "'elst' 28 entries=1 { duration=2000 mediaTime=0 rate=65536 }",
            "'stts' 24 rows=1 { count=20 delta=1024 }",
            "'stsz' 20 size=768 count=20",
        ):
            self.assertIn(line, described)

    def test_malformed_atoms_are_reported_at_their_place(self):
        times = atom(b"stts", u32(0, 2, 14, 10, 1, 5))
        self.assertEqual(
            self.dump_bytes(
                atom(
                    b"moov",
                    atom(b"stts", u32(0, 0x10000000, 14)),
                    atom(b"abcd", b"1234"),
                    u32(100) + b"stbl" + times,
                )
                + u32(0x01000000) + b"mdat1234"
            ),
            [
                "0 'moov' 80",
                "  8 'stts' 20 malformed: the table of rows is longer than its atom",
                "  28 'abcd' 12 unknown",
                "  40 'stbl' malformed: claims 100 bytes of 40",
                "    48 'stts' 32 rows=2 { count=14 delta=10 } { count=1 delta=5 }",
                "80 'mdat' malformed: claims 16777216 bytes of 12",
            ],
        )

    def test_meta_with_and_without_a_version(self):
        handler = atom(b"hdlr", u32(0), bytes(4), b"mdir", bytes(12), b"\0")
        for version, at in (b"", 8), (u32(0), 12):
            lines = self.dump_bytes(atom(b"meta", version, handler))
            self.assertRegex(lines[1], rf"^  {at} 'hdlr' 33 .*subtype='mdir'")

    def test_containers_with_too_many_levels_are_not_opened(self):
        content = b""
        for _ in range(20000):
            content = atom(b"moov", content)
        self.assertTrue(self.dump_bytes(content)[-1].endswith("malformed: nested too deep"))

    def test_a_file_that_cannot_be_read(self):
        self.assertEqual(self.dump("missing.mov", status=1), [])
        pathlib.Path(self.folder, "text.mov").write_text("This is not a movie.\n")
        self.assertIn("malformed", self.dump("text.mov")[0])


if __name__ == "__main__":
    unittest.main()
