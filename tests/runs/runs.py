"""Shared by the tests in this folder: runs the commands, and asks other programs about files.

REELWORK_BIN names the folder of the programs under test. REELWORK_CORPUS names a folder with real
movies, which has the folders "media" and "malformed"; it may be missing.
"""

import array
import collections
import concurrent.futures
import functools
import json
import math
import os
import pathlib
import re
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import unittest
import zlib
from fractions import Fraction

from kept import kept

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BIN = pathlib.Path(os.environ.get("REELWORK_BIN", ROOT / "build" / "bin")).resolve()
CORPUS = pathlib.Path(os.environ.get("REELWORK_CORPUS", ROOT.parent / "shared"))
MEDIA = CORPUS / "media"
DATA = ROOT / "tests" / "data"
# The small movies of the project, and the collection.
MOVIES = sorted([*DATA.glob("*.m*"), *DATA.glob("*.3gp"), *MEDIA.glob("*/*.[mM3]*")])

SANITIZERS = BIN.exists() and b"__asan_init" in (BIN / "clipjoin").read_bytes()

Result = collections.namedtuple("Result", "status out err")
Packet = collections.namedtuple("Packet", "pts dts duration flags data_hash pos size")


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


def is_self_contained(path):
    """Whether a movie needs no other file."""
    try:
        tables = [
            child(track, "mdia", "minf", "dinf", "dref")[8:]
            for kind, track in atoms(movie_header(path)) if kind == "trak"
        ]  # fmt: skip
        return bool(tables) and all(entry[3] & 1 for table in tables for _, entry in atoms(table))
    except (IndexError, struct.error, zlib.error):
        return False


def read_by(tool, *arguments):
    """The standard output and standard error of another tool. They are kept if it reads only one
    file, a movie of less than 16 MB that needs no other file."""
    command = [tool, *map(os.fspath, arguments)]
    files = [name for name in command if os.path.isfile(name)]

    def ask(path=None):
        done = subprocess.run(command, capture_output=True, timeout=120, check=bool(path))
        answer = done.stdout.decode("latin-1"), done.stderr.decode("utf-8", "replace")
        return path.write_text(json.dumps(answer)) if path else answer

    try:
        is_small = len(files) == 1 and os.path.getsize(files[0]) < 1 << 24
        is_kept = is_small and is_self_contained(files[0])
        out, err = json.loads(kept(command, ask).read_text()) if is_kept else ask()
    except subprocess.CalledProcessError:
        out, err = ask()
    return out.encode("latin-1"), err


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
    command = ["ffmpeg", "-v", "error", "-y", "-fflags", "+bitexact", *map(os.fspath, arguments)]
    command += ["-flags:v", "+bitexact", "-flags:a", "+bitexact", f"clip{path.suffix}"]

    def make(clip):
        subprocess.run([*command[:-1], clip], check=True, stdin=subprocess.DEVNULL, timeout=120)

    shutil.copyfile(kept(command, make), path)
    return path


def atom(kind, *parts):
    content = b"".join(parts)
    return struct.pack(">I4s", 8 + len(content), kind.encode("latin-1")) + content


def u32(*numbers):
    return struct.pack(f">{len(numbers)}I", *numbers)


IDENTITY = u32(1 << 16, 0, 0, 0, 1 << 16, 0, 0, 0, 1 << 30)


