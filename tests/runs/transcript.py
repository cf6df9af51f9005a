#!/usr/bin/env python3
"""Runs transcripts: text files with commands and what they print.

    transcript.py [--accept] FILE...

A line of a transcript is one of these:

    == TITLE     A new case. It runs in a copy of the folder that the commands before the first
                 case have left, so these make what all cases need.
    $ COMMAND    A command for bash. One shell runs all commands of a case.
    > COMMAND    Another line of that command.
      TEXT       A line that the command prints on either stream. It is indented by two spaces.
    ~ PATTERN    A line that the command prints, as a regular expression.
    ~~           Any number of lines that the command prints.
    [STATUS]     Its exit status, if that is not 0.
    needs: NAME  Programs and devices that few machines have; without them, the file is skipped.
    # TEXT       A comment.

Blank lines do not count, neither here nor in what is printed. --accept writes what the commands
print into the file; read it before you believe it.
"""

import difflib
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

import kept

HERE = pathlib.Path(__file__).resolve().parent
BIN = pathlib.Path(os.environ.get("REELWORK_BIN", HERE.parent.parent / "build" / "bin")).resolve()
ENVIRONMENT = {
    **os.environ,
    "PATH": f"{BIN}:{os.environ['PATH']}",
    "BASH_ENV": str(HERE / "transcripts" / "prelude.sh"),
    "KEPT": str(kept.FOLDER),
    "LC_ALL": "C.UTF-8",
    "SOURCE_DATE_EPOCH": "1000000000",
}
COMMAND, MORE, TEXT, PATTERN, ANY, CASE = "$ ", "> ", "  ", "~ ", "~~", "== "
NEEDS = "needs: "
SKIPPED = 77  # ctest takes this status for "skipped"


class Step:
    """A command with its place in the file, and the lines that are expected after it."""

    def __init__(self, line, command):
        self.line, self.command, self.expected = line, command, []

    def accepts(self, printed):
        forms = {ANY: lambda line: "(?:.*\n)*?", PATTERN: lambda line: TEXT + line[2:] + "\n"}
        pattern = "".join(
            forms.get(line[:2], lambda line: re.escape(line) + "\n")(line) for line in self.expected
        )
        return re.fullmatch(pattern, "".join(line + "\n" for line in printed))


def read(path):
    """The cases of a transcript: (title, steps). The first one has no title."""
    cases = [("", [])]
    for number, line in enumerate(path.read_text().splitlines()):
        if line.startswith(CASE):
            cases.append((line[len(CASE) :], []))
        elif line.startswith(COMMAND):
            cases[-1][1].append(Step(number, line[len(COMMAND) :]))
        elif line.startswith(MORE):
            cases[-1][1][-1].command += "\n" + line[len(MORE) :]
        elif line.startswith((TEXT, PATTERN, ANY, "[")):
            cases[-1][1][-1].expected.append(line.rstrip())
        elif line.startswith(NEEDS):
            names = line[len(NEEDS) :].split()
            missing = [name for name in names if not (os.path.exists(name) or shutil.which(name))]
            if missing:
                print(f"{path.name} is skipped, because these are missing: {', '.join(missing)}")
                sys.exit(SKIPPED)
        elif line and not line.startswith("#"):
            sys.exit(f"{path}:{number + 1}: what is this line?")
    return cases


def run(steps, folder):
    """Runs the commands of a case. Returns the lines that each one prints, in the form of the file."""
    script = "".join(f"{step.command}\nprintf '\\n\\1%s\\n' $?\n" for step in steps)
    done = subprocess.run(
        ["bash", "-c", "exec 2>&1\n" + script], cwd=folder, env={**ENVIRONMENT, "HOME": folder},
        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, timeout=300,
    )  # fmt: skip
    printed = []
    first, *rest = done.stdout.decode("utf-8", "backslashreplace").split("\n\1")
    for text in rest:
        status, _, after = text.partition("\n")
        lines = [TEXT + line.rstrip() for line in first.split("\n") if line.strip()]
        printed.append(lines + ([f"[{status}]"] if status != "0" else []))
        first = after
    return printed + [["the shell has ended"]] * (len(steps) - len(printed))


def accept(path, found):
    """Replaces the expected lines of the file by those found, a pair (step, lines) for each step."""
    lines = path.read_text().splitlines()
    for step, printed in reversed(found):
        start = step.line + 1 + step.command.count("\n")
        end = start
        while end < len(lines) and lines[end].startswith((TEXT, PATTERN, ANY, "[")):
            end += 1
        lines[start:end] = printed
    path.write_text("\n".join(lines) + "\n")


def check(path, is_accepting):
    """Runs a transcript. Returns whether it prints what the file says."""
    (_, setup), *cases = read(path)
    found, wrong = [], 0
    with tempfile.TemporaryDirectory(prefix="reelwork-") as top:
        common = os.path.join(top, "common")
        os.mkdir(common)
        for number, (title, steps) in enumerate([("", setup), *cases]):
            folder = common
            if number != 0:
                folder = shutil.copytree(common, os.path.join(top, "case"), symlinks=True)
            for step, printed in zip(steps, run(steps, folder)):
                found.append((step, printed))
                if is_accepting or step.accepts(printed):
                    continue
                wrong += 1
                print(f"{path}:{step.line + 1}: {title}\n$ {step.command}")
                names = ("expected", "printed")
                print(*difflib.unified_diff(step.expected, printed, *names, lineterm=""), sep="\n")
            if number != 0:
                shutil.rmtree(folder)
    if is_accepting:
        accept(path, [pair for pair in found if not pair[0].accepts(pair[1])])
    return not wrong


def main():
    arguments = sys.argv[1:]
    is_accepting = "--accept" in arguments
    files = [pathlib.Path(name) for name in arguments if name != "--accept"]
    # A list, so that all files are run.
    sys.exit(0 if files and all([check(path, is_accepting) for path in files]) else 1)


main()
