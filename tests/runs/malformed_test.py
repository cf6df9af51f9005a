#!/usr/bin/env python3
"""Broken files: every command ends quickly, uses little memory, and prints one of its messages.
With REELWORK_TRACE=1 a failure names the file and the place in it."""

import fcntl
import os
import pathlib
import random
import re
import resource
import struct
import subprocess

import runs

SANITIZERS = b"__asan_init" in (runs.BIN / "clipjoin").read_bytes() if runs.BIN.exists() else False
SECONDS = 5 if SANITIZERS else 1  # of the processor
MEMORY = resource.RLIM_INFINITY if SANITIZERS else 100 << 20

PROMISED = re.compile(
    r"(.+ does not appear to be a valid movie file\. Skipping it\.\n"
    r"|.+ does not exist\. Make sure that special characters are properly quoted or\n.*\n"
    r"|Permissions error reading .+\n"
    r"|Error -\d+ reading .+\n|Error processing user data; .+\n"
    r"|" + re.escape(runs.HINT) + r"|" + re.escape(runs.REFERENCE_NOTICE) + r"s?\.\n"
    r"|Error in \w+ at line \d+ of (clipjoin|utils|chapter)\.cpp: -\d+\n"
    r"|" + re.escape(runs.ONE_ERROR) + "|" + re.escape(runs.MORE_ERRORS) + ")*"
)


def limit():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CPU, (SECONDS, SECONDS))


def damaged(path, seed):
    """The content of a movie with the file cut off, or with damage in its header."""
    chance = random.Random(f"{path.name} {seed}")
    data = bytearray(path.read_bytes())
    if seed == 0:
        return data[: chance.randrange(len(data))]
    header = max(data.find(b"moov"), 0)
    for _ in range(3):
        at = chance.randrange(header, min(header + 4000, len(data) - 4))
        numbers = (0, 1, 0x7FFFFFFF, 0xFFFFFFFF, chance.getrandbits(32))
        struct.pack_into(">I", data, at, chance.choice(numbers))
    return data


class BrokenFiles(runs.RunTest):
    def test_every_broken_file_is_handled_quickly(self):
        found = (runs.CORPUS / "malformed").rglob("*")
        files = sorted(path for path in found if path.is_file())
        for path in runs.DATA.glob("*.m*"):
            for seed in range(6):
                files.append(self.folder / f"{seed} {path.name}")
                files[-1].write_bytes(damaged(path, seed))

        def work(file):
            out = self.folder / f"{files.index(file)}.mov"
            for command in (
                ["clipjoin", file, "-self-contained", "-o", out],
                ["clipjoin", file, file, "-o", out],
                ["clipstak", file, file, "-self-contained", "-no-fast-start", "-o", out],
                ["cliptune", file, "-q", "-self-contained", "-no-compressed-header", "-o", out],
            ):
                try:
                    done = runs.run(*command, preexec_fn=limit)
                except subprocess.TimeoutExpired:
                    return f"{command}: does not end"
                if done.status not in (0, 1, 2) or done.out or not PROMISED.fullmatch(done.err):
                    return f"{command}: {done}"

        self.assertEqual([fault for fault in runs.in_parallel(work, files) if fault], [])


class Trace(runs.RunTest):
    def store(self, name, content):
        path = pathlib.Path(os.path.realpath(self.folder)) / name
        path.write_bytes(content)
        return path

    def assert_trace(self, line, *arguments, output="/dev/null"):
        """With REELWORK_TRACE=1 the run prints the line; else it prints everything except such
        lines."""
        arguments = ["clipjoin", *arguments, "-o", output]
        traced = self.run_in_folder(*arguments, env={"REELWORK_TRACE": "1"})
        lines = traced.err.splitlines(keepends=True)
        told = [one for one in lines if re.match(r"\w+: -\d+", one)]
        self.assertRegex("".join(told), f"(?m)^{line}$")
        for value in ("", "0"):
            plain = self.run_in_folder(*arguments, env={"REELWORK_TRACE": value})
            self.assertEqual(plain.err, "".join(one for one in lines if one not in told))

    def test_names_the_place_of_the_damage(self):
        table = "/moov/trak/mdia/minf/stbl/stts: the table of rows is longer than its atom"
        for name, atom, fault in (
            ("rotated.mov", b"stts", table),
            ("fragments.mp4", b"trun", "/moof/traf: 'trun' is shorter than its count"),
        ):
            broken = bytearray((runs.DATA / name).read_bytes())
            struct.pack_into(">I", broken, broken.index(atom) + 8, 1000)
            file = self.store("broken\n.mov", broken)
            shown = re.escape(str(file).replace("\n", "?"))
            self.assert_trace(f"NewMovieFromDataRef: -2002: {shown}: {fault}", file)
        whole = (runs.DATA / "rotated.mov").read_bytes()
        file = self.store("short.mov", whole[:-100])
        for options in ([], ["-startAt", "0.5"]):
            command = ("clipjoin", file, "-self-contained", *options, "-o", "out.mov")
            traced = self.run_in_folder(*command, env={"REELWORK_TRACE": "1"})
            line = r"(?m)^Flatten\w+: -39: (.*): (\d+) bytes at (\d+) lie behind its end$"
            found = re.search(line, traced.err)
            self.assertEqual(found[1], str(file))
            self.assertTrue(len(whole) - 100 < int(found[2]) + int(found[3]) <= len(whole))

    def test_names_files_that_cannot_be_used(self):
        file = self.store("clip.mov", (runs.DATA / "rotated.mov").read_bytes())
        text = self.store("text.mov", b"text")
        missing = file.with_name("missing.mov")
        for path, told in (
            (missing, f"-2000: {missing}: No such file or directory"),
            (file.parent, f"-1302: {file.parent}: it is not a regular file"),
            (text, f"-2048: {text}: it has no movie header"),
        ):
            self.assert_trace(f"NewMovieFromDataRef: {told}", path)
        self.join("refers.mov", "clip.mov")
        out = self.store("out.mov", b"old")
        with open(out, "rb") as held:
            fcntl.flock(held, fcntl.LOCK_EX)
            used = f"FlattenMovieDataToDataRef: -47: {out}: another program uses it"
            self.assert_trace(used, file, "-self-contained", output=out)
        file.unlink()
        refers = file.with_name("refers.mov")
        told = f"-2000: {refers}: /moov: media is missing in {file}"
        self.assert_trace(f"NewMovieFromDataRef: {told}", refers)


if __name__ == "__main__":
    runs.main()
