#!/usr/bin/env python3
"""Movies with more bytes or time units than 32 bits can count, whose media is a hole in the file;
and what headers may cost that unpack to much more than their length."""

import random
import re
import resource
import struct
import zlib

import runs

RATE = 44100
NOISE = random.Random(1).randbytes(2 * RATE)


def plain_sound(path, frames):
    """A movie of uncompressed sound with one channel. It is silent except in its last second."""
    form = runs.atom("sowt", struct.pack(">6xH8xHHII", 1, 1, 16, 0, RATE << 16))
    track = runs.made_track("soun", 1, RATE, form, frames, 2, 16, 4096)
    with open(path, "wb") as file:
        file.write(struct.pack(">I4sQ", 1, b"mdat", 16 + 2 * frames))
        file.seek(16 + 2 * max(frames - RATE, 0))
        file.write(NOISE[: 2 * min(frames, RATE)])
        file.write(runs.made_movie(track, length=frames * 600 // RATE))
    return path


def seconds_used(work):
    """The time of the processor that the work takes, and its result."""
    used = lambda: sum(resource.getrusage(resource.RUSAGE_CHILDREN)[:2])  # noqa: E731
    before = used()
    result = work()
    return used() - before, result


class LargeMovies(runs.RunTest):
    def test_media_beyond_four_gibibytes(self):
        frames = (1 << 31) + 100_000
        long = plain_sound(self.folder / "long.mov", frames)
        self.assertLess(long.stat().st_blocks * 512, 8 << 20, "the file system has no holes")
        refers = self.folder / "refers.mov"
        self.assertLess(seconds_used(lambda: self.join(refers, long))[0], 2)
        self.assertIn(b"co64", refers.read_bytes())
        last = frames // RATE - 2
        for source in (long, refers):
            options = ["-self-contained", "-startAt", str(last)]
            cut = self.join("cut.mov", source, options=options)
            found = runs.sound(cut)
            self.assertEqual(len(found), frames - last * RATE)
            self.assertEqual(found[-RATE:].tobytes(), NOISE)
        done = self.run_in_folder("clipjoin", long, long, "-o", "two.mov")  # too many samples
        self.assertRegex(done.err, r"Error in \w+ at line \d+ of utils\.cpp: -2011\n")
        self.assertFalse((self.folder / "two.mov").exists())
        done = self.run_in_folder("cliptune", long, "-save-in-place", "-set-looping")
        self.assertEqual(done, runs.Result(0, "", ""))
        cut = self.join("cut.mov", long, options=options)
        self.assertEqual(runs.sound(cut)[-RATE:].tobytes(), NOISE)

    def test_times_beyond_32_bits(self):
        """The clip plays slower by changed deltas, so that each sample lasts for days."""
        delta = 0x7FFFFFF0
        data = (runs.DATA / "h264.mp4").read_bytes()
        data = bytearray(data.replace(b"edts", b"free").replace(b"ctts", b"free"))
        for found in re.finditer(b"stts", data):
            for row in range(*struct.unpack_from(">I", data, found.end() + 4)):
                struct.pack_into(">I", data, found.end() + 12 + 8 * row, delta)
        slow = self.folder / "slow.mov"
        slow.write_bytes(data)
        lengths = {n: len(found) * delta for n, found in runs.samples_by_track(slow).items()}
        scales = {number: track.scale for number, track in runs.tracks(slow).items()}
        longest = max(length / scales[number] for number, length in lengths.items())
        for options in ([], ["-self-contained"]):
            out = self.join("out.mov", slow, slow, options=options)
            self.assertEqual(runs.child(runs.movie_header(out), "mvhd")[0], 1, "the version")
            for number, track in runs.tracks(out).items():
                self.assertEqual(runs.child(track.content, "mdia", "mdhd")[0], 1, "the version")
                self.assertEqual(track.media_end // lengths[number], 2)
            self.assertAlmostEqual(float(runs.movie_duration(out)) / longest, 2, delta=1e-9)
        times = [packet.dts for packet in runs.samples_by_track(out)[1]]
        half = len(times) // 2
        self.assert_same(times[:half], [i * delta for i in range(half)])
        self.assert_same([time - times[half] for time in times[half:]], times[:half])


class Bounds(runs.RunTest):
    """What a run costs depends on the size of its input, not on what the input claims."""

    def run_within(self, seconds, memory, *arguments):
        """Runs a command that may use `memory` bytes beyond those that any run needs."""
        most = (100 << 20) + memory
        limits = (resource.RLIMIT_AS, (most, most))
        limit = None if runs.SANITIZERS else lambda: resource.setrlimit(*limits)
        run = lambda: self.run_in_folder(*arguments, preexec_fn=limit, timeout=300)  # noqa: E731
        seconds_taken, done = seconds_used(run)
        # Debug builds may be five times slower, and those with sanitizers twenty times.
        self.assertLess(seconds_taken, seconds * (20 if runs.SANITIZERS else 5))
        return done

    def test_a_header_that_repeats_one_thing_needs_20_times_its_length(self):
        clip = plain_sound(self.folder / "clip.mov", 5000).read_bytes()
        movie, track = (
            runs.atom(kind, content) for kind, content in runs.atoms(runs.child(clip, "moov"))
        )
        media = clip[: -8 - len(movie + track)]
        rows = 100_000 * struct.pack(">6i", 1, 5, 1 << 16, 1, 3, 1 << 16)
        edits = runs.atom("edts", runs.atom("elst", struct.pack(">II", 0, 200_000), rows))
        for content, tracks in (
            (movie + 10_000 * track, 10_000),
            (movie + runs.atom("trak", track[8:], edits), 1),
            (movie + track + 100_000 * runs.atom("free"), 1),
        ):
            header = runs.atom("moov", content)
            (self.folder / "many.mov").write_bytes(media + header)
            for seconds, options in ((1, ["-list"]), (5, ["-self-contained"])):
                with self.subTest(tracks=tracks, header=len(header), options=options):
                    done = self.run_within(seconds, 20 * len(header), "clipjoin", "many.mov", "-q",
                                           *options, "-o", "out.mov")  # fmt: skip
                    self.assertEqual((done.status, done.err), (0, ""))
            self.assertEqual(runs.movie_header(self.folder / "out.mov").count(b"tkhd"), tracks)

    def test_a_compressed_header_of_more_than_64_times_its_length_is_refused(self):
        def compressed(length):
            data = runs.u32(length) + zlib.compress(runs.atom("moov", bytes(length - 8)), 9)
            packed = runs.atom("dcom", b"zlib") + runs.atom("cmvd", data)
            return runs.atom("moov", runs.atom("cmov", packed))

        (self.folder / "zeros.mov").write_bytes(compressed(200 << 20))
        done = self.run_within(1, 0, "clipjoin", "zeros.mov", "-o", "out.mov")
        self.assertRegex(done.err, r"\AError -2002 reading zeros\.mov\n")


if __name__ == "__main__":
    runs.main()
