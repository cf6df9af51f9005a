#!/usr/bin/env python3
"""Checks that every folder includes only what it may include, and that bytes are decoded only in
toolbox/atoms/ and toolbox/text/. Prints file:line for each violation."""

import pathlib
import re
import sys

SMALL = r"toolbox/(bytes|codes|file_state|held_bytes|refused|trace)\.h"
# What all command folders may include: the calls of the toolbox, and two headers that they share.
SHARED = r"toolbox/toolbox\.h|clipjoin/(options|report)\.h"


def below(*folders):
    """The headers of those folders of the toolbox, and the small headers for every folder."""
    return rf"{SMALL}|toolbox/({'|'.join(folders)})/\w+\.h"


# What the files of a folder, or one file, may include of this project.
ALLOWED = {
    "toolbox": rf"{SMALL}|toolbox/(types|atoms/fourcc)\.h",
    "toolbox/atoms": rf"{SMALL}|toolbox/atoms/\w+\.h",
    "toolbox/text": rf"{SMALL}|toolbox/text/\w+\.h",
    "toolbox/movie": below("movie", "text", "atoms"),
    "toolbox/disk": below("disk"),
    "toolbox/references": below("references", "disk", "movie", "text", "atoms"),
    "toolbox/read": below("read", "references", "disk", "movie", "atoms"),
    "toolbox/plan": below("plan", "read", "disk", "movie", "atoms"),
    "toolbox/write": below("write", "plan", "read", "references", "disk", "movie", "atoms"),
    "toolbox/mpeg4": below("mpeg4", "plan", "references", "movie", "atoms"),
    "toolbox/calls": r"toolbox/[\w/]+\.h",
    "clipjoin": rf"{SHARED}|(clipjoin|input|chapter|utils)/\w+\.h",
    "input": rf"{SHARED}|(input|chapter|utils)/\w+\.h",
    "chapter": rf"{SHARED}|(chapter|utils)/\w+\.h",
    "utils": rf"{SHARED}|utils/\w+\.h",
    "clipjoin/options.h": r"toolbox/toolbox\.h",
    "clipjoin/report.h": r"toolbox/toolbox\.h",
    "clipjoin/report.cpp": r"clipjoin/report\.h",
    "examples": r"toolbox/toolbox\.h",
    # It only reads, so it uses the library's own types where the calls do not suffice.
    "clipinfo": r"(toolbox/[\w/]+|clipinfo/\w+|utils/\w+|input/track_names|chapter/(chapter(_list)?|genres)|clipjoin/(cursor|values|process))\.h",
}

# What decodes and encodes numbers in bytes, and the folders of the toolbox that may use it.
BYTES = re.compile(r"big_endian\.h|\b(From|To|Append)BigEndian\b|boost::endian|\bFieldReader\b")
BYTE_FOLDERS = ("toolbox/atoms", "toolbox/text")

# Everything in quotes is matched, so that a path relative to the file is refused too.
INCLUDE = re.compile(
    r'\s*#\s*include\s*(?:"([^"]*)"|<((?:toolbox|clipjoin|input|chapter|utils)/[^>]*)>)'
)

root = pathlib.Path(__file__).resolve().parent.parent
checked = violations = 0
for top in sorted({folder.split("/")[0] for folder in ALLOWED}):
    for path in sorted((root / top).rglob("*")):
        if path.suffix not in (".h", ".cpp"):
            continue
        folder = path.parent.relative_to(root).as_posix()
        allowed = ALLOWED.get(path.relative_to(root).as_posix(), ALLOWED.get(folder, ""))
        checked += 1
        for number, line in enumerate(path.read_text().splitlines(), 1):
            found = INCLUDE.match(line)
            included = found and (found[1] or found[2])
            if included and not re.fullmatch(allowed, included):
                print(f"{path}:{number}: {folder}/ must not include {included}")
                violations += 1
            if top == "toolbox" and folder not in BYTE_FOLDERS and BYTES.search(line):
                print(f"{path}:{number}: {folder}/ must not decode bytes: {line.strip()}")
                violations += 1

sys.exit(violations > 0 or checked == 0)
