#!/usr/bin/env python3
"""Checks that each row of toolbox/KINDS.md names tests that exist, or ends with "not yet"."""

import pathlib
import re
import sys

root = pathlib.Path(__file__).resolve().parent.parent
known = {path.stem.removesuffix("_test") for path in (root / "tests").rglob("*_test.*")}
known |= {path.stem for path in (root / "tests/runs/transcripts").glob("*.txt")}
faults, rows = [], 0
for line in (root / "toolbox/KINDS.md").read_text().splitlines():
    cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
    if len(cells) != 3 or cells[0] in ("kind", "---"):
        continue
    rows += 1
    kind, rule, tests = cells
    if tests != "-":
        faults += [f"{kind}: there is no test {t}" for t in tests.split(", ") if t not in known]
    elif not rule.endswith("not yet"):
        faults.append(f"{kind}: there is no test, and the rule does not end with 'not yet'")

print("\n".join(faults))
sys.exit(bool(faults) or rows < 40)
