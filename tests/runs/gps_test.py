#!/usr/bin/env python3
"""GPS data of dashcams, which an atom of the movie locates in the file: every output has the data,
and its atom locates it there."""

import json
import struct

import runs
from runs import Result, atom

SIZE = 512  # of a block
WHOLE = "-self-contained"


def block(second):
    """A block with one position, as exiftool reads it."""
    time = struct.pack("<6I", 10, 20, second, 24, 5, 17)
    place = b"ANE\0" + struct.pack("<4f", 4812.5 + second, 1134.25, 12, 90)
    record = bytes(0x20) + time + place
    return atom("free", (b"GPS " + struct.pack("<I", 44) + record).ljust(SIZE - 8, b"\0"))


def locations(*pairs):
    head = struct.pack(">II", 0x101, len(pairs))
    return atom("gps ", head, *(struct.pack(">II", *pair) for pair in pairs))


def positions(path):
    out, _ = runs.read_by("exiftool", "-j", "-ee3", "-G3", "-a", "-GPSDateTime", "-GPSLatitude", path)
    return {key: value for key, value in json.loads(out)[0].items() if key.startswith("Doc")}


class Dashcam(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clip = runs.make_clip(
            runs.temporary_folder(cls) / "clip.mov",
            "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=2", "-f", "lavfi", "-i", "sine=d=2",
            "-c:v", "mpeg4", "-c:a", "aac",
        )  # fmt: skip

    def record(self, name, seconds=(1, 2), inside=True, table=None, trailer=b""):
        """A recording with a block for each of the seconds between media and movie: inside the atom
        of the media, or as atoms next to it. `table` replaces the true locations. Returns its path
        and what the atom locates; None is an unused entry."""
        data, blocks = self.clip.read_bytes(), [block(second) for second in seconds]
        end, media = (data.index(kind) - 4 for kind in (b"moov", b"mdat"))
        table = table or locations((0, 0), *[(end + SIZE * i, SIZE) for i in range(len(blocks))])
        before = bytearray(data[:end])
        if inside:
            struct.pack_into(">I", before, media, end - media + SIZE * len(blocks))
        path = self.folder / name
        path.write_bytes(b"".join([before, *blocks, atom("moov", data[end + 8 :], table), trailer]))
        return path, [None, *blocks]

    def assert_has(self, path, blocks):
        table, data = runs.child(runs.movie_header(path), "gps ")[8:], path.read_bytes()
        places = list(struct.iter_unpack(">II", table))
        self.assertEqual([data[at : at + size] if size else None for at, size in places], blocks)
        self.assertEqual([data.count(each) for each in blocks[1:]], [1] * len(blocks[1:]))

    def test_copies_reference_movies_joins_and_cuts_have_the_data(self):
        other, _ = self.record("other.mov", seconds=(7, 8, 9))
        for inside in (True, False):
            path, blocks = self.record("in.mov", inside=inside)
            expected = positions(path)
            self.assertEqual(len(expected), 4, expected)
            for inputs in (
                [path], [path, WHOLE], [path, WHOLE, "-no-fast-start"], [path, other, WHOLE],
                [path, "-startAt", "1", WHOLE],
            ):  # fmt: skip
                with self.subTest(inside=inside, inputs=inputs):
                    out = self.join("out.mov", *inputs)
                    for each in (out, self.join_whole("again.mov", out)):
                        self.assert_has(each, blocks)
                        self.assertEqual(positions(each), expected)
                    if other not in inputs and "-startAt" not in inputs:
                        self.assertEqual(runs.sound(each), runs.sound(self.clip))
                        self.assertEqual(runs.frames(each), runs.frames(self.clip))
            out = self.join("out.mp4", path, "-mp4")
            self.assertEqual(runs.child(runs.movie_header(out), "gps "), b"")
            self.assertNotIn(blocks[1], out.read_bytes())

    def test_a_save_in_place_keeps_or_moves_the_data(self):
        for trailer in (b"", b"no atom"):  # a new file replaces one with a trailer
            with self.subTest(trailer):
                path, blocks = self.record("saved.mov", trailer=trailer)
                table = runs.child(runs.movie_header(path), "gps ")
                done = self.run_in_folder("cliptune", path, "-save-in-place", "-set-looping")
                self.assertEqual(done, Result(0, "", ""))
                self.assert_has(path, blocks)
                moved = runs.child(runs.movie_header(path), "gps ") != table
                self.assertEqual(moved, trailer != b"")

    def test_an_atom_that_locates_nothing_is_copied_as_it_is(self):
        for table in (
            locations((100, 8), (1 << 30, 8)), locations((100, 1 << 30)),  # outside the file
            locations((200, 8), (100, 101)),  # overlapping
            atom("gps ", bytes(8), struct.pack(">3I", 100, 8, 100)),  # half an entry
            atom("gps ", b"none"),
        ):  # fmt: skip
            path, _ = self.record("in.mov", table=table)
            for out in (self.join_whole("out.mov", path), self.join("reference.mov", path)):
                self.assertIn(table, runs.movie_header(out))


if __name__ == "__main__":
    runs.main()
