#!/usr/bin/env python3
"""Checks all text files for blanks at line ends, CR, tabs in C++ and a missing final newline."""

import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent


def faults(path, data):
    """Yields (line number, description) for every fault in `data`."""
    lines = data.split(b"\n")
    for number, line in enumerate(lines, 1):
        if re.search(rb"[ \t\r]$", line):
            yield number, "a blank or a carriage return at the end of the line"
        if b"\t" in line and path.suffix in (".h", ".cpp"):
            yield number, "a tab"
    if lines[-1]:
        yield len(lines), "no newline at the end of the file"


found = checked = 0
for path in sorted(root.rglob("*")):
    if path.relative_to(root).parts[0] in (".git", "build") or path.is_symlink() or path.is_dir():
        continue
    data = path.read_bytes()
    if b"\0" in data:
        continue
    checked += 1
    for number, fault in faults(path, data):
        print(f"{path}:{number}: {fault}")
        found += 1

sys.exit(found > 0 or checked == 0)