def made_track(kind, number, scale, description, samples, size, at, chunk, *more, offsets=()):
    """A track of samples that have `size` bytes, last one unit and have their media at `at`, in
    chunks of `chunk` samples. `more` are other atoms of the track."""
    chunks, length = -(-samples // chunk), samples * 600 // scale
    shifts = [u32(1, offset) for offset in offsets]
    places = [struct.pack(">Q", at + i * chunk * size) for i in range(chunks)]
    rows = [(1, chunk, 1), (chunks, samples - (chunks - 1) * chunk, 1)][-chunks:]
    table = atom(
        "stbl",
        atom("stsd", u32(0, 1), description),
        atom("stts", u32(0, 1, samples, 1)),
        atom("ctts", u32(1 << 24, len(offsets)), *shifts) if offsets else b"",
        atom("stsc", u32(0, len(rows), *sum(rows, ()))),
        atom("stsz", u32(0, size, samples)),
        atom("co64", u32(0, chunks), *places),
    )
    media = (
        atom("mdhd", u32(0, 0, 0, scale, samples, 0)),
        atom("hdlr", u32(0), b"mhlr", kind.encode(), bytes(13)),
        atom("minf", atom("dinf", atom("dref", u32(0, 1), atom("alis", u32(1)))), table),
    )
    head = u32(15, 0, 0, number, 0, length, 0, 0, 0, 256 << 16) + IDENTITY + bytes(8)
    return atom("trak", atom("tkhd", head), *more, atom("mdia", *media))


def made_movie(*tracks, length=0):
    head = u32(0, 0, 0, 600, length, 1 << 16, 256 << 16, 0, 0) + IDENTITY + u32(0, 0, 0, 0, 0, 0, 9)
    return atom("moov", atom("mvhd", head), *tracks)


# Readers


def by_file(work):
    """Caches what `work` finds in a file until the file changes."""
    cached = functools.lru_cache(maxsize=None)(lambda path, changed, size, *more: work(path, *more))

    def find(path, *more):
        status = os.stat(path)
        return cached(pathlib.Path(path).resolve(), status.st_mtime_ns, status.st_size, *more)

    return find


def ffprobe(path, *options):
    out, _ = read_by("ffprobe", "-v", "error", *options, "-of", "json", path)
    return {"streams": [], "packets": [], **json.loads(out or "{}")}


@by_file
def description(path):
    """What ffprobe reports about the file and its streams."""
    return ffprobe(path, "-show_format", "-show_streams")


@by_file
def samples_by_track(path):
    """The packets by track number. Edit lists are not applied."""
    answer = ffprobe(
        path, "-ignore_editlist", "1", "-show_streams", "-show_packets", "-show_data_hash", "crc32",
        "-show_entries", "stream=index,id:packet=stream_index," + ",".join(Packet._fields),
    )  # fmt: skip
    numbers = {s["index"]: int(s.get("id", "0"), 16) for s in answer["streams"]}
    found = {number: [] for number in numbers.values() if number}  # a cover has no number
    for packet in answer["packets"]:
        number = numbers.get(packet["stream_index"])
        if number:
            found[number].append(Packet(*map(packet.get, Packet._fields)))
    return found


def samples(path):
    """The packets by track number, without their places in the file."""
    found = samples_by_track(path)
    return {number: [packet._replace(pos=None) for packet in found[number]] for number in found}


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
    # `media_end` is in media units; `content` is that of the atom.
    "Track", "number kind duration scale language edits references media_end content"
)


def atoms(data):
    """(type, content) of each atom in `data`."""
    at = 0
    while at + 8 <= len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        head = 16 if size == 1 else 8
        if size == 1:
            (size,) = struct.unpack_from(">Q", data, at + 8)
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
    return Fraction(length, time_scale(header))


def edits_of(track, scale):
    table = child(track, "edts", "elst")
    if not table:
        return None
    form = ">QqI" if table[0] else ">IiI"
    found, start = [], Fraction(0)
    for length, media, rate in struct.iter_unpack(form, table[8:]):
        duration = Fraction(length, scale)
        found.append(Edit(start, duration, media, Fraction(rate, 1 << 16)))
        start += duration
    return found


@by_file
def tracks(path):
    """The tracks by number; `edits` is None if the track has no edit list."""
    header = movie_header(path)
    scale = time_scale(child(header, "mvhd"))
    found = {}
    for track in (content for name, content in atoms(header) if name == "trak"):
        track_header, media = child(track, "tkhd"), child(track, "mdia", "mdhd")
        (number,) = struct.unpack_from(">I", track_header, 20 if track_header[0] else 12)
        edits = edits_of(track, scale)
        (language,) = struct.unpack_from(">H", media, 32 if media[0] else 20)
        references = [
            (kind, [target for (target,) in struct.iter_unpack(">I", content)])
            for kind, content in atoms(child(track, "tref"))
        ]
        length = media_duration(media)
        found[number] = Track(
            number, child(track, "mdia", "hdlr")[8:12].decode("latin-1"),
            sum(e.duration for e in edits) if edits else length, time_scale(media), language, edits,
            references, int(length * time_scale(media)), track,
        )  # fmt: skip
    return found


