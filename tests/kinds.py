#!/usr/bin/env python3
"""Checks that each row of toolbox/KINDS.md names tests and files that exist, or says "not yet"."""

import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
corpus = root.parent / "shared" / "media"
runs = {path.name.removesuffix("_test.py") for path in (root / "tests/runs").glob("*_test.py")}
cases = set()
for path in (root / "tests").rglob("*_test.cpp"):
    for suite, name in re.findall(r"^TEST(?:_[FP])?\((\w+),\s*(\w+)\)", path.read_text(), re.M):
        cases |= {suite, f"{suite}.{name}"}

faults, rows, kind = [], 0, "kind"
for line in (root / "toolbox/KINDS.md").read_text().splitlines():
    cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
    if len(cells) != 4 or cells[0] in ("kind", "---"):
        continue
    rows += 1
    kind, rule, tests, files = cells
    if tests == "-":
        if not rule.endswith("not yet"):
            faults.append(f"{kind}: there is no test, and the rule does not end with 'not yet'")
        continue
    suite = ""
    for test in tests.split(", "):
        suite = test.partition(".")[0] or suite
        if test not in runs and (suite + test if test.startswith(".") else test) not in cases:
            faults.append(f"{kind}: there is no test {test}")
    for name in files.split(", "):
        # Plain words, such as "made by ffmpeg", are not file names.
        if "/" in name and corpus.is_dir() and not (corpus / name).exists():
            faults.append(f"{kind}: there is no file {name}")

print("\n".join(faults))
sys.exit(bool(faults) or rows < 40)
