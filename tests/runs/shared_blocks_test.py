#!/usr/bin/env python3
"""On file systems that share blocks, outputs take almost no room, and they are right all the same."""

import os
import subprocess
import unittest

import runs
from runs import has_tools, make_clip

MAX_ROOM = 3 << 20  # bytes: headers, edges of blocks, and what the file system itself needs
CLIP = (*"-f lavfi -i testsrc2=s=640x360:r=25,noise=alls=60:allf=t -f lavfi".split(), "-i")
CODECS = "-t 6 -c:v mjpeg -q:v 2 -c:a aac".split()


@has_tools("ffmpeg")
@runs.needs_root
class SharedBlocks(runs.RunTest):
    def check_on(self, kind):
        self.mount(kind)
        for name, sound in (("one.mov", "anoisesrc=seed=1:d=5.5"), ("two.mov", "anoisesrc=seed=2")):
            make_clip(self.folder / name, *CLIP, sound, *CODECS)
        whole, header_last = ("-self-contained",), ("-self-contained", "-no-fast-start")
        part = ("-startAt", "1.23", "-trimTo", "3")
        self.check_output("joined.mov", ("one.mov", "two.mov"), whole)
        self.check_output("again.mov", ("joined.mov", "one.mov"), header_last)
        self.check_output("cut.mov", ("one.mov", *part), whole)
        outside = runs.temporary_folder(type(self)) / "joined.mov"
        self.join(outside, "one.mov", "two.mov", options=whole)
        self.assertEqual(runs.frames(self.folder / "joined.mov"), runs.frames(outside))
        # No atom can follow these bytes, so a save writes a new file.
        with open(self.folder / "joined.mov", "ab") as file:
            file.write(b"trailing")
        self.check_room("joined.mov", "cliptune", "joined.mov", "-startAt", "2", "-save-in-place")
        self.check_same("joined.mov", ("again.mov", "-startAt", "2", "-trimTo", "10"))

    def mount(self, kind):
        image, folder = self.folder / "image", self.folder / "mounted"
        folder.mkdir()
        with open(image, "wb") as file:
            file.truncate(400 << 20)
        try:
            for command in ([f"mkfs.{kind}", "-q", image], ["mount", "-o", "loop", image, folder]):
                subprocess.run(command, check=True, capture_output=True)
        except (OSError, subprocess.CalledProcessError) as failure:
            self.skipTest(f"{kind} cannot be mounted here: {failure}")
        self.addCleanup(subprocess.run, ["umount", folder], check=True)
        self.folder = folder

    def check_output(self, name, inputs, options):
        self.check_room(name, "clipjoin", *inputs, "-q", *options, "-o", name)
        self.check_same(name, inputs)

    def check_room(self, name, *command):
        before = self.used()
        self.assertEqual(self.run_in_folder(*command), runs.Result(0, "", ""))
        self.assertGreater((self.folder / name).stat().st_size, 3 * MAX_ROOM)
        self.assertLess(self.used() - before, MAX_ROOM, command)

    def used(self):
        os.sync()
        status = os.statvfs(self.folder)
        return (status.f_blocks - status.f_bfree) * status.f_frsize

    def check_same(self, name, inputs):
        proof = self.run_in_folder("clipinfo", "-same", name, "-from", *inputs)
        self.assertEqual((proof.status, proof.err), (0, ""), proof.out)

    def test_btrfs(self):
        self.check_on("btrfs")

    def test_xfs(self):
        self.check_on("xfs")


if __name__ == "__main__":
    runs.main()
