#!/usr/bin/env python3
"""Makes toolbox calls fail: tests the message, whether the failure is counted, the exit status, and
what happens to the old output."""

import os
import re
import shutil

import runs
from runs import HINT, MORE_ERRORS, NOT_A_MOVIE, ONE_ERROR, REFERENCE_NOTICE

BUSY = "The output file OUT is busy.\nPlease check to see if another application has it open\n"
NO_PERMISSION = "You do not have permission to overwrite the output file\nOUT\n"
OPENING = ("QTNewDataReferenceFromFullPathCFString", "NewMovieFromDataRef", "OpenMovieStorage")
CREATE, CONVERT, ALIAS = "CreateMovieStorage", "ConvertMovieToDataRef", OPENING[0]
FLATTEN, INSERT = "FlattenMovieDataToDataRef", "InsertMovieSegment"


def error(call, code, source="utils.cpp", line="LINE"):
    return f"Error in {call} at line {line} of {source}: {code}\n"


def inserting(code):
    return error(INSERT, code, "clipjoin.cpp")


class InjectedFailures(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movies = runs.temporary_folder(cls)
        cls.one, cls.two, cls.three = (cls.movies / f"{name}.mov" for name in ("1", "2", "3"))
        runs.make_clip(cls.one, "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1", "-c:v", "mpeg4")
        for copy in (cls.two, cls.three):
            shutil.copy(cls.one, copy)

    def assert_run(self, failures, arguments, said, status, pictures, out="out.mov"):
        """`said` is all of standard error. `pictures`: how many the output has; None: it is old."""
        with self.subTest(failures, arguments=list(map(str, arguments))):
            (self.folder / out).write_bytes(b"old")
            command = ("failing_clipjoin", *arguments, "-o", out)
            done = self.run_in_folder(*command, env={"FAIL": failures})
            told = re.sub(r" at line \d+ of ", " at line LINE of ", done.err)
            for word, name in (("OUT", out), ("ONE", self.one), ("TWO", self.two)):
                said = said.replace(word, str(name))
            self.assertEqual((done.status, done.out, told), (status, "", said))
            self.assertEqual(os.listdir(self.folder), [out])
            if pictures is None:
                self.assertEqual((self.folder / out).read_bytes(), b"old")
            else:
                found = runs.samples_by_track(self.folder / out).get(1, [])
                self.assertEqual(len(found), pictures)

    def test_a_requested_failure_that_does_not_happen_is_reported(self):
        failing = {"FAIL": "NoSuchCall:1:-50"}
        done = self.run_in_folder("failing_clipjoin", self.one, "-o", "out.mov", env=failing)
        self.assertEqual(done.status, 125)

    def test_a_trace_names_the_failures(self):
        done = self.run_in_folder(
            "failing_clipjoin", self.one, self.two, "-q", "-o", "out.mov",
            env={"FAIL": f"{INSERT}:1:-50", "REELWORK_TRACE": "1"},
        )  # fmt: skip
        line = rf"(?m)^{INSERT}: -50: the call hook refused it\nError in Ins"
        self.assertRegex(done.err, line)

    def test_counted_failures_decide_the_status(self):
        """-q does not silence the messages, but it does silence the closing lines."""
        two, three = [self.one, self.two], [self.one, self.two, self.three]
        for failures, movies, said, pictures in (
            (f"{INSERT}:1:-2015", two, inserting(-2015), 10),
            (f"{INSERT}:1:-50", three, inserting(-50), 20),
            (f"{INSERT}:*:-108", three, inserting(-108) * 2, 10),
            # The second movie, whose length is unknown, is left out.
            ("GetMovieDuration:1:-2010", two, error("GetMoviesError", -2010, "clipjoin.cpp"), 10),
            (f"{INSERT}:1:-50,{FLATTEN}:1:-47", two, inserting(-50) + BUSY, None),
            (f"{ALIAS}:2:-37", two[:1], error("PathToDataRef", -37) + error(FLATTEN, -109), None),
        ):  # fmt: skip
            count = said.count("Error in ") - said.count(FLATTEN)
            closing = MORE_ERRORS if count > 1 else ONE_ERROR
            whole = [*movies, "-self-contained"]
            self.assert_run(failures, whole, said + closing, 1, pictures)
            self.assert_run(failures, [*whole, "-q"], said, 1, pictures)

    def test_an_input_that_cannot_be_opened_is_reported_but_not_counted(self):
        quoting = HINT.replace("the file exists and that ", "that ")
        for call in OPENING:
            for code, said in (
                (-2048, "ONE" + NOT_A_MOVIE),
                (-2000, f"ONE does not exist. {quoting}"),
                (-5000, "Permissions error reading ONE\n"),
                (-36, f"Error -36 reading ONE\n{HINT}"),
            ):
                movies = [self.one, self.two, "-q", "-self-contained"]
                self.assert_run(f"{call}:1:{code}", movies, said, 0, 10)
        # The hint is printed once.
        movies = [self.one, self.two, self.three, "-q", "-self-contained"]
        said = f"Error -36 reading ONE\n{HINT}Error -49 reading TWO\n"
        self.assert_run("NewMovieFromDataRef:1:-36,OpenMovieStorage:1:-49", movies, said, 0, 10)

    def test_an_output_that_cannot_be_written_is_reported_but_not_counted(self):
        for call in (FLATTEN, CREATE, "AddMovieToStorage", "CloseComponent"):
            for code, said in ((-47, BUSY), (-5000, NO_PERMISSION), (-34, error(call, -34))):
                whole = ["-self-contained"] if call == FLATTEN else []
                notice = "" if whole else REFERENCE_NOTICE + ".\n"
                self.assert_run(f"{call}:1:{code}", [self.one, *whole], notice + said, 0, None)
                self.assert_run(f"{call}:1:{code}", [self.one, *whole, "-q"], said, 0, None)

    def test_a_join_through_sample_tables_reports_each_failing_step(self):
        by_90000 = ("-c", "copy", "-video_track_timescale", "90000")
        scaled = runs.make_clip(self.movies / "s.mov", "-i", self.one, *by_90000)
        last = error("myAppendTrack", -50, "clipjoin.cpp")
        for call, line, goes_on in (
            ("GetMediaDataRefCount", 828, True), ("GetMediaDataRef", 834, True),
            ("AddMediaDataRef", 836, True), ("QTSampleTableCreateMutable", 859, False),
            ("CopyMediaMutableSampleTable", 881, False), ("AddSampleTableToMedia", 883, False),
            ("QTSampleTableGetProperty", 888, False), ("InsertMediaIntoTrack", 892, True),
        ):  # fmt: skip
            said = error(call, -50, "clipjoin.cpp", line)
            said += ONE_ERROR if goes_on else last + MORE_ERRORS
            for option in ("-unique-tracks", "-manual-join"):
                done = self.run_in_folder(
                    "failing_clipjoin", option, scaled, scaled, "-self-contained", "-o", "out.mov",
                    env={"FAIL": f"{call}:1:-50"},
                )  # fmt: skip
                told = re.sub(r"(myAppendTrack at line )\d+", r"\1LINE", done.err)
                self.assertEqual((done.status, told), (1, said), option)

    def test_an_mpeg4_file_is_tried_ten_times(self):
        """Files without hints are made if hints cannot be."""
        for failures, said, count, pictures in (
            (f"{CREATE}:1:-47", error(CREATE, -47), 0, 10),
            (f"{CREATE}:1:-48,{CREATE}:2:-47", error(CREATE, -48) + error(CREATE, -47), 0, 10),
            (f"{CREATE}:*:-47", error(CREATE, -47) * 10 + BUSY, 1, 10),
            (f"{CREATE}:*:-48", error(CREATE, -48) * 10, 1, 10),
            (f"{CREATE}:1:-47,{CREATE}:2:-34", error(CREATE, -47) + error(CREATE, -34), 1, 10),
            (f"{CREATE}:1:-5000", error(CREATE, -5000), 1, 10),
            (f"{CONVERT}:1:-48", error(CONVERT, -48), 0, 10),
            (f"{CONVERT}:*:-47", error(CONVERT, -47) * 10, 1, None),
            (f"{CONVERT}:1:-39", error(CONVERT, -39), 1, None),
            (f"{ALIAS}:2:-37",
             error("PathToDataRef", -37) + error(CREATE, -109) + error(CONVERT, -109), 3, None),
            ("OpenADefaultComponent:1:-2003", error("OpenADefaultComponent", -2003), 1, 10),
            ("MovieExportSetSettingsFromAtomContainer:1:-50", "", 0, 10),
            ("PtrToHand:1:-108", "", 0, 10),
        ):  # fmt: skip
            closing = ("", ONE_ERROR)[count] if count < 2 else MORE_ERRORS
            out, plain = "out.mp4", not failures.startswith("C")
            said = runs.ANNOTATIONS_ARE_LOST + said + closing
            self.assert_run(failures, [self.one, "-mp4"], said, int(count > 0), pictures, out)
            if pictures:
                kinds = [track.kind for track in runs.tracks(self.folder / out).values()]
                self.assertEqual(kinds, ["vide"] if plain else ["vide", "hint"])


if __name__ == "__main__":
    runs.main()
