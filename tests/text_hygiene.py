#!/usr/bin/env python3
"""Checks all text files for blanks at line ends, CR, tabs in C++ and a missing final newline."""

import os
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(__file__).resolve().parent.parent


def project_files():
    """All files that are not ignored; outside a repository, all files except those of builds."""
    git = ["git", "-C", root, "ls-files", "-z", "--cached", "--others", "--exclude-standard"]
    listing = subprocess.run(git, capture_output=True)
    if listing.returncode == 0:
        return sorted({root / os.fsdecode(name) for name in listing.stdout.split(b"\0") if name})
    return sorted(
        path for path in root.rglob("*") if path.relative_to(root).parts[0] not in (".git", "build")
    )


def faults(path, data):
    """Yields (line number, description) for every fault in `data`."""
    lines = data.split(b"\n")
    for number, line in enumerate(lines, 1):
        if line.endswith(b"\r"):
            yield number, "a carriage return"
        elif re.search(rb"[ \t]$", line):
            yield number, "blanks at the end of the line"
        if b"\t" in line and path.suffix in (".h", ".cpp"):
            yield number, "a tab"
    if lines[-1]:
        yield len(lines), "no newline at the end of the file"


found = checked = 0
for path in project_files():
    if not path.is_file() or path.is_symlink():
        continue
    data = path.read_bytes()
    if b"\0" in data:
        continue
    checked += 1
    for number, fault in faults(path, data):
        print(f"{path}:{number}: {fault}")
        found += 1

sys.exit(found > 0 or checked == 0)
