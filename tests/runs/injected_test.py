#!/usr/bin/env python3
"""Makes toolbox calls fail: tests the message, whether the failure is counted, and the exit
status."""

import os
import re
import shutil
import unittest

import runs
from runs import HINT, MORE_ERRORS, NOT_A_MOVIE, ONE_ERROR, REFERENCE_NOTICE

BUSY = (
    "The output file out.mov is busy.\nPlease check to see if another application has it open\n"
)
NO_PERMISSION = "You do not have permission to overwrite the output file\nout.mov\n"


def error(call, code, source="utils.cpp"):
    return f"Error in {call} at line LINE of {source}: {code}\n"


@runs.has_tools("ffmpeg")
@unittest.skipUnless((runs.BIN / "failing_clipjoin").exists(), "failing_clipjoin is not built")
class InjectedFailures(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movies = runs.temporary_folder(cls)
        cls.one, cls.two, cls.three = (cls.movies / f"{name}.mov" for name in ("1", "2", "3"))
        runs.make_clip(cls.one, "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1", "-c:v", "mpeg4")
        for copy in (cls.two, cls.three):
            shutil.copy(cls.one, copy)

    def assert_run(self, failures, arguments, said, status, written=None):
        """`said` is all of standard error. `written`: whether the old output file is replaced."""
        (self.folder / "out.mov").write_bytes(b"old")
        done = self.run_in_folder(
            "failing_clipjoin", *arguments, "-o", "out.mov", env={"FAIL": failures}
        )
        told = re.sub(r" at line \d+ of ", " at line LINE of ", done.err)
        self.assertEqual(runs.Result(done.status, done.out, told), runs.Result(status, "", said))
        self.assertEqual(os.listdir(self.folder), ["out.mov"])
        if written is not None:
            is_old = (self.folder / "out.mov").read_bytes() == b"old"
            self.assertEqual(not is_old, written, "whether the output was written")

    def assert_counted(self, failures, arguments, messages, written=None):
        """-q does not silence the messages, but it does silence the closing lines."""
        count = messages.count("Error in ")
        closing = MORE_ERRORS if count > 1 else ONE_ERROR
        whole = [*arguments, "-self-contained"]
        self.assert_run(failures, whole, messages + closing, 1, written)
        self.assert_run(failures, [*whole, "-q"], messages, 1, written)

    def assert_not_counted(self, failures, arguments, message, written):
        for quiet in ([], ["-q"]):
            notice = "" if quiet or "-self-contained" in arguments else REFERENCE_NOTICE + ".\n"
            self.assert_run(failures, [*arguments, *quiet], notice + message, 0, written)

    def test_a_requested_failure_that_does_not_happen_is_reported(self):
        done = self.run_in_folder(
            "failing_clipjoin", self.one, "-o", "out.mov", env={"FAIL": "NoSuchCall:1:-50"}
        )
        self.assertEqual(done.status, 125)

    # Joining

    def test_a_segment_that_cannot_be_inserted_is_counted(self):
        message = error("InsertMovieSegment", -2015, "clipjoin.cpp")
        self.assert_counted(
            "InsertMovieSegment:1:-2015", [self.one, self.two], message, written=True
        )
        self.assertEqual(self.pictures(), 10)

    def test_a_trace_names_the_failures(self):
        done = self.run_in_folder(
            "failing_clipjoin", self.one, self.two, "-q", "-self-contained", "-o", "out.mov",
            env={"FAIL": "InsertMovieSegment:1:-50", "REELWORK_TRACE": "1"},
        )  # fmt: skip
        self.assertRegex(
            done.err, r"(?m)^InsertMovieSegment: -50: the call hook refused it\nError in Ins"
        )

    def test_movies_after_a_segment_that_cannot_be_inserted_are_joined(self):
        message = error("InsertMovieSegment", -50, "clipjoin.cpp")
        movies = [self.one, self.two, self.three]
        self.assert_counted("InsertMovieSegment:1:-50", movies, message, written=True)
        self.assertEqual(self.pictures(), 20)
        self.assert_counted(
            "InsertMovieSegment:*:-108", movies, message.replace("-50", "-108") * 2, written=True
        )
        self.assertEqual(self.pictures(), 10)

    def test_an_unknown_duration_is_counted(self):
        message = error("GetMoviesError", -2010, "clipjoin.cpp")
        self.assert_counted("GetMovieDuration:1:-2010", [self.one, self.two], message, written=True)

    def test_different_failures_add_up(self):
        self.assert_counted(
            "GetMovieDuration:1:-2010,InsertMovieSegment:*:-50",
            [self.one, self.two, self.three],
            error("GetMoviesError", -2010, "clipjoin.cpp") + self.after_duration_failure(),
        )

    def after_duration_failure(self):
        # The run always tries to insert the third movie. It may or may not try the second, whose
        # length is unknown.
        done = self.run_in_folder(
            "failing_clipjoin", self.one, self.two, self.three, "-q", "-o", "out.mov",
            env={"FAIL": "GetMovieDuration:1:-2010,InsertMovieSegment:*:-50"},
        )  # fmt: skip
        count = done.err.count("InsertMovieSegment")
        self.assertIn(count, (1, 2))
        return error("InsertMovieSegment", -50, "clipjoin.cpp") * count

    # Opening

    OPENING = ("QTNewDataReferenceFromFullPathCFString", "NewMovieFromDataRef", "OpenMovieStorage")

    def test_an_input_that_cannot_be_opened_is_reported_but_not_counted(self):
        one = str(self.one)
        quoting = HINT.replace("the file exists and that ", "that ")
        for call in self.OPENING:
            for code, message in (
                (-2048, one + NOT_A_MOVIE),
                (-2000, f"{one} does not exist. {quoting}"),
                (-5000, f"Permissions error reading {one}\n"),
                (-36, f"Error -36 reading {one}\n{HINT}"),
                (-108, f"Error -108 reading {one}\n{HINT}"),
            ):
                with self.subTest(call=call, code=code):
                    self.assert_run(
                        f"{call}:1:{code}", [one, self.two, "-q", "-self-contained"],
                        message, 0, written=True,
                    )  # fmt: skip
                    self.assertEqual(self.pictures(), 10)

    def test_the_hint_is_printed_once_per_run(self):
        self.assert_run(
            "NewMovieFromDataRef:1:-36,OpenMovieStorage:1:-49",
            [self.one, self.two, self.three, "-q", "-self-contained"],
            f"Error -36 reading {self.one}\n{HINT}Error -49 reading {self.two}\n", 0, written=True,
        )  # fmt: skip

    # Writing

    def test_an_output_that_cannot_be_written_is_reported_but_not_counted(self):
        for call, options in (
            ("FlattenMovieDataToDataRef", ["-self-contained"]),
            ("CreateMovieStorage", []),
            ("AddMovieToStorage", []),
            ("CloseComponent", []),
        ):
            for code, message in (
                (-47, BUSY),
                (-5000, NO_PERMISSION),
                (-34, error(call, -34)),
                (-39, error(call, -39)),
            ):
                with self.subTest(call=call, code=code):
                    self.assert_not_counted(
                        f"{call}:1:{code}", [self.one, *options], message, written=False
                    )

    def test_a_path_without_a_reference_is_counted_and_the_writing_fails_after_it(self):
        # The second reference is the one to the output.
        self.assert_run(
            "QTNewDataReferenceFromFullPathCFString:2:-37", [self.one, "-self-contained"],
            error("PathToDataRef", -37) + error("FlattenMovieDataToDataRef", -109) + ONE_ERROR, 1,
            written=False,
        )  # fmt: skip
        self.assert_run(
            "QTNewDataReferenceFromFullPathCFString:2:-37", [self.one, "-q"],
            error("PathToDataRef", -37) + error("CreateMovieStorage", -109), 1, written=False,
        )  # fmt: skip

    def test_a_counted_failure_decides_the_status_although_writing_failed_too(self):
        self.assert_run(
            "InsertMovieSegment:1:-50,FlattenMovieDataToDataRef:1:-47",
            [self.one, self.two, "-self-contained"],
            error("InsertMovieSegment", -50, "clipjoin.cpp") + BUSY + ONE_ERROR, 1, written=False,
        )  # fmt: skip

    def pictures(self):
        return sum(len(s) for s in runs.samples_by_track(self.folder / "out.mov").values())


if __name__ == "__main__":
    runs.main()
