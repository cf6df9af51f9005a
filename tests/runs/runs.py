"""Shared by the tests in this folder: runs the commands, and asks other programs about files.

REELWORK_BIN names the folder of the programs under test. REELWORK_CORPUS names a folder with real
movies, which has the folders "media" and "malformed"; it may be missing.
"""

import array
import bisect
import collections
import concurrent.futures
import fractions
import functools
import json
import os
import pathlib
import shutil
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BIN = pathlib.Path(os.environ.get("REELWORK_BIN", ROOT / "build" / "bin")).resolve()
RELEASE_BIN = ROOT / "build" / "bin"
CORPUS = pathlib.Path(os.environ.get("REELWORK_CORPUS", ROOT.parent / "shared"))
MEDIA = CORPUS / "media"
DATA = ROOT / "tests" / "data"
# The small movies of the project, and the collection.
MOVIES = sorted([*DATA.glob("*.m*"), *DATA.glob("*.3gp"), *MEDIA.glob("*/*.[mM3]*")])

SKIPPED = 77  # ctest takes this status for "skipped"
CONTACT = "<reelwork@example.org>"
REFERENCE_NOTICE = "A non-self-contained movie is being created. Do not delete your original movie"
HINT = (
    "Make sure the file exists and that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n"
)
NOT_A_MOVIE = " does not appear to be a valid movie file. Skipping it.\n"
ONE_ERROR = (
    f"(Yes, we know this error message stinks. Email us at {CONTACT}\n"
    "if you can't figure out what it means.)\n"
)
MORE_ERRORS = (
    f"(Yes, we know these error messages stink. Email us at {CONTACT}\n"
    "if you can't figure out what they mean.)\n"
)

ANNOTATIONS_ARE_LOST = (
    "Warning: the movie has annotations that will not appear in the output file.\n"
    "iTunes can be used to manually add annotations to m4a files.\n"
)

needs_corpus = unittest.skipUnless(MEDIA.is_dir(), f"there is no collection {MEDIA}")
needs_root = unittest.skipUnless(os.geteuid() == 0, "only root can become another user")

SILENT_PACKETS = {
    f"CRC32:{zlib.crc32(bytes.fromhex(packet)):08x}" for packet in ("01182007", "21100000001c")
}

Result = collections.namedtuple("Result", "status out err")
Packet = collections.namedtuple("Packet", "pts dts duration flags data_hash")


def has_tools(*names):
    missing = [name for name in names if shutil.which(name) is None]
    return unittest.skipIf(missing, "not installed: " + " ".join(missing))


def temporary_folder(test_class):
    """A temporary folder that exists until all tests of the class have run."""
    folder = pathlib.Path(tempfile.mkdtemp(prefix="reelwork-"))
    test_class.addClassCleanup(shutil.rmtree, folder)
    return folder


def run(program, *arguments, cwd=None, timeout=60, **more):
    """Runs a program of the build, or the program at an absolute path, with a fixed clock."""
    environment = {**os.environ, "SOURCE_DATE_EPOCH": "1000000000", **more.pop("env", {})}
    done = subprocess.run(
        [os.fspath(BIN / program), *arguments],
        cwd=cwd,
        env=environment,
        capture_output=True,
        timeout=timeout,
        **{"stdin": subprocess.DEVNULL, **more},
    )
    text = (stream.decode("utf-8", "surrogateescape") for stream in (done.stdout, done.stderr))
    return Result(done.returncode, *text)


def read_by(tool, *arguments):
    """The standard output and standard error of another tool."""
    done = subprocess.run([tool, *map(os.fspath, arguments)], capture_output=True, timeout=120)
    return done.stdout, done.stderr.decode("utf-8", "replace")


def in_parallel(work, items):
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(work, items))


class RunTest(unittest.TestCase):
    """A test with a temporary folder, in which the commands run."""

    maxDiff = None

    def setUp(self):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="reelwork-"))
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def assert_same(self, found, expected, what=""):
        """Checks that two sequences are equal. Prints only the first difference."""
        at = next((i for i, pair in enumerate(zip(found, expected)) if pair[0] != pair[1]), None)
        if at is not None:
            self.fail(f"{what} at {at}: {found[at]!r} where {expected[at]!r} was expected")
        self.assertEqual(len(found), len(expected), f"{what}: number")

    def run_in_folder(self, program, *arguments, **more):
        return run(program, *map(os.fspath, arguments), cwd=self.folder, **more)

    def join(self, output, *inputs, options=()):
        """Runs clipjoin, which must succeed and print nothing; returns the path of its output."""
        done = self.run_in_folder("clipjoin", *inputs, "-q", *options, "-o", output)
        self.assertEqual(done, Result(0, "", ""))
        return self.folder / output

    def join_whole(self, output, *inputs):
        return self.join(output, *inputs, options=["-self-contained"])


