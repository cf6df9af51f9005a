#!/usr/bin/env python3
"""How the three commands read their command line: values, names, output paths and settings."""

import os
import re
import shlex
import shutil
import unittest

import runs
from runs import ONE_ERROR, REFERENCE_NOTICE, Result, child

DURATION_HELP = """\
Duration should be of the form seconds.fractions or hh:mm:ss.fractions
You can omit hh if the number of hours is 0. You can omit mm if the number
of minutes is 0. The first field can be any number. Examples:
01:10.4         1 minute, 10.4 seconds
1:10            1 minute, 10 seconds
3600            3600 seconds (1 hour)
100.45          100.45 seconds
61:10           61 minutes, 10 seconds
1:01:10         1 hour, 1 minute, 10 seconds (same as above)
48:00:00        48 hours.
"""
MISSING = (
    " does not exist. Make sure that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n"
)
NOTICE = REFERENCE_NOTICE + ".\n"
COMMANDS = ("clipjoin", "clipstak", "cliptune")
PICTURES = 10


def mpeg4_warning(program, extension):
    return (
        "Warning: if you want to create an MPEG-4 or AAC file, you must use\n"
        f"the -mp4 option. By default {program} produces QuickTime\n"
        f"movies. Using a {extension} extension may be confusing.\n"
    )


def other_warning(program, extension):
    return (
        f"Warning: {program} produces QuickTime movies\n"
        f"Using a {extension} extension may confuse some programs.\n"
        "Use no extension or a .mov extension.\n"
    )


