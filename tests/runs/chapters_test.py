#!/usr/bin/env python3
"""Chapters of other programs are listed and filtered, other readers find our chapters in every form
of output, and the XML list is right."""

import json
import re
import resource
import xml.etree.ElementTree

import runs
from runs import MEDIA, Result

TITLES = ["Intro", "Größe & <Maß>", "第三章", "Fin"]  # one second each
TWO_SECONDS = "sine=d=2:f="


def ffmpeg_chapters(titles, scale=1000, length=1000):
    rows = [";FFMETADATA1"]
    for i, title in enumerate(titles):
        escaped = re.sub(r"([=;#\\])", r"\\\1", title)
        rows += ["[CHAPTER]", f"TIMEBASE=1/{scale}", f"START={i * length}"]
        rows += [f"END={(i + 1) * length}", f"title={escaped}"]
    return "\n".join(rows) + "\n"


def chapters(path):
    """(start in milliseconds, title) of each chapter, as ffprobe reads them."""
    found = runs.ffprobe(path, "-show_chapters")["chapters"]
    times = [round(float(c["start_time"]) * 1000) for c in found]
    return list(zip(times, (c.get("tags", {}).get("title", "") for c in found)))


def menu(path):
    """The same, as mediainfo reads them."""
    told = json.loads(runs.read_by("mediainfo", "--Output=JSON", path)[0])
    found = []
    for track in told["media"]["track"]:
        for key, title in track.get("extra", {}).items() if track["@type"] == "Menu" else ():
            time = re.fullmatch(r"_(\d\d)_(\d\d)_(\d\d)_(\d\d\d)", key)
            if time:
                hours, minutes, seconds, thousandths = map(int, time.groups())
                found.append((((hours * 60 + minutes) * 60 + seconds) * 1000 + thousandths, title))
    return found


def in_matroska(path):
    """The same, as mkvmerge reads them. It ignores edits."""
    copy = path.with_suffix(".mkv")
    runs.read_by("mkvmerge", "-q", "-o", copy, path)
    return chapters(copy)


def xml_chapters(path):
    """(start time as text, title) of each chapter."""
    root = xml.etree.ElementTree.parse(path).getroot()
    assert (root.tag, root.attrib) == ("chapters", {"version": "1"})
    assert all([child.tag for child in chapter] == ["title"] for chapter in root)
    return [(chapter.get("starttime"), chapter[0].text or "") for chapter in root]