# Clips


def make_clip(path, *arguments):
    """Makes a movie with ffmpeg. The same arguments always give the same bytes."""
    command = ["ffmpeg", "-v", "error", "-y", "-fflags", "+bitexact", *arguments]
    command += ["-flags:v", "+bitexact", "-flags:a", "+bitexact", os.fspath(path)]
    subprocess.run(command, check=True, stdin=subprocess.DEVNULL, timeout=120)
    return path


# Readers


def identity(path):
    path = pathlib.Path(path).resolve()
    status = path.stat()
    return path, status.st_size, status.st_mtime_ns


def ffprobe(path, *options):
    """ffprobe's output, which is cached: ffprobe starts slowly, and the output can be long."""
    return _ffprobe(identity(path), options)


@functools.lru_cache(maxsize=None)
def _ffprobe(file, options):
    out, _ = read_by("ffprobe", "-v", "error", *options, "-of", "json", file[0])
    return {"streams": [], "packets": [], **json.loads(out or "{}")}


def description(path):
    """What ffprobe reports about the file and its streams."""
    return ffprobe(path, "-show_format", "-show_streams")


def samples_by_track(path):
    """The packets by track number. Edit lists are not applied."""
    answer = ffprobe(
        path, "-ignore_editlist", "1", "-show_streams", "-show_packets", "-show_data_hash", "crc32",
        "-show_entries", "stream=index,id:packet=stream_index,pts,dts,duration,flags,data_hash",
    )  # fmt: skip
    numbers = {s["index"]: int(s.get("id", "0"), 16) for s in answer["streams"]}
    found = {number: [] for number in numbers.values() if number}  # a cover has no number
    for packet in answer["packets"]:
        number = numbers.get(packet["stream_index"])
        if number:
            found[number].append(Packet(*map(packet.get, Packet._fields)))
    return found


def without_silence(samples):
    """The (time, hash) pairs but those of the AAC packets that fill gaps in sound."""
    return [(time, content) for time, content in samples if content not in SILENT_PACKETS]


def complaints(path, *options):
    """The messages of ffmpeg while it plays the file, without the addresses of its objects."""
    # Frames keep their times. With a constant frame rate, ffmpeg would complain about each gap
    # between edits.
    play = ("-fps_mode", "passthrough", "-f", "null", "-")
    _, err = read_by("ffmpeg", "-v", "error", *options, "-i", path, *play)
    return sorted({line.partition("] ")[2] or line for line in err.splitlines()})


# What a file states about its tracks. Edit lists are read here, because ffprobe does not support
# gaps between edits and leaves out a packet if a later edit starts inside it.

Edit = collections.namedtuple("Edit", "start duration media rate")  # seconds, seconds, media units
Track = collections.namedtuple(
    "Track", "number kind duration scale language edits references media_end"  # media units
)


def atoms(data):
    """(type, content) of each atom in `data`."""
    at = 0
    while at + 8 <= len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        head = 8
        if size == 1:
            (size,) = struct.unpack_from(">Q", data, at + 8)
            head = 16
        size = size or len(data) - at
        yield kind.decode("latin-1"), data[at + head : at + size]
        at += max(size, head)


def child(data, *path):
    """The content of the first atom at that path; empty if there is none."""
    for kind in path:
        data = next((content for name, content in atoms(data) if name == kind), b"")
    return data


def movie_header(path):
    """The content of the movie atom, inflated if it is compressed."""
    header = child(pathlib.Path(path).read_bytes(), "moov")
    packed = child(header, "cmov", "cmvd")
    return child(zlib.decompress(packed[4:]), "moov") if packed else header


def time_scale(header):
    """The time scale in an 'mvhd' or 'mdhd'."""
    return struct.unpack_from(">I", header, 20 if header[0] else 12)[0]


def movie_duration(path):
    """The end of the last edit, in seconds. The movie header does not always state it correctly."""
    return max(track.duration for track in tracks(path).values())


def media_duration(header):
    (length,) = struct.unpack_from(">Q" if header[0] else ">I", header, 24 if header[0] else 16)
    return fractions.Fraction(length, time_scale(header))


