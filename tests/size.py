#!/usr/bin/env python3
"""Checks that the tests have at most MOST lines for each line of everything else.

Blank lines and comments do not count. Code, scripts and transcripts count alike. --folders prints
the lines of each folder.
"""

import collections
import pathlib
import sys

MOST = 0.35
ROOT = pathlib.Path(__file__).resolve().parent.parent
SCRIPTS = (".py", ".sh", ".txt", ".cmake", ".awk", ".fish")


def lines_of(path):
    """The lines of a file that count, or 0 if it is neither code nor a script nor a transcript."""
    text = path.read_bytes()
    is_script = path.suffix in SCRIPTS or text.startswith(b"#!") or "completions" in path.parts
    if path.is_symlink() or not (is_script or path.suffix in (".cpp", ".h")):
        return 0
    lines = (line.strip() for line in text.decode().splitlines())
    return sum(bool(line) and not line.startswith("#" if is_script else "//") for line in lines)


counts = collections.Counter()
for path in ROOT.rglob("*"):
    name = path.relative_to(ROOT)
    if path.is_file() and name.parts[0] not in ("build", ".git"):
        counts[name.parts[:-1][:2]] += lines_of(path)
tests = sum(lines for folder, lines in counts.items() if folder[:1] == ("tests",))
others = counts.total() - tests
if "--folders" in sys.argv:
    for folder, lines in sorted(counts.items()):
        print(f"{lines:6} {'/'.join(folder)}")
print(f"{tests} lines of tests / {others} other lines = {tests / others:.3f}")
sys.exit(tests > MOST * others)
