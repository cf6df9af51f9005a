#!/usr/bin/env python3
"""Times the commands, a plain copy of the same bytes, and other tools.

    bench/compare.py [-n ROUNDS] [-o FOLDER] MEDIA [WORKLOAD...]

MEDIA is a folder that bench/make-media filled; the commands are those in build/bin. Each round runs
every tool of a workload once, and every second round runs them in the opposite order. Before each
run, the old output is removed and the disk is synced. The inputs are in the page cache. The time
does not include waiting until the result is on the disk. The first tool of a workload is a plain
copy. "/ copy" is the time divided by the time of that copy in the same round (median of the ratios).
Tools that are not installed are left out.
"""

import argparse
import itertools
import os
import pathlib
import resource
import shutil
import statistics
import struct
import subprocess
import sys
import tempfile
import time

BIN = pathlib.Path(__file__).resolve().parent.parent / "build" / "bin"


def timed(command, output):
    """Wall seconds, processor seconds and peak MB of one run; None if it failed or wrote nothing."""
    output.unlink(missing_ok=True)
    os.sync()
    start = time.perf_counter()
    child = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    _, status, usage = os.wait4(child.pid, 0)
    wall = time.perf_counter() - start
    child.returncode = status
    if status != 0 or not output.exists():
        return None
    return wall, usage.ru_utime + usage.ru_stime, usage.ru_maxrss / 1024


def peak_text(peak):
    """The system counts the memory of this script for each process that the script starts."""
    own = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss / 1024
    return f"{peak:.0f}" if peak > own * 1.05 else f"under {own:.0f}"


def row(*cells):
    print("| " + " | ".join(cells) + " |", flush=True)


def measure(title, rounds, tools):
    """`tools`: (name, output, command), the plain copy first."""
    tools = [tool for tool in tools if shutil.which(str(tool[2][0]))]
    runs = {name: [] for name, _, _ in tools}
    sizes = {}
    for index in range(rounds + 1):  # the first warms up
        for name, output, command in tools if index % 2 else tools[::-1]:
            result = timed(command, output)
            if result:
                sizes[name] = output.stat().st_size
            output.unlink(missing_ok=True)
            if index:
                runs[name].append(result)
    print(f"\n### {title}\n")
    row("tool", "seconds", "/ copy", "spread", "processor s", "peak MB", "bytes")
    row("---", *["---:"] * 6)
    copies = runs[tools[0][0]]
    for name, _, _ in tools:
        if None in runs[name] or None in copies:
            row(name, "failed", *["-"] * 5)
            continue
        wall, processor, peak = (statistics.median(column) for column in zip(*runs[name]))
        ratios = [run[0] / copy[0] for run, copy in zip(runs[name], copies)]
        row(name, f"{wall:.3f}", f"{statistics.median(ratios):.2f}",
            f"{min(ratios):.2f} to {max(ratios):.2f}", f"{processor:.2f}", peak_text(peak),
            str(sizes[name]))


def joins(inputs, work):
    """Every tool that can join movies end to end."""
    out, plain, mkv = work / "out.mov", work / "out.bin", work / "out.mkv"
    listing = work / "list.txt"
    listing.write_text("".join(f"file '{path}'\n" for path in inputs))
    concat = ["ffmpeg", "-nostdin", "-v", "error", "-f", "concat", "-safe", "0", "-i", listing,
              "-map", "0:v", "-map", "0:a", "-c", "copy"]
    ours = [BIN / "clipjoin", "-q", *inputs, "-o", out]
    appended = itertools.chain.from_iterable(("-cat", path) for path in inputs[1:])
    return [
        ("cat", plain, ["sh", "-c", 'cat "$@" > "$0"', plain, *inputs]),
        ("ours", out, [*ours, "-self-contained"]),
        ("ours, header not compressed", out, [*ours, "-self-contained", "-no-compressed-header"]),
        ("ours, header last", out, [*ours, "-self-contained", "-no-fast-start"]),
        ("ours, by reference", out, ours),
        ("ffmpeg, header first", out, [*concat, "-movflags", "+faststart", out]),
        ("ffmpeg", out, [*concat, out]),
        ("MP4Box", out, ["MP4Box", "-quiet", inputs[0], *appended, "-out", out]),
        ("mp4_merge", out, ["mp4_merge", *inputs, "--out", out]),
        ("mkvmerge", mkv, ["mkvmerge", "-q", "-o", mkv, inputs[0],
                           *(f"+{path}" for path in inputs[1:])]),
    ]


def rewrites(movie, work):
    out = work / "out.mov"
    return [
        ("cp", out, ["cp", "--reflink=never", movie, out]),
        ("ours", out, [BIN / "cliptune", "-q", movie, "-self-contained", "-o", out]),
        ("ffmpeg, header first", out, ["ffmpeg", "-nostdin", "-v", "error", "-i", movie, "-map",
                                       "0", "-c", "copy", "-movflags", "+faststart", out]),
        ("MP4Box", out, ["MP4Box", "-quiet", "-inter", "500", movie, "-out", out]),
        ("qt-faststart", out, ["qt-faststart", movie, out]),
    ]