@runs.has_tools("ffmpeg", "ffprobe", "mediainfo")
class Chapters(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        cls.clips = runs.temporary_folder(cls)
        cls.books = {}
        listed = cls.clips / "chapters.txt"
        listed.write_text(ffmpeg_chapters(TITLES))
        for name in ("book.mov", "book.mp4"):
            cls.books[name] = runs.make_clip(
                cls.clips / name, "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=4",
                "-f", "lavfi", "-i", "sine=d=4", "-f", "ffmetadata", "-i", str(listed),
                "-map_metadata", "2", "-map", "0", "-map", "1", "-c:v", "mpeg4", "-g", "1",
                "-c:a", "pcm_s16le" if name.endswith("mov") else "aac",
            )  # fmt: skip
        cls.plain = runs.make_clip(
            cls.clips / "plain one.mov", "-f", "lavfi", "-i", TWO_SECONDS + "300",
            "-c:a", "pcm_s16le",
        )  # fmt: skip
        cls.named = runs.make_clip(
            cls.clips / "2.mp4", "-f", "lavfi", "-i", TWO_SECONDS + "500", "-c:a", "aac",
            "-metadata", "title=Ein Name",
        )  # fmt: skip

    def assert_run(self, program, *arguments, out="", err="", status=0, path="out.mov"):
        done = self.run_in_folder(program, *arguments, "-q", "-o", path)
        self.assertEqual(done, Result(status, out, err))
        return self.folder / path

    def assert_chapters(self, path, expected, within=1):
        """Two readers find these chapters, given as (start in milliseconds, title)."""
        by_start = {}
        for start, title in expected:
            by_start.setdefault(start, []).append(title)
        joined = [(start, " / ".join(titles)) for start, titles in by_start.items()]
        for reader, expected in ((chapters, expected), (menu, joined)):
            found = reader(path)
            self.assertEqual([title for _, title in found], [title for _, title in expected])
            for (time, title), (wanted, _) in zip(found, expected):
                self.assertLessEqual(abs(time - wanted), within, title)

    def assert_written(self, program, *arguments, expected):
        """Writes a reference movie and self-contained movies with and without a compressed header,
        and then rewrites each of them."""
        xml_file = self.folder / "list.xml"
        for how in ([], ["-self-contained"], ["-self-contained", "-no-compressed-header"]):
            with self.subTest(how=how):
                made = self.assert_run(
                    program, *arguments, *how, "-chapter-tool-xml", xml_file, path="made.mov"
                )
                self.assert_chapters(made, expected)
                listed = [title for _, title in xml_chapters(xml_file)]
                # The list has no chapters of duration 0. Of chapters with the same start, all but
                # the last are such.
                lasting = {start: title for start, title in expected}
                self.assertEqual(listed, list(lasting.values()))
                again = self.assert_run("cliptune", made, "-self-contained", path="again.mov")
                self.assert_chapters(again, expected)
        return self.folder / "made.mov"

    def test_of_other_programs_are_listed_and_filtered(self):
        for name, book in self.books.items():
            with self.subTest(name):
                head = f"Chapter list for {book}:\n"
                lines = "".join(f"\t* {title}\n" for title in TITLES)
                self.assert_run("cliptune", book, "-chaplist", out=head + lines)
                self.assert_run("cliptune", book, "-chaplist", "-nochaplist")
                lines = f"\t  Intro\n\t* {TITLES[1]}\n\t  第三章\n\t* Fin\n"
                cut = self.assert_run(
                    "cliptune", book, "-chaplist", "-nochapter", "Intro", "-nochapter", "第三章",
                    "-self-contained", out=head + lines,
                )  # fmt: skip
                self.assert_chapters(cut, [(0, TITLES[1]), (1000, "Fin")], within=3)
                self.assertAlmostEqual(float(runs.movie_duration(cut)), 2, delta=0.01)
                # The remaining chapters show the same frames as before.
                whole, left = ([f.hash for f in runs.frames(path)] for path in (book, cut))
                self.assertEqual(left, whole[10:20] + whole[30:40])
                only = self.assert_run("cliptune", book, "-chapter", "第三章", "-self-contained")
                self.assert_chapters(only, [(0, "第三章")])

    def test_made_for_each_input_start_where_it_starts(self):
        expected = [(0, "plain one"), (2000, "Dritter"), (4000, "Ein Name")]
        self.assert_written(
            "clipjoin", "-auto-chapters", self.plain, self.plain, "-chapter-name", "Dritter",
            self.named, expected=expected,
        )  # fmt: skip

    def test_start_there_and_are_merged_with_every_kind_of_join(self):
        book = self.books["book.mov"]
        own = [[(at + 1000 * i, t) for i, t in enumerate(TITLES)] for at in (2000, 6000)]
        for how in ("-manual-join", "-unique-tracks", "-force-same-tracks"):
            with self.subTest(how):
                self.assert_written(
                    "clipjoin", how, "-auto-chapters-merge", self.plain, book, book, self.plain,
                    expected=[(0, "plain one"), *own[0], *own[1], (10000, "plain one")],
                )  # fmt: skip

    def test_are_merged_with_those_of_the_inputs(self):
        own = [(2000 + 1000 * i, title) for i, title in enumerate(TITLES)]
        self.assert_written(
            "clipjoin", "-auto-chapters-merge", self.plain, self.books["book.mov"], self.named,
            expected=[(0, "plain one"), *own, (6000, "Ein Name")],
        )  # fmt: skip
        self.assert_written(
            "clipjoin", "-auto-chapters", self.books["book.mp4"], self.plain,
            expected=[(0, "book"), (4000, "plain one")],
        )  # fmt: skip

    def test_are_kept_by_every_kind_of_join_with_the_time_code(self):
        book = runs.make_clip(
            self.folder / "timed.mov", "-i", str(self.books["book.mov"]), "-map", "0:v", "-map", "0:a",
            "-c", "copy", "-timecode", "00:00:00:00",
        )  # fmt: skip
        own = {number: track.references for number, track in runs.tracks(book).items()}
        self.assertEqual({kind for lists in own.values() for kind, _ in lists}, {"chap", "tmcd"})
        again = {
            number + len(own): [(kind, [t + len(own) for t in targets]) for kind, targets in lists]
            for number, lists in own.items()
        }
        twice = [(4000 * j + 1000 * i, t) for j in range(2) for i, t in enumerate(TITLES)]
        for how in ([], ["-manual-join"], ["-force-same-tracks"], ["-unique-tracks"]):
            with self.subTest(how):
                joined = self.assert_run("clipjoin", *how, book, book, "-self-contained")
                found = {number: t.references for number, t in runs.tracks(joined).items()}
                self.assertEqual(found, {**own, **again} if "-unique-tracks" in how else own)
                if "-unique-tracks" not in how:  # other readers find only one chapter track
                    self.assert_chapters(joined, twice)

    @runs.has_tools("mkvmerge")
    def test_of_an_edited_book_are_the_same_for_readers_that_ignore_edits(self):
        book, plain = self.books["book.mp4"], self.named
        # The chapter track of this one has another language, so the join has two such tracks.
        other = self.assert_run(
            "cliptune", book, "-add-chapter", "half", "0:01.5", "-self-contained", path="other.mov"
        )
        own = [(1000 * i, title) for i, title in enumerate(TITLES)]
        more = [*own[:2], (1500, "half"), *own[2:]]
        cases = {
            "joined": ("clipjoin", [book, plain, other, book],
                       [*own, *((6000 + at, t) for at, t in more), *((10000 + at, t) for at, t in own)]),
            "cut inside a chapter": ("cliptune", [book, "-startAt", "1.5"],
                                     [(0, TITLES[1]), (500, "第三章"), (1500, "Fin")]),
            "at half the speed": ("cliptune", [book, "-scaleMovieTo", "8"],
                                  [(2 * at, title) for at, title in own]),
        }  # fmt: skip
        for name, (program, arguments, expected) in cases.items():
            for form in ("-self-contained", "-mp4"):
                with self.subTest(name, form=form):
                    if form == "-mp4" and name == "joined":
                        arguments = ["-force-same-tracks", *arguments]
                    made = self.assert_run(program, *arguments, form, path=f"made{form}.mp4")
                    self.assert_chapters(made, expected)
                    self.assertEqual(in_matroska(made), expected)

    def test_are_added_to_existing_ones(self):
        added = ["-add-chapter", "half", "0:01.5", "-add-chapter", "zero", "0"]
        self.assert_written(
            "cliptune", self.books["book.mp4"], *added,
            expected=[
                (0, "zero"), (0, "Intro"), (1000, TITLES[1]), (1500, "half"), (2000, "第三章"), (3000, "Fin"),
            ],
        )  # fmt: skip

    def test_after_the_end_are_reported(self):
        made = self.assert_run(
            "cliptune", self.plain, "-add-chapter", "in", "1", "-add-chapter", "end", "2",
            "-add-chapter", "out", "2.1", "-add-chapter", "far", "99",
            err="Chapter out starts after the end of the movie.\n",
        )  # fmt: skip
        self.assertEqual(menu(made), [(1000, "in"), (2000, "end")])
        self.assertEqual(chapters(made), [(1000, "in")], "ffprobe leaves out a chapter of duration 0")

    def test_are_saved_in_place(self):
        for name in ("book.mov", "book.mp4"):
            with self.subTest(name):
                path = self.folder / name
                path.write_bytes(self.books[name].read_bytes())
                before = runs.frames(path)
                done = self.run_in_folder(
                    "cliptune", "-save-in-place", "-q", path, "-add-chapter", "half", "1.5",
                    "-chapter-tool-xml", "list.xml",
                )  # fmt: skip
                self.assertEqual(done, Result(0, "", ""))
                expected = [(1000 * i, title) for i, title in enumerate(TITLES)]
                expected.insert(2, (1500, "half"))
                self.assert_chapters(path, expected)
                self.assertEqual([f.hash for f in runs.frames(path)], [f.hash for f in before])
                times = ["0.00", "01.00", "01.15", "02.00", "03.00"]
                listed = list(zip(times, (title for _, title in expected)))
                self.assertEqual(xml_chapters(self.folder / "list.xml"), listed)
                # Remove the chapter again.
                done = self.run_in_folder(
                    "cliptune", "-save-in-place", "-q", path, "-nochapter", "half"
                )
                self.assertEqual(done, Result(0, "", ""))
                # The sample of that chapter is still in the file, and readers that ignore edits
                # find it.
                del expected[2]
                cut = [(time - (500 if time >= 2000 else 0), title) for time, title in expected]
                copy = self.assert_run("cliptune", path, "-self-contained")
                self.assert_chapters(copy, cut, within=3)

    def test_are_the_samples_of_the_named_track(self):
        made = self.assert_run(
            "cliptune", self.plain, "-add-chapter", "a", "0", "-add-chapter", "b", "1",
            path="ab.mov",
        )  # fmt: skip
        text = self.assert_run(
            "clipstak", self.named, made, "-chapter-track", "Text Track", "-self-contained",
            path="named.mov",
        )  # fmt: skip
        self.assert_chapters(text, [(0, "a"), (1000, "b")])
        references = [track.references for track in runs.tracks(text).values()]
        self.assertEqual([r for r in references if r], [[("chap", [3])]])
        self.assert_run(
            "cliptune", made, "-chapter-track", "Sound Track",
            err="The track named Sound Track is a Sound track.\n"
            "Chapter tracks must be text tracks.\n",
        )  # fmt: skip
        self.assert_run(
            "cliptune", made, "-chapter-track", "none",
            err="No track named none found in final movie.\n"
            "Track names:\nSound Track\nText Track\n",
        )  # fmt: skip

    def test_need_a_track_that_refers_to_them(self):
        silent = self.assert_run(
            "cliptune", self.plain, "-disable", "Sound Track", path="silent.mov"
        )
        told = self.run_in_folder(
            "cliptune", silent, "-add-chapter", "a", "0", "-q", "-o", "out.mov"
        )
        self.assertRegex(
            told.err, r"^Error in chapter::AddChapterTrack at line \d+ of clipjoin\.cpp: -2030\n$"
        )
        self.assertEqual(told.status, 1)

    def test_of_a_thousand_inputs_start_at_the_exact_unit(self):
        length = 441 * 3 + 1
        clip = runs.make_clip(
            self.clips / "short.wav", "-f", "lavfi", "-i", f"sine=r=44100,atrim=end_sample={length}"
        )
        clip = runs.make_clip(
            self.clips / "short.mov", "-i", clip, "-c:a", "pcm_s16le", "-movie_timescale", "44100"
        )
        names = [f"{i}.mov" for i in range(1000)]
        for name in names:
            (self.folder / name).symlink_to(clip)
        made = self.assert_run("clipjoin", "-auto-chapters", *names)
        found = runs.ffprobe(made, "-show_chapters")["chapters"]
        self.assertEqual({c["time_base"] for c in found}, {"1/44100"})
        self.assertEqual(
            [(c["start"], c["tags"]["title"]) for c in found],
            [(i * length, str(i)) for i in range(1000)],
        )

    def test_that_cannot_be_made_are_reported(self):
        lines = {
            "TextMediaSetTextSampleData": 208, "BeginMediaEdits": 210,
            "TextMediaAddTextSample": 224, "EndMediaEdits": 226, "InsertMediaIntoTrack": 230,
            "AddTrackReference": 261,
        }  # fmt: skip
        driver = r"Error in chapter::AddChapterTrack at line \d+ of clipjoin\.cpp: -50\n"
        for call, line in {**lines, "NewMovieTrack": None}.items():
            with self.subTest(call):
                done = self.run_in_folder(
                    "failing_clipjoin", self.plain, "-auto-chapters", "-self-contained", "-q",
                    "-o", "out.mov", env={"FAIL": f"{call}:1:-50"},
                )  # fmt: skip
                own = rf"Error in {call} at line {line} of chapter\.cpp: -50\n" if line else ""
                self.assertRegex(done.err, f"^{own}{driver}$")
                self.assertEqual(done.status, 1)
                told = [track.references for track in runs.tracks(self.folder / "out.mov").values()]
                self.assertFalse(any(told), "an incomplete track is not a chapter track")

    def test_are_listed_in_a_file_that_is_written_whole_or_not_at_all(self):
        movie = self.folder / "movie.mov"
        movie.write_bytes(self.plain.read_bytes())
        (self.folder / "old.xml").write_text("old")
        add = ["-add-chapter", "ab\tc", "0"]
        cases = [
            ("movie.mov", [movie], "it is a movie"),
            ("movie.mov", [self.plain], "it is a movie"),
            ("out.mov", [self.plain], "it is a movie"),
            ("movie.mov", [movie, "-save-in-place"], "it is a movie"),
            ("none/list.xml", [self.plain], "there is no such folder"),
            ("/dev/full", [self.plain], "the disk is full"),
            (".", [self.plain], "it is a folder"),
        ]
        for name, arguments, reason in cases:
            with self.subTest(name=name, arguments=arguments):
                output = [] if "-save-in-place" in arguments else ["-o", "out.mov"]
                done = self.run_in_folder(
                    "cliptune", *arguments, *add, "-q", "-chapter-tool-xml", name, *output
                )
                self.assertEqual(done, Result(0, "", f"Cannot write {name}: {reason}\n"))
                self.assertEqual(runs.complaints(self.folder / "movie.mov"), [])
        limited = self.run_in_folder(
            "cliptune", self.plain, *(["-add-chapter", "x" * 250, "0"] * 9), "-q",
            "-chapter-tool-xml", "old.xml", "-o", "/dev/null",
            preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100)),
        )  # fmt: skip
        self.assertEqual(limited, Result(0, "", "Cannot write old.xml: input/output error\n"))
        self.assertEqual((self.folder / "old.xml").read_text(), "old")
        done = self.run_in_folder(
            "cliptune", self.plain, *add, "-q", "-chapter-tool-xml", "/dev/stdout", "-o", "out.mov"
        )
        self.assertEqual(done.err, "")
        root = xml.etree.ElementTree.fromstring(done.out)
        self.assertEqual([title.text for title in root.iter("title")], ["ab\tc"])

    @runs.needs_corpus
    def test_of_a_list_without_a_track_move_to_a_track_if_they_change(self):
        book = MEDIA / "chapters" / "chapters_NERO.mp4"
        for options, stays in (
            ([], True),
            (["-timescale", "90000"], True),
            (["-track", "Sound Track"], True),
            (["-trimTo", "9"], True),
            (["-trimTo", "3"], False),
            (["-startAt", "1"], False),
            (["-rate", "2"], False),
            (["-add-chapter", "late", "1"], False),
        ):
            with self.subTest(options):
                out = self.folder / "book.mov"
                done = self.run_in_folder("cliptune", "-q", book, *options, "-o", out)
                self.assertEqual(done.status, 0)
                self.assertEqual(b"chpl" in out.read_bytes(), stays)
                self.assertEqual(len(runs.tracks(out)), 1 if stays else 2)
        book2 = MEDIA / "chapters" / "sample_with_nero_chapters_only.mp4"
        joined = self.assert_run("clipjoin", book, book2, "-self-contained")
        later = [(14053 + time, title) for time, title in chapters(book2)]
        self.assert_chapters(joined, chapters(book) + later, within=2)

    @runs.needs_corpus
    def test_of_real_books_are_read_as_other_programs_read_them(self):
        for path in sorted((MEDIA / "chapters").iterdir()):
            with self.subTest(path.name):
                expected = chapters(path)
                self.assertNotEqual(expected, [])
                out = f"Chapter list for {path}:\n" + "".join(f"\t* {t}\n" for _, t in expected)
                if path.name == "test-pod.m4a":
                    continue  # it has two chapter tracks, and other readers find only one
                self.assert_run("cliptune", path, "-chaplist", "-self-contained", out=out)
                xml_file = self.folder / "list.xml"
                joined = self.assert_run(
                    "clipjoin", "-auto-chapters-merge", self.plain, path, "-self-contained",
                    "-chapter-tool-xml", xml_file,
                )  # fmt: skip
                shifted = [(0, "plain one")] + [(2000 + time, title) for time, title in expected]
                self.assertEqual([t for _, t in xml_chapters(xml_file)], [t for _, t in shifted])
                found = chapters(joined)
                self.assertEqual([title for _, title in found], [title for _, title in shifted])
                for (time, title), (wanted, _) in zip(found, shifted):
                    self.assertLessEqual(abs(time - wanted), 2, title)


if __name__ == "__main__":
    runs.main()
