#!/usr/bin/env python3
"""Movies with more bytes, time units or samples than 32 bits can count. Their media is a hole in
the file, with noise at its end."""

import random
import resource
import struct
import zlib

import runs

SANITIZERS = b"__asan_init" in (runs.BIN / "clipjoin").read_bytes() if runs.BIN.exists() else False
RATE = 44100


def atom(kind, *content):
    data = b"".join(content)
    return struct.pack(">I4s", 8 + len(data), kind) + data


NOISE = random.Random(1).randbytes(2 * RATE)
IDENTITY = struct.pack(">9i", 1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30)


def plain_sound(path, frames, bits=16):
    """A movie of uncompressed sound with one channel. It is silent but for its last second."""
    size = bits // 8
    sound = struct.pack(">6xH8xHHI", 1, 1, bits, 0) + struct.pack(">I", RATE << 16)
    chunk = 4096
    chunks = -(-frames // chunk)
    rest = frames - (chunks - 1) * chunk
    kind = b"sowt" if bits == 16 else b"raw "
    table = atom(
        b"stbl",
        atom(b"stsd", struct.pack(">II", 0, 1), atom(kind, sound)),
        atom(b"stts", struct.pack(">4I", 0, 1, frames, 1)),
        atom(b"stsc", struct.pack(">8I", 0, 2, 1, chunk, 1, chunks, rest, 1)),
        atom(b"stsz", struct.pack(">3I", 0, size, frames)),
        atom(b"co64", struct.pack(">II", 0, chunks),
             b"".join(struct.pack(">Q", 16 + i * chunk * size) for i in range(chunks))),
    )  # fmt: skip
    media = atom(
        b"mdia",
        atom(b"mdhd", struct.pack(">5IHH", 0, 0, 0, RATE, frames, 0, 0)),
        atom(b"hdlr", struct.pack(">I4s4s12xB", 0, b"mhlr", b"soun", 0)),
        atom(b"minf", atom(b"smhd", bytes(8)), table),
    )
    length = frames * 600 // RATE
    movie = atom(
        b"moov",
        atom(b"mvhd", struct.pack(">5IIH10x", 0, 0, 0, 600, length, 1 << 16, 256), IDENTITY,
             struct.pack(">24xI", 2)),
        atom(b"trak", atom(b"tkhd", struct.pack(">6I8xHHHH", 15, 0, 0, 1, 0, length, 0, 0, 256, 0),
                           IDENTITY, bytes(8)), media),
    )  # fmt: skip
    with open(path, "wb") as file:
        file.write(struct.pack(">I4sQ", 1, b"mdat", 16 + frames * size))
        file.seek(16 + max(frames - RATE, 0) * size)
        file.write(NOISE[-frames * size :] if frames < RATE else NOISE[: RATE * size])
        file.write(movie)
    return path


def seconds_used(work):
    def used():
        usage = resource.getrusage(resource.RUSAGE_CHILDREN)
        return usage.ru_utime + usage.ru_stime

    before = used()
    work()
    return used() - before


class LargeMovies(runs.RunTest):
    def test_media_beyond_four_gibibytes(self):
        frames = (1 << 31) + 100_000
        long = plain_sound(self.folder / "long.mov", frames)
        self.assertLess(long.stat().st_blocks * 512, 8 << 20, "the file system has no holes")
        refers = self.folder / "refers.mov"
        self.assertLess(seconds_used(lambda: self.join(refers, long)), 2)
        self.assertIn(b"co64", refers.read_bytes())
        last = frames // RATE - 2
        for source in (long, refers):
            options = ["-self-contained", "-startAt", str(last)]
            cut = self.join("cut.mov", source, options=options)
            found = runs.sound(cut)
            self.assertEqual(len(found), frames - last * RATE)
            self.assertEqual(found[-RATE:].tobytes(), NOISE)
        done = self.run_in_folder("cliptune", long, "-save-in-place", "-set-looping")
        self.assertEqual(done, runs.Result(0, "", ""))
        cut = self.join("cut.mov", long, options=options)
        self.assertEqual(runs.sound(cut)[-RATE:].tobytes(), NOISE)

    def test_times_beyond_32_bits(self):
        """The clip plays slower by changed deltas, so that each sample lasts for days."""
        delta = 0x7FFFFFF0
        data = bytearray((runs.DATA / "h264.mp4").read_bytes())
        for unused in (b"edts", b"ctts"):
            data = data.replace(unused, b"free")
        at = data.find(b"stts")
        while at >= 0:
            rows = struct.unpack_from(">I", data, at + 8)[0]
            for row in range(rows):
                struct.pack_into(">I", data, at + 16 + 8 * row, delta)
            at = data.find(b"stts", at + 4)
        slow = self.folder / "slow.mov"
        slow.write_bytes(data)
        scales = {number: track.scale for number, track in runs.tracks(slow).items()}
        counts = {number: len(found) for number, found in runs.samples_by_track(slow).items()}
        for name, options in (("reference.mov", []), ("whole.mov", ["-self-contained"])):
            out = self.join(name, slow, slow, options=options)
            table = runs.movie_header(out)
            for media in (runs.child(content, "mdia") for kind, content in runs.atoms(table)
                          if kind == "trak"):
                self.assertEqual(runs.child(media, "mdhd")[0], 1, "of version 1")
            self.assertEqual(runs.child(table, "mvhd")[0], 1)
            longest = max(2 * counts[number] * delta / scales[number] for number in scales)
            self.assertAlmostEqual(float(runs.movie_duration(out)) / longest, 1, delta=1e-9)
        found = runs.samples_by_track(self.folder / "whole.mov")[1]
        # The second clip starts where the longest track ends, at a whole unit of the movie, which
        # is longer than one media unit.
        shift = found[counts[1]].dts - counts[1] * delta
        gap = max(counts[n] * delta * scales[1] // scales[n] for n in scales) - counts[1] * delta
        self.assertAlmostEqual(shift, gap, delta=scales[1] // 600)
        times = [i * delta + (shift if i >= counts[1] else 0) for i in range(2 * counts[1])]
        self.assert_same([p.dts for p in found], times)

    def test_the_largest_sample_count_of_a_file(self):
        frames = (1 << 31) + 1000
        long = plain_sound(self.folder / "long.mov", frames, 8)
        out = self.join("out.mov", long)
        self.assertAlmostEqual(float(runs.movie_duration(out)), frames / RATE, delta=0.01)
        cut = self.join("cut.mov", out, options=["-self-contained", "-startAt", "48690"])
        self.assertEqual(len(runs.sound(cut)), frames - 48690 * RATE)
        done = self.run_in_folder("clipjoin", long, long, "-o", "two.mov")
        self.assertRegex(done.err, r"Error in \w+ at line \d+ of utils\.cpp: -2011\n")
        self.assertFalse((self.folder / "two.mov").exists())


class Bounds(runs.RunTest):
    """What a run costs depends on the size of its input, not on what the input claims."""

    def run_within(self, seconds, memory, *arguments, **more):
        """Runs a command that may use `memory` bytes beyond those that any run needs."""
        most = (100 << 20) + memory
        limit = None if SANITIZERS else lambda: resource.setrlimit(resource.RLIMIT_AS, (most, most))
        results = []

        def work():
            results.append(
                self.run_in_folder(*arguments, preexec_fn=limit, timeout=300, **more)
            )

        # A debug build is five times slower than a release, and one with sanitizers twenty times.
        self.assertLess(seconds_used(work), seconds * (20 if SANITIZERS else 5))
        return results[0]

    def test_a_header_that_repeats_one_thing_costs_20_times_its_length(self):
        clip = plain_sound(self.folder / "clip.mov", 5000).read_bytes()
        movie, track = (
            atom(kind.encode(), content) for kind, content in runs.atoms(runs.child(clip, "moov"))
        )
        media = clip[: -8 - len(movie + track)]
        rows = 100_000 * struct.pack(">6i", 1, 5, 1 << 16, 1, 3, 1 << 16)
        edits = atom(b"edts", atom(b"elst", struct.pack(">II", 0, 200_000), rows))
        for content, tracks in (
            (movie + 10_000 * track, 10_000),
            (movie + atom(b"trak", track[8:], edits), 1),
            (movie + track + 100_000 * atom(b"free"), 1),
        ):
            header = atom(b"moov", content)
            (self.folder / "many.mov").write_bytes(media + header)
            for seconds, options in ((1, ["-list"]), (5, ["-self-contained"])):
                with self.subTest(tracks=tracks, header=len(header), options=options):
                    done = self.run_within(seconds, 20 * len(header), "clipjoin", "many.mov", "-q",
                                           *options, "-o", "out.mov")  # fmt: skip
                    self.assertEqual((done.status, done.err), (0, ""))
            self.assertEqual(runs.movie_header(self.folder / "out.mov").count(b"tkhd"), tracks)

    def test_a_compressed_header_is_read_up_to_64_times_its_length(self):
        def compressed(length):
            movie = struct.pack(">I4s", length, b"moov") + bytes(length - 8)
            data = struct.pack(">I", length) + zlib.compress(movie, 9)
            return atom(b"moov", atom(b"cmov", atom(b"dcom", b"zlib"), atom(b"cmvd", data)))

        (self.folder / "zeros.mov").write_bytes(compressed(200 << 20))
        done = self.run_within(1, 0, "clipjoin", "zeros.mov", "-o", "out.mov")
        self.assertRegex(done.err, r"\AError -2002 reading zeros\.mov\n")

    def test_standard_input_without_file_names_is_refused(self):
        refused = "Error processing option -names-from-stdin: "
        refused += "standard input is not a list of file names\n"
        names = self.folder / "names"
        names.write_text(100_001 * "a\n")
        for path in ("/dev/zero", names):
            with open(path, "rb") as stream:
                done = self.run_within(1, 100 << 20, "clipjoin", "-names-from-stdin", stdin=stream)
            self.assertEqual(done, runs.Result(1, "", refused))


if __name__ == "__main__":
    runs.main()
