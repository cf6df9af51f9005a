#!/usr/bin/env python3
"""The installed files are complete, three of the commands are links to one program, and the program
in examples/ can be built with the installed toolbox."""

import os
import re
import subprocess
import unittest

import runs
from runs import BIN, ROOT, make_clip

BUILD = BIN.parent

# Folders whose files are installed.
FOLDERS = ("completions/bash", "completions/fish", "completions/zsh", "man", "examples/batch")


def cached(name):
    text = (BUILD / "CMakeCache.txt").read_text()
    return (re.findall(rf"(?m)^{name}:\w+=(.*)$", text) or [""])[0]


def call(*command, **more):
    done = subprocess.run(command, capture_output=True, text=True, timeout=300, **more)
    if done.returncode:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


@unittest.skipUnless((BUILD / "CMakeCache.txt").is_file(), "the commands are not in a build tree")
class Installation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        call("cmake", "--install", BUILD, "--prefix", folder / "first")
        # The pkg-config and CMake files use relative paths, so they also work after a move.
        cls.folder, cls.tree = folder, (folder / "first").rename(folder / "moved")
        # If the library was built with sanitizers, the program needs them too.
        cls.flags = "-fsanitize=address,undefined" if cached("REELWORK_SANITIZE") == "ON" else ""

    def test_installs_the_commands_and_all_their_files(self):
        found = {path.name: path for path in self.tree.rglob("*") if not path.is_dir()}
        for folder in FOLDERS:
            for path in (ROOT / folder).iterdir():
                if path.suffix not in (".mdoc", ".awk"):
                    self.assertIn(path.name, found)
        self.assertLessEqual({"schema.json", "check-schema.json", "LICENSE"}, set(found))
        for name in ("clipjoin", "clipstak", "cliptune"):
            done = runs.run(self.tree / "bin" / name)
            self.assertEqual((done.status, done.err.split()[3]), (2, name))
        links = {name: os.readlink(path) for name, path in found.items() if path.is_symlink()}
        fish = {"clipstak.fish": "clipjoin.fish", "cliptune.fish": "clipjoin.fish"}
        self.assertEqual(links, {"clipstak": "clipjoin", "cliptune": "clipjoin", **fish})

    def assert_cuts(self, program):
        """The example keeps two seconds from the middle of a movie."""
        movie = make_clip(self.folder / "movie.mov", "-f", "lavfi", "-i", "testsrc2=size=320x180:rate=25",
                          "-t", "4", "-c:v", "libx264", "-preset", "ultrafast")  # fmt: skip
        cut = self.folder / "cut.mov"
        cut.unlink(missing_ok=True)
        call(program, movie, "1.6", "2", cut)
        own = [frame.hash for frame in runs.frames(movie)]
        self.assertEqual([frame.hash for frame in runs.frames(cut)], own[40:90])
        failed = runs.run(program, "/nowhere.mov", "1", "2", cut)
        self.assertEqual((failed.status, failed.err), (1, "cut: error -2000\n"))

    def test_builds_a_program_through_cmake(self):
        build = self.folder / "build"
        call("cmake", "-G", "Ninja", "-S", ROOT / "examples", "-B", build,
             f"-DCMAKE_PREFIX_PATH={self.tree}", f"-DCMAKE_CXX_FLAGS={self.flags}",
             f"-DCMAKE_CXX_COMPILER={cached('CMAKE_CXX_COMPILER')}")  # fmt: skip
        call("cmake", "--build", build)
        self.assert_cuts(build / "cut")

    def test_builds_a_program_through_pkg_config(self):
        (package,) = self.tree.rglob("reelwork.pc")
        ask = lambda *options: call("pkg-config", *options, package).split()  # noqa: E731
        self.assertEqual(ask("--modversion"), [cached("CMAKE_PROJECT_VERSION")])
        call(cached("CMAKE_CXX_COMPILER"), "-std=c++20", *self.flags.split(), ROOT / "examples/cut.cpp",
             *ask("--cflags", "--libs"), "-o", self.folder / "cut")  # fmt: skip
        self.assert_cuts(self.folder / "cut")


RELEASE = ROOT / "build/bin/clipjoin"


@unittest.skipUnless(RELEASE.is_file(), "there is no release build")
class ReleaseBuild(unittest.TestCase):
    def test_is_hardened(self):
        found = call("readelf", "-W", "-h", "-l", "-d", "--dyn-syms", RELEASE)
        for wanted in (
            r"Type: +DYN ", r"FLAGS_1.*\bPIE\b",  # loaded at a random address
            r"\bGNU_RELRO\b", r"FLAGS_1.*\bNOW\b",  # no pointers to functions can be written
            r"GNU_STACK +(0x0+ +){5}RW ",  # the stack cannot be executed
            r"\b__stack_chk_fail\b", r"\b__\w+_chk@",  # buffers are checked
        ):  # fmt: skip
            self.assertRegex(found, wanted)


if __name__ == "__main__":
    runs.main()
