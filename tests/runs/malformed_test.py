#!/usr/bin/env python3
"""Broken files: the commands end quickly, use little memory, and print one of their messages.
Inputs that once made the fuzz target fail are given to all modes of clipinfo too."""

import os
import random
import re
import resource
import struct
import subprocess

import runs

SECONDS = 5 if runs.SANITIZERS else 1  # of the processor
MEMORY = resource.RLIM_INFINITY if runs.SANITIZERS else 100 << 20
LIMITS = ":max_allocation_size_mb=1024:hard_rss_limit_mb=1024"
LIMITED = {"ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "") + LIMITS}

PROMISED = re.compile(
    r"(.+ does not appear to be a valid movie file\. Skipping it\.\n"
    r"|.+ does not exist\. Make sure that special characters are properly quoted or\n.*\n"
    r"|Permissions error reading .+\n"
    r"|Error -\d+ reading .+\n|Error processing user data; .+\n"
    r"|Make sure the file exists and that special characters .+\n.+ into the Terminal window\.\n"
    r"|A non-self-contained movie is being created\. Do not delete your original movies?\.\n"
    r"|Error in \w+ at line \d+ of (clipjoin|utils|chapter)\.cpp: -\d+\n"
    r"|\(Yes, we know .+ stink.*\n.+ means?\.\)\n)*"
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
        finds = sorted((runs.DATA / "finds").iterdir())
        files = finds + [p for p in (runs.CORPUS / "malformed").rglob("*") if p.is_file()]
        for path in runs.DATA.glob("*.m*"):
            for seed in range(3):
                files.append(self.folder / f"{seed} {path.name}")
                files[-1].write_bytes(damaged(path, seed))
        self.assertTrue(finds)

        def work(number):
            file, out = files[number], self.folder / f"{number}.mov"
            commands = [
                ["clipjoin", file, "-self-contained", "-o", out],
                ["clipjoin", file, file, "-o", out],
                ["clipstak", file, file, "-self-contained", "-no-fast-start", "-o", out],
                ["cliptune", file, "-q", "-self-contained", "-no-compressed-header", "-o", out],
            ]
            if number < len(finds):
                for mode in ([], ["-json"], ["-check"], ["-svg", out], ["-atoms"]):
                    commands.append(["clipinfo", *mode, file])
                commands.append(["clipinfo", "-same", file, "-from", file])
                commands.append(["clipjoin", "-q", file, file, "-self-contained", "-o", out])
            for command in commands:
                try:
                    done = runs.run(*command, preexec_fn=limit, env=LIMITED)
                except subprocess.TimeoutExpired:
                    return f"{command}: does not end"
                is_promised = not done.out and PROMISED.fullmatch(done.err)
                if command[0] == "clipinfo":
                    is_promised = not re.search("Sanitizer|runtime error:", done.err)
                if done.status not in (0, 1, 2) or not is_promised:
                    return f"{command}: {done}"

        faults = runs.in_parallel(work, range(len(files)))
        self.assertEqual([fault for fault in faults if fault], [])


if __name__ == "__main__":
    runs.main()