def in_place(rounds, movie, work):
    """Saves a movie of about 306 MB in place, and the same movie with 100 GB of media data that take
    no room on the disk."""
    small, large, copy, page = (work / name for name in ("306.mov", "100g.mov", "copy", "page"))
    subprocess.run([BIN / "cliptune", "-q", movie, "-trimTo", "95", "-self-contained", "-o", small],
                   check=True)  # fmt: skip
    media = 100 << 30
    shutil.copyfile(small, large)
    with open(large, "ab") as file:
        file.write(struct.pack(">I4sQ", 1, b"mdat", 16 + media))
        file.truncate(file.tell() + media)

    def save(path):
        return [BIN / "cliptune", "-q", path, "-startAt", "1", "-save-in-place"]

    def synced_twice():
        with open(page, "wb") as file:
            for _ in range(2):
                file.write(bytes(4096))
                os.fsync(file.fileno())

    cases = {
        "cp": lambda: subprocess.run(["cp", small, copy], check=True),
        "ours, 306 MB": lambda: subprocess.run(save(small), check=True),
        "ours, 100 GB": lambda: subprocess.run(save(large), check=True),
        "two pages and two syncs": synced_twice,
    }
    times = {name: [] for name in cases}
    for _ in range(rounds):
        for name, work_of in cases.items():
            copy.unlink(missing_ok=True)
            os.sync()
            start = time.perf_counter()
            work_of()
            times[name].append(time.perf_counter() - start)
    print("\n### in-place: a save in place\n")
    row("tool", "seconds", "/ copy")
    row("---", *["---:"] * 2)
    for name, seconds in times.items():
        ratios = [one / copied for one, copied in zip(seconds, times["cp"])]
        row(name, f"{statistics.median(seconds):.4f}", f"{statistics.median(ratios):.2f}")


def growth(rounds, cases, work):
    """Prints how the time grows when the work doubles."""
    out = work / "out.mov"
    print("\n### growth\n")
    row("work", "processor s", "of twice as much", "ratio")
    row("---", *["---:"] * 3)
    for title, inputs, flags in cases:
        once, twice = ([BIN / "clipjoin", "-q", *part, *flags, "-o", out]
                       for part in (inputs[: len(inputs) // 2], inputs))
        pairs = [(timed(once, out), timed(twice, out)) for _ in range(rounds)]
        out.unlink(missing_ok=True)
        if None in itertools.chain(*pairs):
            row(title, "failed", "-", "-")
            continue
        small, large = (statistics.median(run[1] for run in runs) for runs in zip(*pairs))
        row(title, f"{small:.3f}", f"{large:.3f}", f"{large / small:.2f}")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("-n", "--rounds", type=int, default=5)
    parser.add_argument("-o", "--outputs", type=pathlib.Path, help="default: MEDIA")
    parser.add_argument("media", type=lambda name: pathlib.Path(name).resolve())
    names = ["large", "long", "many", "rewrite", "in-place", "growth"]
    parser.add_argument("workloads", nargs="*", default=names, metavar="WORKLOAD",
                        help="of " + ", ".join(names))
    options = parser.parse_args()
    if set(options.workloads) - set(names) or options.rounds < 1:
        parser.error("workloads are " + ", ".join(names) + "; a round at least")

    media, rounds = options.media, options.rounds
    large, long = ([media / f"{name}-{which}.mov" for which in "ab"] for name in ("large", "long"))
    clips = sorted((media / "clips").glob("*.mov"))
    inputs = {"large": large, "long": long, "many": clips, "rewrite": large[:1],
              "in-place": large[:1], "growth": long + clips}
    with tempfile.TemporaryDirectory(prefix="bench.", dir=options.outputs or media) as folder:
        work = pathlib.Path(folder)
        for name in options.workloads:
            for path in inputs[name]:
                with open(path, "rb") as stream:
                    while stream.read(1 << 22):
                        pass
            if name == "rewrite":
                measure("rewrite: one movie, header first", rounds, rewrites(large[0], work))
            elif name == "in-place":
                in_place(rounds, large[0], work)
            elif name == "growth":
                # The same clips again and again: each file is opened by name every time.
                many = (clips * 2000)[:2000]
                growth(rounds, [
                    ("2 long movies, by reference", long, []),
                    ("2 long movies, self-contained", long, ["-self-contained"]),
                    ("2000 clips, by reference", many, []),
                    ("10,000 clips, by reference", (clips * 10000)[:10000], []),
                    ("2000 clips, self-contained", many, ["-self-contained"]),
                    (f"{len(clips)} clips, self-contained", clips, ["-self-contained"]),
                ], work)
            else:
                measure(f"{name}: join of {len(inputs[name])} movies, "
                        f"{sum(path.stat().st_size for path in inputs[name]) >> 20} MB",
                        rounds, joins(inputs[name], work))


sys.exit(main())