# The AAC packets that fill gaps in sound.
SILENT_PACKETS = {
    f"CRC32:{zlib.crc32(bytes.fromhex(packet)):08x}" for packet in ("01182007", "21100000001c")
}

# A part of a track, in seconds of the movie and of its media. An empty part has no media.
Stretch = collections.namedtuple("Stretch", "start end media rate")


def stretches(path):
    """What each track shows, by track number."""
    found = {}
    for number, track in tracks(path).items():
        samples = samples_by_track(path).get(number)
        lasts = not samples or len(samples) < 2 or any(p.duration for p in samples[:-1])
        if track.kind == "hint" or not (track.edits or lasts):
            continue
        found[number] = []
        for edit in track.edits or [Edit(Fraction(0), track.duration, 0, Fraction(1))]:
            shown = (Fraction(edit.media, track.scale), edit.rate) if edit.media >= 0 else (None, None)
            found[number].append(Stretch(edit.start, edit.start + edit.duration, *shown))
    return found


def presented(path, number, parts=None):
    """(time, hash) of each sample of the track that `parts`, a list of stretches, show for longer
    than a rounding error. By default these are the edits of the track."""
    parts = stretches(path).get(number, []) if parts is None else parts
    scale, media_end = tracks(path)[number].scale, tracks(path)[number].media_end
    samples = [s for s in samples_by_track(path).get(number, []) if s.pts is not None]
    samples.sort(key=lambda sample: sample.pts)
    # ffprobe sometimes guesses durations. A sample cannot last beyond the start of the next one.
    gaps = [after.pts - s.pts for s, after in zip(samples, samples[1:])] + [math.inf]
    usual = statistics.median_low(gaps) if len(gaps) > 1 else 0
    lasts = [min(max(s.duration or 0, usual), gap) for s, gap in zip(samples, gaps)]
    if samples and samples[-1].pts < media_end:
        lasts[-1] = media_end - samples[-1].pts
    margin = Fraction(3, 1000) + max((s.rate or 0 for s in parts), default=0) * Fraction(3, 600)
    found = []
    for stretch in (s for s in parts if s.media is not None):
        low, high = stretch.media, stretch.media + (stretch.end - stretch.start) * stretch.rate
        first, last = math.floor(low * scale), math.ceil(high * scale)
        for sample, length in zip(samples, lasts):
            if sample.pts >= last or sample.pts + length <= first:
                continue
            start, end = Fraction(sample.pts, scale), Fraction(sample.pts + length, scale)
            if min(high, end) - max(low, start) > margin:
                at = stretch.start + (max(low, start) - low) / stretch.rate
                found.append((at, sample.data_hash))
    return sorted((one for one in found if one[1] not in SILENT_PACKETS), key=lambda shown: shown[0])


Frame = collections.namedtuple("Frame", "time hash")


def frames(path, stream="v:0", *options):
    """The decoded frames of a stream: presentation time in seconds, and hash."""
    out, _ = read_by(
        "ffmpeg", "-v", "error", *options, "-i", path, "-map", f"0:{stream}",
        "-fps_mode", "passthrough", "-enc_time_base", "-1", "-f", "framemd5", "-",
    )  # fmt: skip
    base = re.search(r"(?m)^#tb 0: (\d+)/(\d+)", out.decode())
    rows = re.findall(r"(?m)^0, +-?\d+, +(-?\d+), +\d+, +\d+, +(\w+)", out.decode())
    return [Frame(round(int(at) * int(base[1]) / int(base[2]), 6), content) for at, content in rows]


def sound(path, stream="a:0"):
    """The decoded samples of a sound stream, as they play: 16 bits, interleaved."""
    out, _ = read_by(
        "ffmpeg", "-v", "error", "-i", path, "-map", f"0:{stream}", "-f", "s16le", "-"
    )  # fmt: skip
    return array.array("h", out)


def main():
    """Runs the tests of the program. If all of them are skipped, the exit status is 77, as ctest
    expects."""
    result = unittest.main(module="__main__", exit=False, verbosity=2).result
    if not result.wasSuccessful():
        sys.exit(1)
    sys.exit(0 if result.testsRun > len(result.skipped) else 77)
