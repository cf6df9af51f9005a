#!/usr/bin/env python3
"""The installed files: three of the commands are links to one program, and the program in examples/ can be
built with the installed toolbox."""

import os
import subprocess
import unittest

import runs
from runs import BIN, ROOT, has_tools, make_clip

BUILD = BIN.parent

INSTALLED = """
bin/clipinfo
bin/clipjoin
bin/clipstak -> clipjoin
bin/cliptune -> clipjoin
include/reelwork/toolbox/atoms/fourcc.h
include/reelwork/toolbox/bytes.h
include/reelwork/toolbox/codes.h
include/reelwork/toolbox/toolbox.h
include/reelwork/toolbox/types.h
lib/cmake/Reelwork/FindDeflate.cmake
lib/cmake/Reelwork/FindIsal.cmake
lib/cmake/Reelwork/ReelworkConfig.cmake
lib/cmake/Reelwork/ReelworkConfigVersion.cmake
lib/cmake/Reelwork/ReelworkTargets.cmake
lib/libreelwork.a
lib/pkgconfig/reelwork.pc
share/bash-completion/completions/clipinfo
share/bash-completion/completions/clipjoin
share/bash-completion/completions/clipstak -> clipjoin
share/bash-completion/completions/cliptune -> clipjoin
share/doc/reelwork/LICENSE
share/doc/reelwork/examples/batch/README.md
share/doc/reelwork/examples/batch/join-all
share/doc/reelwork/examples/batch/join-array.sbatch
share/doc/reelwork/examples/batch/join-one
share/doc/reelwork/examples/batch/list-jobs
share/fish/vendor_completions.d/clipinfo.fish
share/fish/vendor_completions.d/clipjoin.fish
share/fish/vendor_completions.d/clipstak.fish -> clipjoin.fish
share/fish/vendor_completions.d/cliptune.fish -> clipjoin.fish
share/man/man1/clipinfo.1
share/man/man1/clipjoin.1
share/man/man1/clipstak.1
share/man/man1/cliptune.1
share/man/man7/Reelwork.7
share/reelwork/check-schema.json
share/reelwork/schema.json
share/zsh/site-functions/_clipinfo
share/zsh/site-functions/_clipjoin
""".split("\n")[1:-1]


def cached(name):
    for line in (BUILD / "CMakeCache.txt").read_text().splitlines():
        if line.startswith(f"{name}:"):
            return line.partition("=")[2]
    return ""


def call(*command, **more):
    done = subprocess.run(command, capture_output=True, text=True, timeout=300, **more)
    if done.returncode:
        raise AssertionError(f"{command}: {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


@has_tools("cmake")
@unittest.skipUnless((BUILD / "CMakeCache.txt").is_file(), "the commands are not in a build tree")
class Installation(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        call("cmake", "--install", BUILD, "--prefix", folder / "first")
        # The pkg-config and CMake files use relative paths, so they also work after a move.
        cls.tree = folder / "moved"
        (folder / "first").rename(cls.tree)
        cls.folder = folder
        # If the library was built with sanitizers, the program needs them too.
        cls.flags = "-fsanitize=address,undefined" if cached("REELWORK_SANITIZE") == "ON" else ""

    def test_installs_the_expected_files(self):
        found = []
        for path in self.tree.rglob("*"):
            if path.is_dir():
                continue
            name = path.relative_to(self.tree).as_posix()
            name = name.replace(f"lib/{cached('CMAKE_LIBRARY_ARCHITECTURE')}/", "lib/")
            if "ReelworkTargets-" not in name:  # one per configuration
                found.append(name + (f" -> {os.readlink(path)}" if path.is_symlink() else ""))
        self.assertEqual(sorted(found), INSTALLED)
        for name in ("clipjoin", "clipstak", "cliptune"):
            done = runs.run(self.tree / "bin" / name)
            self.assertEqual((done.status, done.err.split()[3]), (2, name))

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

    @has_tools("ffmpeg", "ffprobe")
    def test_builds_a_program_through_cmake(self):
        build = self.folder / "build"
        call("cmake", "-G", "Ninja", "-S", ROOT / "examples", "-B", build,
             f"-DCMAKE_PREFIX_PATH={self.tree}", f"-DCMAKE_CXX_FLAGS={self.flags}",
             f"-DCMAKE_CXX_COMPILER={cached('CMAKE_CXX_COMPILER')}")  # fmt: skip
        call("cmake", "--build", build)
        self.assert_cuts(build / "cut")

    @has_tools("ffmpeg", "ffprobe", "pkg-config")
    def test_builds_a_program_through_pkg_config(self):
        (package,) = self.tree.rglob("reelwork.pc")
        paths = {**os.environ, "PKG_CONFIG_PATH": str(package.parent)}
        self.assertEqual(call("pkg-config", "--modversion", "reelwork", env=paths).strip(),
                         cached("CMAKE_PROJECT_VERSION"))  # fmt: skip
        flags = call("pkg-config", "--cflags", "--libs", "reelwork", env=paths).split()
        program = self.folder / "cut"
        call(cached("CMAKE_CXX_COMPILER"), "-std=c++20", *self.flags.split(), ROOT / "examples/cut.cpp",
             *flags, "-o", program)  # fmt: skip
        self.assert_cuts(program)


RELEASE = ROOT / "build/bin/clipjoin"


@has_tools("readelf")
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