def edits_of(track, scale):
    table = child(track, "edts", "elst")
    if not table:
        return None
    form = ">QqI" if table[0] else ">IiI"
    found, start = [], fractions.Fraction(0)
    for length, media, rate in struct.iter_unpack(form, table[8:]):
        duration = fractions.Fraction(length, scale)
        found.append(Edit(start, duration, media, fractions.Fraction(rate, 1 << 16)))
        start += duration
    return found


def tracks(path):
    """The tracks by number; `edits` is None if the track has no edit list."""
    return _tracks(identity(path))


@functools.lru_cache(maxsize=None)
def _tracks(file):
    header = movie_header(file[0])
    scale = time_scale(child(header, "mvhd"))
    found = {}
    for name, track in atoms(header):
        if name != "trak":
            continue
        track_header, media = child(track, "tkhd"), child(track, "mdia", "mdhd")
        (number,) = struct.unpack_from(">I", track_header, 20 if track_header[0] else 12)
        edits = edits_of(track, scale)
        duration = sum(e.duration for e in edits) if edits else media_duration(media)
        (language,) = struct.unpack_from(">H", media, 32 if media[0] else 20)
        references = [
            (kind, [target for (target,) in struct.iter_unpack(">I", content)])
            for kind, content in atoms(child(track, "tref"))
        ]
        found[number] = Track(
            number, child(track, "mdia", "hdlr")[8:12].decode("latin-1"), duration,
            time_scale(media), language, edits, references, int(media_duration(media) * time_scale(media)),
        )  # fmt: skip
    return found


def shown(path, number):
    """What a track shows: (start in seconds, hash) of each sample that an edit shows completely or
    in part, edit by edit and in display order. The start is that of the complete sample."""
    track = tracks(path)[number]
    # The order of samples with the same start has no meaning, and ffprobe guesses the duration of
    # samples of duration 0.
    samples = sorted(
        ((p.pts, p.duration or 0, p.data_hash)
         for p in samples_by_track(path).get(number, [])
         if p.pts is not None),
        key=lambda sample: (sample[0], sample[2]),
    )  # fmt: skip
    if track.edits is None:
        return [(fractions.Fraction(pts, track.scale), content) for pts, _, content in samples]
    found = []
    longest = max((duration for _, duration, _ in samples), default=0)
    for edit in track.edits:
        if edit.media < 0:
            continue
        end = edit.media + max(edit.duration * track.scale * edit.rate, 1)
        first = bisect.bisect_left(samples, (edit.media - longest,))
        for pts, duration, content in samples[first:]:
            if pts >= end:
                break
            if pts >= edit.media or pts + duration > edit.media:
                into = fractions.Fraction(pts - edit.media, track.scale) / (edit.rate or 1)
                found.append((edit.start + into, content))
    return found


Frame = collections.namedtuple("Frame", "time hash")


def frames(path, stream="v:0", *options):
    """The decoded frames of a stream: presentation time in seconds, and hash."""
    out, _ = read_by(
        "ffmpeg", "-v", "error", *options, "-i", path, "-map", f"0:{stream}",
        "-fps_mode", "passthrough", "-enc_time_base", "-1", "-f", "framemd5", "-",
    )  # fmt: skip
    found, base = [], 1.0
    for line in out.decode().splitlines():
        if line.startswith("#tb"):
            above, below = line.split()[-1].split("/")
            base = int(above) / int(below)
        elif not line.startswith("#"):
            fields = [field.strip() for field in line.split(",")]
            found.append(Frame(round(int(fields[2]) * base, 6), fields[5]))
    return found


def sound(path, stream="a:0"):
    """The decoded samples of a sound stream, as they play: 16 bits, interleaved."""
    out, _ = read_by(
        "ffmpeg", "-v", "error", "-i", path, "-map", f"0:{stream}", "-f", "s16le", "-"
    )  # fmt: skip
    return array.array("h", out)


class _Outcome(unittest.TextTestResult):
    ran = 0

    def addSuccess(self, test):
        super().addSuccess(test)
        self.ran += 1


def main():
    """Runs the tests of the program. The exit status is SKIPPED if all of them were skipped."""
    runner = unittest.TextTestRunner(resultclass=_Outcome, verbosity=2)
    result = unittest.main(module="__main__", exit=False, testRunner=runner).result
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(0 if result.ran else SKIPPED)
