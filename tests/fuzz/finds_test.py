#!/usr/bin/env python3
"""Joins each input that once made a fuzz target fail with itself, by reference and self-contained,
and asks clipinfo about it. No sanitizer may report an error, and no signal may end the program.
REELWORK_BIN names the folder of the programs."""

import os
import pathlib
import subprocess
import sys
import tempfile

BIN = pathlib.Path(os.environ["REELWORK_BIN"])
FINDS = pathlib.Path(__file__).resolve().parent.parent / "data" / "finds"
# A small file needs little memory and time.
LIMITS = dict(os.environ, ASAN_OPTIONS="max_allocation_size_mb=1024:hard_rss_limit_mb=1024")
SECONDS = 20
REPORTS = ("Sanitizer", "runtime error:")


def fault(command):
    """The fault of a run of the command, or None."""
    try:
        done = subprocess.run(
            command, env=LIMITS, capture_output=True, text=True, errors="replace", timeout=SECONDS
        )
    except subprocess.TimeoutExpired:
        return f"takes longer than {SECONDS} s"
    if done.returncode < 0:
        return f"ended by signal {-done.returncode}"
    return done.stderr if any(report in done.stderr for report in REPORTS) else None


failed = 0
finds = sorted(FINDS.iterdir())
with tempfile.TemporaryDirectory() as folder:
    output = os.path.join(folder, "output.mov")
    for find in finds:
        for command in (
            ["clipjoin", "-q", find, find, "-o", output],
            ["clipjoin", "-q", find, find, "-self-contained", "-o", output],
            ["clipinfo", find],
            ["clipinfo", "-json", find],
            ["clipinfo", "-check", find],
            ["clipinfo", "-svg", os.path.join(folder, "output.svg"), find],
            ["clipinfo", "-same", find, "-from", find],
            ["clipinfo", "-atoms", find],
        ):
            if what := fault([BIN / command[0], *command[1:]]):
                print(f"{' '.join(map(str, command))}: {what}")
                failed += 1
print(f"{len(finds)} finds, {failed} runs failed")
sys.exit(failed > 0 or not finds)
