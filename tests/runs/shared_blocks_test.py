#!/usr/bin/env python3
"""On file systems that share blocks, outputs take almost no room, and they are right all the same."""

import os
import subprocess
import unittest

import runs
from runs import make_clip

MAX_ROOM = 3 << 20  # bytes: headers, edges of blocks, and what the file system itself needs
CLIP = (*"-f lavfi -i testsrc2=s=640x360:r=25,noise=alls=60:allf=t -f lavfi".split(), "-i")
CODECS = "-t 6 -c:v mjpeg -q:v 2 -c:a aac".split()
WHOLE = "-self-contained"


@unittest.skipUnless(os.geteuid() == 0, "only root can mount a file system")
class SharedBlocks(runs.RunTest):
    def check_on(self, kind):
        image, outside = self.folder / "image", self.folder
        self.folder /= "mounted"
        self.folder.mkdir()
        with open(image, "wb") as file:
            file.truncate(400 << 20)
        mount = ["mount", "-o", "loop", image, self.folder]
        try:
            for command in ([f"mkfs.{kind}", "-q", image], mount):
                subprocess.run(command, check=True, capture_output=True)
        except (OSError, subprocess.CalledProcessError) as failure:
            self.skipTest(f"{kind} cannot be mounted here: {failure}")
        self.addCleanup(subprocess.run, ["umount", self.folder], check=True)
        for name, sound in (("one.mov", "anoisesrc=seed=1:d=5.5"), ("two.mov", "anoisesrc=seed=2")):
            make_clip(self.folder / name, *CLIP, sound, *CODECS)
        part, saved = ("one.mov", "-startAt", "1.23", "-trimTo", "3"), ("-startAt", "2")
        for name, inputs, options in (
            ("joined.mov", ("one.mov", "two.mov"), [WHOLE]),
            ("again.mov", ("joined.mov", "one.mov"), [WHOLE, "-no-fast-start"]),
            ("cut.mov", part, [WHOLE]),
        ):
            self.check(name, inputs, "clipjoin", *inputs, "-q", *options, "-o", name)
        copy = self.join(outside / "joined.mov", "one.mov", "two.mov", WHOLE)
        self.assertEqual(runs.samples(self.folder / "joined.mov"), runs.samples(copy))
        # No atom can follow these bytes, so a save writes a new file.
        with open(self.folder / "joined.mov", "ab") as file:
            file.write(b"trailing")
        source = ("again.mov", *saved, "-trimTo", "10")
        self.check("joined.mov", source, "cliptune", "joined.mov", *saved, "-save-in-place")

    def check(self, name, inputs, *command):
        """The command writes a file that needs almost no room, and shows what `inputs` show."""
        before = self.used()
        self.assertEqual(self.run_in_folder(*command), runs.Result(0, "", ""))
        self.assertGreater((self.folder / name).stat().st_size, 3 * MAX_ROOM)
        self.assertLess(self.used() - before, MAX_ROOM, command)
        proof = self.run_in_folder("clipinfo", "-same", name, "-from", *inputs)
        self.assertEqual((proof.status, proof.err), (0, ""), proof.out)

    def used(self):
        os.sync()
        status = os.statvfs(self.folder)
        return (status.f_blocks - status.f_bfree) * status.f_frsize

    def test_btrfs(self):
        self.check_on("btrfs")

    def test_xfs(self):
        self.check_on("xfs")


if __name__ == "__main__":
    runs.main()