@runs.has_tools("ffmpeg", "ffprobe")
class CommandLineTest(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.movie = runs.make_clip(
            runs.temporary_folder(cls) / "movie.mov", "-f", "lavfi", "-i",
            f"testsrc=s=64x48:r={PICTURES}:d=1", "-c:v", "mpeg4",
        )  # fmt: skip

    def setUp(self):
        super().setUp()
        shutil.copy(self.movie, self.folder / "one.mov")
        shutil.copy(self.movie, self.folder / "two.mov")

    def run_on_names(self, names, program, *arguments, **more):
        """Runs the command with these names on standard input."""
        (self.folder / "names").write_text(names)
        command = shlex.join([os.fspath(runs.BIN / program), *arguments])
        return self.run_in_folder("/bin/sh", "-c", f"exec {command} < names", **more)

    def pictures(self, path):
        return sum(len(samples) for samples in runs.samples_by_track(path).values())


class Values(CommandLineTest):
    def assert_written(self, program, *arguments, said):
        done = self.run_in_folder(program, "one.mov", "-q", *arguments, "-o", "out.mov")
        self.assertEqual(done, Result(0, "", said))
        self.assertEqual(self.pictures(self.folder / "out.mov"), PICTURES)

    def test_a_bad_duration_ends_the_run_with_an_explanation(self):
        for program, option, text in (
            ("clipjoin", "-trimTo", "1:75"),
            ("clipstak", "-placeAt", "10s"),
            ("cliptune", "-scaleMovieTo", "-1"),
        ):
            done = self.run_in_folder(program, "one.mov", option, text, "-o", "out.mov")
            said = f"Error processing option {option}: Bad duration syntax: {text}\n"
            self.assertEqual(done, Result(1, "", said + DURATION_HELP))
            self.assertFalse((self.folder / "out.mov").exists())

    def test_an_incomplete_point_is_reported_and_the_run_continues(self):
        out = self.folder / "out.mov"
        done = self.run_in_folder(
            "clipjoin", "-o", "out.mov", "-q", "one.mov", "-sscale", "1", "-about", "10"
        )
        self.assertEqual(done, Result(0, "", "Error: -about requires two arguments\n"))
        self.assertEqual(self.pictures(self.join_whole("flat.mov", out)), PICTURES)

    def test_transparency_modes_are_explained_and_the_run_continues(self):
        usage = (
            "Error getting transparency mode. Correct syntax is one of:\n"
            "-transparency-mode none \t\tNo transparency.\n"
            "-transparency-mode straight-alpha \n\tUse the alpha channel"
        )
        for value, complaint in (
            (["help"], ""),
            (["glass"], "Unrecognized transparency mode glass.\n"),
            (["blend", "half"], "Error getting blend proportions.\n"),
        ):
            done = self.run_in_folder(
                "clipstak", "one.mov", "-q", "-self-contained",
                "-transparency-mode", *value, "-o", "out.mov",
            )  # fmt: skip
            self.assertEqual(done.status, 0)
            self.assertTrue(done.err.startswith(complaint + usage), done.err)
            self.assertTrue(done.err.endswith("should be real numbers between 0 and 1.\n"))
            self.assertEqual(self.pictures(self.folder / "out.mov"), PICTURES)

    def test_a_missing_movie_whose_length_is_needed(self):
        self.assert_written(
            "cliptune", "-self-contained", "-trimToLengthOfMovie", "none.mov",
            said="none.mov" + MISSING + "Error getting movie -trimToLengthOfMovie\n",
        )  # fmt: skip

    def test_options_of_other_commands_are_unknown(self):
        for program, option in (
            ("clipjoin", "-scale"),
            ("clipjoin", "-save-in-place"),
            ("clipstak", "-save-in-place"),
            ("clipstak", "-force-same-tracks"),
            ("cliptune", "-use-settings"),
        ):
            done = self.run_in_folder(program, "one.mov", option, "-o", "out.mov")
            said = f"Unrecognized option {option}\n{program} version 1.2.4 (August 24, 2006)\n"
            self.assertEqual((done.status, done.out, done.err[: len(said)]), (1, "", said))
        self.assertFalse((self.folder / "out.mov").exists())


class NamesFromStandardInput(CommandLineTest):
    def test_they_are_joined_and_names_that_follow_are_ignored(self):
        for program, name in (("clipjoin", "names"), ("cliptune", "name")):
            option = f"-{name}-from-stdin"
            done = self.run_on_names(
                "one.mov\ntwo.mov\n", program, "-q", "-self-contained", option, "three.mov",
                "-o", "out.mov",
            )  # fmt: skip
            said = "Ignoring argument three.mov because -names-from-stdin was passed\n"
            self.assertEqual(done, Result(0, "", said))
            self.assertEqual(self.pictures(self.folder / "out.mov"), 2 * PICTURES)

    def test_no_names(self):
        done = self.run_on_names("", "clipstak", "-names-from-stdin", "one.mov")
        said = (
            "Ignoring argument one.mov because -names-from-stdin was passed\n"
            "No movies found\nclipstak version "
        )
        self.assertEqual((done.status, done.err[: len(said)]), (2, said))

    def test_three_hundred_make_a_reference_movie_that_opens(self):
        count = 300
        names = [f"clip {number}.mov" for number in range(count)]
        for name in names:
            shutil.copy(self.movie, self.folder / name)
        done = self.run_on_names(
            "\n".join(names), "clipjoin", "-q", "-names-from-stdin", "-o", "all.mov", timeout=20
        )
        self.assertEqual(done, Result(0, "", ""))
        self.assertLess((self.folder / "all.mov").stat().st_size, count * 1000)
        flat = self.join_whole("flat.mov", self.folder / "all.mov")
        (number,) = runs.tracks(flat)
        own = [content for _, content in runs.shown(self.movie, 1)]
        self.assert_same([content for _, content in runs.shown(flat, number)], own * count)
        self.assertEqual(runs.movie_duration(flat), count)


class OutputNames(CommandLineTest):
    def write(self, output, program="clipjoin", options=()):
        done = self.run_in_folder(program, "one.mov", *options, "-o", output)
        self.assertEqual((done.status, done.out), (0, ""))
        self.assertGreater((self.folder / output).stat().st_size, 0)
        return done.err

    def test_confusing_extensions_cause_warnings(self):
        for extension in (".m4v", ".m4a", ".mp4", ".m4b"):
            self.assertEqual(
                self.write("out" + extension), NOTICE + mpeg4_warning("clipjoin", extension)
            )
        for extension in (".avi", ".MOV", ".mp3", "."):
            self.assertEqual(
                self.write("out" + extension), NOTICE + other_warning("clipjoin", extension)
            )
        (self.folder / "folder.mp4").mkdir()
        for name in ("out", "out.mov", "out.mp4.mov", "folder.mp4/out"):
            self.assertEqual(self.write(name), NOTICE)

    def test_warnings_name_the_command(self):
        for program in COMMANDS:
            for extension, warning in ((".mp4", mpeg4_warning), (".avi", other_warning)):
                said = warning(program, extension)
                self.assertEqual(self.write("out" + extension, program), NOTICE + said)
                self.assertEqual(
                    self.write("out" + extension, program, ["-self-contained"]), said
                )
        self.assertEqual(
            self.write("out.avi", options=["-cliptune", "-self-contained"]),
            other_warning("cliptune", ".avi"),
        )

    def test_quiet_runs_print_no_warnings(self):
        for name in ("out.mp4", "out.avi"):
            self.assertEqual(self.write(name, options=["-q"]), "")


class Desktop(CommandLineTest):
    def setUp(self):
        super().setUp()
        self.home = self.folder / "home"
        self.home.mkdir()
        self.settings = self.home / ".config"
        self.settings.mkdir()

    def run_without_output(self, *options, home=None, settings=""):
        environment = {"HOME": str(home or self.home), "XDG_CONFIG_HOME": settings}
        return self.run_in_folder("clipjoin", "one.mov", *options, env=environment)

    def assert_goes_to(self, path, **places):
        self.assertFalse(path.exists())
        self.assertEqual(self.run_without_output("-q", **places), Result(0, "", ""))
        self.assertEqual(self.pictures(self.join_whole("flat.mov", path)), PICTURES)

    def test_gets_the_output_by_default_and_is_made_if_it_is_missing(self):
        self.assert_goes_to(self.home / "Desktop" / "out.mov")
        (self.home / "Desktop" / "out.mov").unlink()
        self.assert_goes_to(self.home / "Desktop" / "out.mov")
        self.assertEqual(self.run_without_output(), Result(0, "", NOTICE))

    def test_has_the_place_and_name_that_the_user_gave_it(self):
        other = self.folder / "settings"
        other.mkdir()
        for folder, value, expected in (
            (self.settings, "$HOME/Bureau d\\'été", self.home / "Bureau d'été"),
            (self.settings, str(self.folder / "desk"), self.folder / "desk"),
            (other, "$HOME/a/b", self.home / "a" / "b"),
        ):
            (folder / "user-dirs.dirs").write_text(
                f'# comment\nXDG_MUSIC_DIR="$HOME/m"\nXDG_DESKTOP_DIR="{value}"\n'
            )
            settings = str(folder) if folder == other else ""
            self.assert_goes_to(expected / "out.mov", settings=settings)

    def test_may_have_a_long_path(self):
        home = self.folder / ("h" * 100) / ("o" * 100)
        done = self.run_without_output("-q", home=home)
        self.assertEqual(done, Result(0, "", "Error was -2110\n"))
        self.assertTrue((home / "Desktop" / "out.mov").exists())

    def test_that_cannot_be_found_is_a_counted_error(self):
        done = self.run_without_output("-self-contained", home="nowhere")
        self.assertRegex(
            done.err,
            r"^Error in FSFindFolder at line \d+ of clipjoin\.cpp: -43\nError was -\d+\n"
            + re.escape(ONE_ERROR) + "$",
        )  # fmt: skip
        self.assertEqual(done.status, 1)


class QuietPreference(CommandLineTest):
    def said_with(self, settings, *options):
        folder = self.folder / "settings"
        folder.mkdir(exist_ok=True)
        (folder / "org.reelwork.Reelwork.conf").write_text(settings)
        done = self.run_in_folder(
            "clipjoin", "one.mov", *options, "-o", "out.mov", env={"XDG_CONFIG_HOME": str(folder)}
        )
        self.assertEqual(done.status, 0)
        return done.err

    def test_is_kept_in_the_users_settings(self):
        for settings in ("quiet=true\n", "# mine\nother = 1\nquiet = yes\n", "quiet=1"):
            self.assertEqual(self.said_with(settings), "")
        for settings in ("quiet=false\n", "quiet=perhaps\n", "quiet=\n", "", "loud=true\n", "{"):
            self.assertEqual(self.said_with(settings), NOTICE, settings)
        self.assertEqual(self.said_with("quiet=false\n", "-q"), "")


class PlaybackFlags(CommandLineTest):
    def flags(self, program, *arguments):
        done = self.run_in_folder(program, *arguments, "-q", "-o", "out.mov")
        self.assertEqual(done, Result(0, "", ""))
        items = runs.atoms(child(runs.movie_header(self.folder / "out.mov"), "udta"))
        (self.folder / "out.mov").replace(self.folder / "flagged.mov")
        return [item for item in items if item[0] in ("play", "LOOP")]

    def test_every_command_sets_and_removes_them(self):
        both = [("play", b"\1"), ("LOOP", bytes(4))]
        for program in COMMANDS:
            self.assertEqual(
                self.flags(program, "one.mov", "-set-auto-play", "-set-looping"), both
            )
            self.assertEqual(self.flags(program, "flagged.mov"), both)
            self.assertEqual(self.flags(program, "flagged.mov", "-unset-auto-play"), both[1:])
            self.assertEqual(self.flags(program, "flagged.mov", "-unset-looping"), [])

    def test_cliptune_appends_further_inputs(self):
        done = self.run_in_folder(
            "cliptune", "one.mov", "two.mov", "-q", "-self-contained", "-o", "out.mov"
        )
        self.assertEqual(done, Result(0, "", ""))
        own = [frame.hash for frame in runs.frames(self.movie)]
        found = runs.frames(self.folder / "out.mov")
        self.assertEqual([frame.hash for frame in found], own * 2)


if __name__ == "__main__":
    runs.main()
