#!/usr/bin/env python3
"""What a user sees: standard output, standard error and exit status of whole runs."""

import fcntl
import os
import re
import shutil
import unittest

import runs
from runs import HINT, NOT_A_MOVIE, REFERENCE_NOTICE, Result

NOBODY = 65534

NOTICE_ONE, NOTICE_MORE = REFERENCE_NOTICE + ".\n", REFERENCE_NOTICE + "s.\n"
TAGS_ARE_LOST = (
    "Warning: the movie has annotations that will not appear in the output file.\n"
    "iTunes can be used to manually add annotations to m4a files.\n"
)
MISSING = (
    " does not exist. Make sure that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n"
)


@runs.has_tools("ffmpeg", "ffprobe")
class Transcripts(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movies = runs.temporary_folder(cls)
        for name, rate in (("one.mov", 10), ("two.mov", 20)):
            runs.make_clip(
                cls.movies / name, "-f", "lavfi", "-i", f"testsrc=s=64x48:r={rate}:d=1",
                "-c:v", "mpeg4",
            )  # fmt: skip

    def setUp(self):
        super().setUp()
        self.folder.chmod(0o755)
        for name in ("one.mov", "two.mov"):
            shutil.copy(self.movies / name, self.folder)

    def clipjoin(self, *arguments, **more):
        return self.run_in_folder("clipjoin", *arguments, **more)

    def assert_run(self, arguments, err="", status=0, **more):
        """Runs clipjoin and compares standard error with `err`, in which LINE means any number."""
        done = self.clipjoin(*arguments, **more)
        told = re.sub(r" at line \d+ of ", " at line LINE of ", done.err)
        self.assertEqual(Result(done.status, done.out, told), Result(status, "", err))

    def assert_leaves(self, *names):
        """The folder contains these files and the two movies, and nothing else."""
        self.assertEqual(sorted(os.listdir(self.folder)), sorted({"one.mov", "two.mov", *names}))

    def pictures(self, name="out.mov"):
        return sum(len(s) for s in runs.samples_by_track(self.folder / name).values())

    # Successful runs

    def test_a_self_contained_movie_is_written_in_silence(self):
        self.assert_run(["one.mov", "two.mov", "-self-contained", "-o", "out.mov"])
        self.assert_leaves("out.mov")
        self.assertEqual(self.pictures(), 30)

    def test_a_reference_movie_comes_with_a_warning_that_can_be_turned_off(self):
        self.assert_run(["one.mov", "-o", "out.mov"], NOTICE_ONE)
        self.assert_run(["one.mov", "two.mov", "-o", "out.mov"], NOTICE_MORE)
        self.assert_run(["one.mov", "-q", "-o", "out.mov"])

    def test_a_copy_names_the_files_that_the_user_did_not(self):
        self.assert_run(["one.mov", "two.mov", "-q", "-o", "refers.mov"])
        (self.folder / "link.mov").symlink_to("two.mov")
        one, two = (
            f"Copying media from {os.path.realpath(self.folder)}/{name}.mov.\n"
            for name in ("one", "two")
        )
        for option, output, warning in (
            ("-self-contained", "out.mov", ""),
            ("-mp4", "out.mp4", TAGS_ARE_LOST),
        ):
            copied = [option, "-o", output]
            self.assert_run(["refers.mov", *copied], warning + one + two)
            self.assert_run(["refers.mov", "-startAt", "1", *copied], warning + two)
            named = ["refers.mov", "link.mov", "-force-same-tracks"]
            self.assert_run([*named, *copied], warning + one)
            self.assert_run(["refers.mov", "-q", *copied])
        self.assertEqual(self.pictures(), 30)
        self.assert_run(["refers.mov", "-o", "again.mov"], NOTICE_ONE)
        refused = self.clipjoin("refers.mov", "-noresolve", "-self-contained", "-o", "none.mov")
        self.assertNotIn("Copying", refused.err)
        self.assertFalse((self.folder / "none.mov").exists())

    def test_a_file_name_may_hold_any_byte(self):
        names = ["with two  spaces.mov", "Größe, кино, 映画.mov"]
        names += ["a:b;'\"\\*?$(x).mov", "new\nline.mov"]
        names += [os.fsdecode(b"latin-1 \xe9t\xe9.mov"), os.fsdecode(b"\xff\xfe.mov")]
        for name in names:
            with self.subTest(name.encode("utf-8", "backslashreplace")):
                shutil.copy(self.folder / "one.mov", self.folder / name)
                out = "out " + name
                self.assert_run([name, "-self-contained", "-q", "-o", out])
                self.assertEqual(self.pictures(out), 10)
                self.assert_run([name, "-q", "-o", "reference.mov"])
                self.assert_run(["reference.mov", "-q", "-self-contained", "-o", "out.mov"])
                self.assertEqual(self.pictures(), 10)

    def test_the_message_for_a_missing_file_has_the_bytes_of_its_name(self):
        name = os.fsdecode(b"missing \xe9.mov")
        self.assert_run([name, "one.mov", "-q", "-o", "out.mov"], name + MISSING)

    def test_after_a_lone_dash_everything_is_a_file_name(self):
        for name in ("-q", "-dash.mov"):
            shutil.copy(self.folder / "one.mov", self.folder / name)
        self.assert_run(["-self-contained", "-o", "out.mov", "-", "-q", "-dash.mov"])
        self.assertEqual(self.pictures(), 20)
        self.assert_run(["-o", "out.mov", "-", "-", "one.mov"], "-" + MISSING + NOTICE_MORE)

    # Inputs that cannot be opened. The run continues without them and counts no errors.

    def assert_input_is_passed_over(self, name, message):
        self.assert_run(["one.mov", name, "two.mov", "-o", "out.mov"], message + NOTICE_MORE)
        self.assert_run([name, "one.mov", "-q", "-self-contained", "-o", "out.mov"], message)
        self.assertEqual(self.pictures(), 10)

    def test_a_missing_file(self):
        for name in ("missing.mov", "no folder/missing.mov", "one.mov/beneath a file.mov"):
            self.assert_input_is_passed_over(name, name + MISSING)

    def test_a_file_that_is_not_a_movie(self):
        for name, content in (("empty.mov", b""), ("notes.txt", b"Buy milk.\n" * 100)):
            (self.folder / name).write_bytes(content)
            self.assert_input_is_passed_over(name, name + NOT_A_MOVIE)

    def test_a_folder(self):
        (self.folder / "folder.mov").mkdir()
        self.assert_input_is_passed_over(
            "folder.mov", "Error -1302 reading folder.mov\n" + HINT
        )

    def test_a_broken_header_and_a_hint_that_is_printed_once(self):
        whole = (self.folder / "one.mov").read_bytes()
        at = whole.index(b"mvhd") - 4
        for name in ("broken.mov", "broken too.mov"):
            (self.folder / name).write_bytes(whole[:at] + b"\x7f" + whole[at + 1 :])
        self.assert_input_is_passed_over("broken.mov", "Error -2002 reading broken.mov\n" + HINT)
        self.assert_run(
            ["broken.mov", "missing.mov", "broken too.mov", "one.mov", "-o", "out.mov"],
            "Error -2002 reading broken.mov\n" + HINT + "missing.mov" + MISSING
            + "Error -2002 reading broken too.mov\n" + NOTICE_MORE,
        )  # fmt: skip

    @runs.needs_root
    def test_a_file_that_cannot_be_read(self):
        (self.folder / "two.mov").chmod(0)
        self.folder.chmod(0o777)
        self.assert_run(
            ["two.mov", "one.mov", "-q", "-o", "out.mov"],
            "Permissions error reading two.mov\n", **self.as_nobody(),
        )  # fmt: skip

    def test_a_reference_movie_whose_media_is_gone(self):
        shutil.copy(self.folder / "two.mov", self.folder / "media.mov")
        self.assert_run(["media.mov", "-q", "-o", "reference.mov"])
        (self.folder / "media.mov").unlink()
        self.assert_input_is_passed_over("reference.mov", "reference.mov" + MISSING)

    # Mistakes on the command line: the usage text follows.

    def assert_usage(self, arguments, message, status, program="clipjoin"):
        done = self.run_in_folder(program, *arguments)
        self.assertEqual((done.status, done.out), (status, ""))
        self.assertTrue(done.err.startswith(message), done.err)
        usage = done.err[len(message) :]
        self.assertRegex(
            usage,
            rf'^{program} version \S+ \(.*\)\nType "man {program}" or "man Reelwork" for more '
            rf"information\nUsage: \S*{program} ",
        )
        for option in ("-q", "-self-contained", "-o filename"):
            self.assertIn(f"\n    {option} ", usage)
        self.assert_leaves()

    def test_an_unknown_option(self):
        for option in ("-selfcontained", "-O", "--help", "-Q"):
            self.assert_usage(
                ["one.mov", option, "-o", "out.mov"], f"Unrecognized option {option}\n", 1
            )

    def test_an_option_without_its_value(self):
        self.assert_usage(["one.mov", "-o"], "Option -o needs more arguments\n", 1)

    def test_no_movies(self):
        for arguments in ([], ["-q"], ["-o", "out.mov"], ["-"]):
            for program in ("clipjoin", "clipstak", "cliptune"):
                self.assert_usage(arguments, "No movies found\n", 2, program)

    # Outputs that cannot be written

    FORMS = (("FlattenMovieDataToDataRef", ["-self-contained"]), ("CreateMovieStorage", []))

    def assert_refused(self, output, message, **more):
        """Checks both forms of output; {call} in the message means the call that failed."""
        for call, options in self.FORMS:
            with self.subTest(call):
                self.assert_run(
                    ["one.mov", "-q", *options, "-o", output], message.format(call=call), **more
                )

    def test_an_output_that_is_locked(self):
        out = self.folder / "out.mov"
        out.write_bytes(b"old")
        busy = (
            "The output file out.mov is busy.\n"
            "Please check to see if another application has it open\n"
        )
        with open(out, "rb") as locked:
            fcntl.flock(locked, fcntl.LOCK_EX)
            self.assert_refused("out.mov", busy)
        self.assertEqual(out.read_bytes(), b"old")
        self.assert_leaves("out.mov")
        self.assert_refused("out.mov", "")
        self.assertNotEqual(out.read_bytes(), b"old")

    @runs.needs_root
    def test_an_output_that_cannot_be_written(self):
        protected = self.folder / "protected"
        protected.mkdir(0o755)
        (self.folder / "out.mov").write_bytes(b"old")
        (self.folder / "out.mov").chmod(0o644)
        self.folder.chmod(0o777)
        for output in ("protected/out.mov", "out.mov"):
            self.assert_refused(
                output, f"You do not have permission to overwrite the output file\n{output}\n",
                **self.as_nobody(),
            )  # fmt: skip
        self.assertEqual(os.listdir(protected), [])
        self.assertEqual((self.folder / "out.mov").read_bytes(), b"old")

    def test_an_output_in_a_missing_folder(self):
        error = "Error in {call} at line LINE of utils.cpp: -120\n"
        self.assert_refused("missing/out.mov", error)
        self.assert_refused("one.mov/out.mov", error)
        self.assert_leaves()

    def test_an_output_that_is_a_folder(self):
        (self.folder / "out.mov").mkdir()
        self.assert_refused("out.mov", "Error in {call} at line LINE of utils.cpp: -1302\n")
        self.assertEqual(os.listdir(self.folder / "out.mov"), [])

    def test_an_output_with_a_name_that_is_too_long_is_a_counted_error(self):
        for call, options in self.FORMS:
            errors = (
                "Error in PathToDataRef at line LINE of utils.cpp: -37\n"
                f"Error in {call} at line LINE of utils.cpp: -109\n"
            )
            arguments = ["one.mov", *options, "-o", "x" * 300]
            self.assert_run([*arguments, "-q"], errors, 1)
            notice = "" if options else NOTICE_ONE
            self.assert_run(arguments, notice + errors + runs.ONE_ERROR, 1)
        self.assert_leaves()

    # An output that is an input

    def test_a_reference_movie_does_not_replace_its_own_media(self):
        for arguments in (["one.mov", "two.mov"], ["two.mov", "one.mov"]):
            self.assert_run(
                [*arguments, "-q", "-o", "one.mov"],
                "The output file one.mov is busy.\n"
                "Please check to see if another application has it open\n",
            )
        for name in ("one.mov", "two.mov"):
            self.assertEqual((self.folder / name).read_bytes(), (self.movies / name).read_bytes())
        self.assert_leaves()

    def as_nobody(self):
        """The options that run a command as a user without rights. Skips the test if that user
        cannot reach the program."""
        program = runs.BIN / "clipjoin"
        reachable = all(p.stat().st_mode & 0o001 for p in [program.resolve(), *program.parents])
        if not reachable:
            raise unittest.SkipTest(f"{program} is out of reach for others")
        return {"user": NOBODY, "group": NOBODY, "extra_groups": []}


if __name__ == "__main__":
    runs.main()
