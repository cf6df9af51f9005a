#!/usr/bin/env python3
"""The progress of copying is shown on a terminal and nowhere else."""

import os
import pty
import select
import signal
import subprocess
import threading
import time
import unittest

import runs


@runs.has_tools("ffmpeg")
class Progress(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = runs.temporary_folder(cls)
        cls.movie = cls.folder / "raw.mov"
        # 138 MB: there is progress to show every 64 MiB.
        source = "testsrc2=size=1280x720:rate=25:duration=3"
        runs.read_by("ffmpeg", "-v", "error", "-f", "lavfi", "-i", source,
                     "-c:v", "rawvideo", "-pix_fmt", "yuyv422", cls.movie)
        cls.outlet = cls.folder / "outlet.mov"
        os.mkfifo(cls.outlet)

    def copy_slowly(self, stderr, *options, terminal=None):
        """Copies into a pipe with a slow reader, which acts like a slow disk. If `terminal` is
        given, interrupts the copy as soon as it prints there. Returns what the copy prints if
        `stderr` is a pipe."""
        # A copy that is interrupted must not be complete before, even on a busy machine.
        seconds = 12 if terminal else 1.5
        delay = seconds * (1 << 16) / self.movie.stat().st_size  # a pipe holds 64 KiB

        def drain():
            with open(self.outlet, "rb", buffering=0) as pipe:
                while pipe.read(1 << 20):
                    time.sleep(delay)
        reader = threading.Thread(target=drain)
        reader.start()
        command = [runs.BIN / "cliptune", *options, self.movie, "-self-contained",
                   "-o", self.outlet]
        with subprocess.Popen(command, stderr=stderr, stdout=subprocess.PIPE) as copying:
            if terminal:
                select.select([terminal], [], [], 60)
                copying.send_signal(signal.SIGINT)
            _, told = copying.communicate(timeout=60)
        reader.join()
        self.assertEqual(copying.returncode, -signal.SIGINT if terminal else 0)
        return told

    def on_a_terminal(self, *options, is_interrupted=False):
        ours, theirs = pty.openpty()
        self.copy_slowly(theirs, *options, terminal=ours if is_interrupted else None)
        os.close(theirs)
        told = b""
        try:
            while piece := os.read(ours, 65536):
                told += piece
        except OSError:  # the other end is closed
            pass
        os.close(ours)
        return told.decode()

    def test_a_terminal_gets_a_line_that_is_erased_at_the_end(self):
        for is_interrupted in (False, True):
            told = self.on_a_terminal(is_interrupted=is_interrupted)
            self.assertRegex(told, r"\d+%  \d+ MB of \d+ MB  [\d.]+ [kM]B/s  \d+:\d\d left")
            self.assertTrue(told.endswith("\r\033[K"), repr(told[-80:]))

    def test_a_quiet_run_prints_no_line(self):
        self.assertEqual(self.on_a_terminal("-q"), "")

    def test_a_pipe_gets_only_messages(self):
        self.assertEqual(self.copy_slowly(subprocess.PIPE), b"")


if __name__ == "__main__":
    runs.main()
