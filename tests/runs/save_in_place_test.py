#!/usr/bin/env python3
"""Movies saved into their own files: what changes and what stays, for each layout of a file. A save
that is interrupted leaves the old movie or the new one."""

import fcntl
import os
import re
import signal
import stat
import struct
import unittest
import zlib

import runs
from runs import HINT, ONE_ERROR, Result, child

NOBODY = 65534
LOOP = ("LOOP", bytes(4))
CLIPTUNE = runs.RELEASE_BIN / "cliptune"
LIBRARY = runs.BIN / "libfault.so"  # works only in programs without sanitizers

# The parts that the files are made of

WIDE = struct.pack(">I4s", 8, b"wide")
STRANGER = struct.pack(">I4s20s", 28, b"uuid", b"this is not our own.")


def free(size):
    return struct.pack(">I4s", size, b"free") + bytes(size - 8)


RECORDED = struct.pack(">I4s", 4000, b"free") + b"N 48.2 " * 570 + b"\0\0"


def layout(data):
    """(type, start, end) of each atom of a file."""
    found, at = [], 0
    while at + 8 <= len(data):
        size, kind = struct.unpack_from(">I4s", data, at)
        if size == 1:
            (size,) = struct.unpack_from(">Q", data, at + 8)
        end = at + (size or len(data) - at)
        if size in range(2, 8) or end > len(data):
            break
        found.append((kind.decode("latin-1"), at, end))
        at = end
    return found


def whole_atoms(data, kind):
    return [data[start:end] for found, start, end in layout(data) if found == kind]


def moved(movie, distance):
    """The movie atom, with `distance` added to all chunk offsets."""
    at = movie.find(b"stco")
    while at >= 0:
        (count,) = struct.unpack_from(">I", movie, at + 8)
        offsets = struct.unpack_from(f">{count}I", movie, at + 12)
        new = struct.pack(f">{count}I", *(offset + distance for offset in offsets))
        movie = movie[: at + 12] + new + movie[at + 12 + len(new) :]
        at = movie.find(b"stco", at + 4)
    return movie


def compressed(movie):
    def atom(kind, content):
        return struct.pack(">I4s", 8 + len(content), kind) + content

    packed = struct.pack(">I", len(movie)) + zlib.compress(movie)
    method, data = atom(b"dcom", b"zlib"), atom(b"cmvd", packed)
    return atom(b"moov", atom(b"cmov", method + data))


def laid_out(clip, *parts):
    """The clip with its parts in this order: "ftyp", "moov", "cmov", "mdat", "mdat to the end", or
    bytes."""
    (ftyp,), (movie,), (media,) = (whole_atoms(clip, kind) for kind in ("ftyp", "moov", "mdat"))
    was = next(start for kind, start, _ in layout(clip) if kind == "mdat")
    pieces = {"ftyp": ftyp, "mdat": media, "mdat to the end": bytes(4) + media[4:]}
    distance = 0
    for _ in range(2):  # the second time with the right offsets
        pieces["moov"] = moved(movie, distance)
        pieces["cmov"] = compressed(pieces["moov"])
        starts, whole = {}, b""
        for part in parts:
            starts[part] = len(whole)
            whole += pieces.get(part, part)
        distance = starts.get("mdat", starts.get("mdat to the end")) - was
    return whole


LAYOUTS = {
    "movie at the end": ("ftyp", WIDE, "mdat", "moov"),
    "movie before the media": ("ftyp", "moov", WIDE, "mdat"),
    "movie in the middle": ("ftyp", STRANGER, "moov", "mdat", STRANGER),
    "media to the end": ("ftyp", "moov", WIDE, "mdat to the end"),
    "free space before the media": ("ftyp", free(4000), "mdat", "moov", STRANGER),
    "free space after the media": ("ftyp", "moov", "mdat", free(4000)),
    "what a recorder keeps": ("ftyp", "moov", "mdat", RECORDED),
    "compressed header": ("ftyp", "mdat", "cmov"),
}
# Nothing can be appended to this file, so a new file replaces it.
TRAILER = b"\0\0\0\5no atom"
TRAILING = ("ftyp", "moov", "mdat", STRANGER, TRAILER)


def user_data(path):
    return list(runs.atoms(child(runs.movie_header(path), "udta")))


class SavingTest(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.clips = {
            suffix: runs.make_clip(
                folder / ("clip" + suffix),
                "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1", "-f", "lavfi", "-i", "sine=d=1",
                "-c:v", "mpeg4", "-c:a", "aac", "-metadata", "title=One",
            )
            for suffix in (".mov", ".mp4")
        }  # fmt: skip
        cls.samples = runs.samples_by_track(cls.clips[".mov"])

    def setUp(self):
        super().setUp()
        self.folder.chmod(0o755)

    def store(self, parts, name="movie.mov"):
        path = self.folder / name
        path.write_bytes(laid_out(self.clips[path.suffix].read_bytes(), *parts))
        self.assert_movie(path, looping=False)
        return path

    def save(self, path, *options, program="cliptune", **more):
        return self.run_in_folder(program, path, "-save-in-place", *options, **more)

    def assert_saves(self, path, *options):
        self.assertEqual(self.save(path, *options), Result(0, "", ""))

    def assert_movie(self, path, looping):
        """The file holds all samples of the clip, and loops or does not."""
        self.assert_samples(path)
        self.assertEqual(LOOP in user_data(path), looping)

    def assert_samples(self, path):
        found = runs.samples_by_track(path)
        self.assertEqual(list(found), list(self.samples))
        for number, samples in self.samples.items():
            self.assert_same(found[number], samples, f"track {number}")


@runs.has_tools("ffmpeg", "ffprobe")
class Saving(SavingTest):
    def test_the_media_and_all_other_atoms_stay_where_they_are(self):
        for name, parts in LAYOUTS.items():
            with self.subTest(name):
                path = self.store(parts)
                old = path.read_bytes()
                self.assert_saves(path, "-set-looping")
                self.assert_movie(path, looping=True)
                new = path.read_bytes()
                for kind, start, end in layout(old):
                    head = 4 if name == "media to the end" and kind == "mdat" else 0
                    if kind not in ("moov", "free") or old[start:end] == RECORDED:
                        self.assertEqual(new[start + head : end], old[start + head : end], kind)
                kinds = [kind for kind, _, _ in layout(new)]
                self.assertEqual(kinds.count("moov"), 1)
                self.assertEqual(layout(new)[-1][2], len(new), "atoms to the end")
                if "free space" in name:
                    self.assertEqual(len(new), len(old), "the free space was not used")

    def test_the_copy_method_keeps_bytes_after_the_last_atom(self):
        path = self.store(TRAILING)
        path.chmod(0o640)
        old = path.read_bytes()
        self.assert_saves(path, "-set-looping")
        self.assert_movie(path, looping=True)
        new = path.read_bytes()
        self.assertEqual([k for k, _, _ in layout(new)], ["ftyp", "moov", "mdat", "uuid"])
        for kind in ("ftyp", "mdat", "uuid"):
            self.assertEqual(whole_atoms(new, kind), whole_atoms(old, kind))
        self.assertTrue(new.endswith(STRANGER + TRAILER))
        self.assertEqual(path.stat().st_mode & 0o777, 0o640)
        self.assertEqual(os.listdir(self.folder), ["movie.mov"])
        self.assert_saves(path, "-unset-looping")
        self.assertEqual(len(path.read_bytes()), len(new) - 12)

    def test_four_gigabytes_of_media_up_to_the_end(self):
        path = self.store(("ftyp", "moov", WIDE, "mdat to the end"))
        old = path.read_bytes()
        start = next(start for kind, start, _ in layout(old) if kind == "wide")
        length = (5 << 30) + 1
        os.truncate(path, length)
        self.assert_saves(path, "-set-looping")
        with open(path, "rb") as file:
            head = file.read(len(old))
            file.seek(length)
            movie = file.read()
        os.truncate(path, 0)
        self.assertEqual(
            head[start : start + 16], struct.pack(">I4sQ", 1, b"mdat", length - start)
        )
        self.assertEqual(head[start + 16 :], old[start + 16 :])
        self.assertEqual([kind for kind, _, _ in layout(movie)], ["moov"])
        self.assertIn(LOOP, list(runs.atoms(child(movie, "moov", "udta"))))

    def test_setting_and_removing_flags_changes_nothing_else(self):
        path = self.store(LAYOUTS["movie at the end"])
        before = user_data(path)
        for options, flags in (
            (["-set-auto-play"], [("play", b"\1")]),
            (["-set-looping"], [("play", b"\1"), LOOP]),
            (["-set-auto-play", "-unset-auto-play"], [LOOP, ("play", b"\1")]),
            (["-unset-auto-play"], [LOOP]),
            (["-unset-looping"], []),
            (["-unset-looping"], []),
        ):
            description = runs.description(path)["streams"]
            self.assert_saves(path, *options)
            self.assertEqual(user_data(path), before + flags)
            self.assertEqual(runs.description(path)["streams"], description)
            self.assert_samples(path)

    def test_an_mpeg4_file_stays_one(self):
        path = self.folder / "clip.mp4"
        path.write_bytes(self.clips[".mp4"].read_bytes())
        old = path.read_bytes()
        handlers, said = self.handlers(path), runs.description(path)
        self.assertEqual({handler[4:8] for handler in handlers}, {bytes(4)})
        self.assert_saves(path, "-set-looping")
        self.assertIn(LOOP, user_data(path))
        self.assertEqual(self.handlers(path), handlers)
        for kind, content in runs.atoms(runs.movie_header(path)):
            if kind == "trak":
                files = child(content, "mdia", "minf", "dinf", "dref")
                self.assertEqual(files[8:], struct.pack(">I4sI", 12, b"url ", 1))
        self.assertEqual(whole_atoms(path.read_bytes(), "ftyp"), whole_atoms(old, "ftyp"))
        now = runs.description(path)
        self.assertEqual(now["streams"], said["streams"])
        # Its tags are kept, and the annotations made from them are added.
        tags = said["format"]["tags"]
        made = {f"{name}-eng": tags[name] for name in ("title", "encoder")}
        self.assertEqual(now["format"]["tags"], {**tags, **made})

    def handlers(self, path):
        atoms = runs.atoms(runs.movie_header(path))
        return [child(content, "mdia", "hdlr") for kind, content in atoms if kind == "trak"]

    def test_a_file_saved_often_does_not_grow_without_end(self):
        for name, parts in LAYOUTS.items():
            with self.subTest(name):
                path = self.store(parts)
                sizes = []
                for _ in range(4):
                    for option in ("-set-looping", "-unset-looping"):
                        self.assert_saves(path, option)
                        sizes.append(path.stat().st_size)
                self.assert_movie(path, looping=False)
                self.assertEqual(len(set(sizes[2:])), 1, sizes)

    def test_file_rights_and_links_stay(self):
        path = self.store(LAYOUTS["movie before the media"])
        path.chmod(0o604)
        (self.folder / "elsewhere").mkdir()
        hard, soft = self.folder / "hard.mov", self.folder / "elsewhere" / "soft.mov"
        os.link(path, hard)
        soft.symlink_to("../movie.mov")
        was = path.stat()
        for number, name in enumerate((path, hard, soft)):
            self.assert_saves(name, "-unset-looping" if number % 2 else "-set-looping")
            now = path.stat()
            for field in ("st_ino", "st_mode", "st_uid", "st_gid", "st_nlink"):
                self.assertEqual(getattr(now, field), getattr(was, field), field)
            self.assert_movie(path, looping=number % 2 == 0)
        self.assertEqual(os.readlink(soft), "../movie.mov")

    def test_the_copy_method_writes_through_a_link(self):
        path = self.store(TRAILING)
        soft = self.folder / "soft.mov"
        soft.symlink_to("movie.mov")
        self.assert_saves(soft, "-set-looping")
        self.assertTrue(soft.is_symlink())
        self.assertFalse(path.is_symlink())
        self.assert_movie(path, looping=True)

    def test_nothing_but_the_file_itself_is_written(self):
        path = self.store(LAYOUTS["movie at the end"])
        home = {"HOME": str(self.folder / "home"), "XDG_CONFIG_HOME": ""}
        done = self.save(path, "-set-looping", "-o", "other.mov", env=home)
        self.assertEqual(done, Result(0, "", ""))
        self.assertEqual(os.listdir(self.folder), ["movie.mov"])

    def test_what_is_appended_is_referred_to(self):
        path, other = self.store(LAYOUTS["movie before the media"]), self.folder / "other.mov"
        other.write_bytes(self.clips[".mov"].read_bytes())
        self.assertEqual(
            self.run_in_folder("cliptune", path, "-save-in-place", other), Result(0, "", "")
        )
        self.assertLess(path.stat().st_size, 2 * other.stat().st_size)
        flat = self.join_whole("flat.mov", path)
        own = [frame.hash for frame in runs.frames(other)]
        self.assertEqual([frame.hash for frame in runs.frames(flat)], own * 2)

    def test_an_mpeg4_file_refers_to_other_files_by_url(self):
        path, other = self.folder / "a.mp4", self.folder / "o\u0308ther.mp4"
        for clip in (path, other):
            clip.write_bytes(self.clips[".mp4"].read_bytes())
        self.assertEqual(
            self.run_in_folder("cliptune", path, "-save-in-place", other), Result(0, "", "")
        )
        header = runs.movie_header(path)
        self.assertIn(b"url \0\0\0\0o%CC%88ther.mp4\0", header)
        self.assertNotIn(b"alis", header)
        (self.folder / "moved").mkdir()
        for clip in (path, other):
            clip.rename(self.folder / "moved" / clip.name)
        flat = self.join_whole("flat.mov", self.folder / "moved" / path.name)
        own = [frame.hash for frame in runs.frames(self.folder / "moved" / other.name)]
        self.assertEqual([frame.hash for frame in runs.frames(flat)], own * 2)

    # Failures

    def assert_unchanged(self, path, content):
        self.assertTrue(path.read_bytes() == content, "the file has changed")
        self.assertEqual(os.listdir(self.folder), [path.name])

    def test_a_file_that_is_locked_is_busy(self):
        path = self.store(LAYOUTS["movie at the end"])
        old = path.read_bytes()
        with open(path, "rb") as locked:
            fcntl.flock(locked, fcntl.LOCK_SH)
            done = self.save("movie.mov", "-set-looping")
        self.assertEqual(done, Result(0, "", "Error -47 reading movie.mov\n" + HINT))
        self.assert_unchanged(path, old)

    @runs.needs_root
    def test_a_read_only_file(self):
        program = (runs.BIN / "cliptune").resolve()
        if not all(part.stat().st_mode & stat.S_IXOTH for part in [program, *program.parents]):
            self.skipTest(f"{program} cannot be read by other users")
        path = self.store(LAYOUTS["movie at the end"])
        old = path.read_bytes()
        path.chmod(0o644)
        done = self.save("movie.mov", "-set-looping", user=NOBODY, group=NOBODY, extra_groups=[])
        said = (
            "Permissions error reading movie.mov\n"
            "Make sure the movie file is readable and writeable\n"
        )
        self.assertEqual(done, Result(0, "", said))
        self.assert_unchanged(path, old)

    @unittest.skipUnless((runs.BIN / "failing_clipjoin").exists(), "failing_clipjoin is not built")
    def test_a_failing_update_is_counted(self):
        path = self.store(LAYOUTS["movie at the end"])
        old = path.read_bytes()
        for options, closing in ((["-q"], ""), ([], ONE_ERROR)):
            done = self.run_in_folder(
                "failing_clipjoin", "-cliptune", path, "-save-in-place", "-set-looping", *options,
                env={"FAIL": "UpdateMovieInStorage:1:-36"},
            )  # fmt: skip
            self.assertRegex(
                done.err,
                r"^Error in UpdateMovieInStorage at line \d+ of utils\.cpp: -36\n"
                + re.escape(closing) + "$",
            )  # fmt: skip
            self.assertEqual(done.status, 1)
            self.assert_unchanged(path, old)


@runs.has_tools("ffmpeg", "ffprobe")
@unittest.skipUnless(CLIPTUNE.exists(), f"there is no release build: {CLIPTUNE}")
@unittest.skipUnless(LIBRARY.exists(), f"{LIBRARY} is not built")
class SavingCutShort(SavingTest):
    def save_with(self, path, *options, **faults):
        faults["LD_PRELOAD"] = str(LIBRARY)
        return self.save(path, "-q", *options, program=CLIPTUNE, env=faults)

    def calls(self, parts):
        """The number of writing calls in a save that succeeds."""
        path, count = self.store(parts), self.folder / "count"
        done = self.save_with(path, "-set-looping", FAULT_COUNT_FILE=str(count))
        self.assertEqual(done, Result(0, "", ""))
        self.assert_movie(path, looping=True)
        self.assertGreaterEqual(int(count.read_text()), 4)
        return int(count.read_text())

    def check_each_failure(self, kind, check):
        """Makes each writing call fail in turn, and calls check(path, size before, result of the
        run). Does so for a save in place and for a save that writes a new file. The CutShort unit
        tests try the other layouts in memory."""
        layouts = {"in place": LAYOUTS["movie at the end"], "trailing bytes": TRAILING}
        for name, parts in layouts.items():
            for call in range(1, self.calls(parts) + 1):
                # A new name each time, because the output of readers is cached by name.
                path = self.store(parts, f"{name}, {kind} {call}.mov")
                size = path.stat().st_size
                with self.subTest(name, call=call, kind=kind):
                    faults = {"FAULT_AT": str(call), "FAULT_KIND": kind}
                    check(path, size, self.save_with(path, "-set-looping", **faults))

    def is_new(self, path):
        """Whether the movie is the new one. It is complete in any case."""
        looping = LOOP in user_data(path)
        self.assert_movie(path, looping)
        return looping

    def test_a_save_killed_at_any_call_leaves_the_old_or_the_new_movie(self):
        new = []

        def check(path, _, done):
            self.assertEqual(done.status, -signal.SIGKILL)
            new.append(self.is_new(path))

        self.check_each_failure("kill", check)
        self.assertEqual(set(new), {False, True})

    def test_a_killed_save_can_be_repeated(self):
        def check(path, _, __):
            self.assertEqual(self.save_with(path, "-set-auto-play"), Result(0, "", ""))
            self.assert_samples(path)
            self.assertIn(("play", b"\1"), user_data(path))

        self.check_each_failure("kill", check)

    def test_a_full_disk_leaves_the_old_movie_and_an_error(self):
        def check(path, size, done):
            new = self.is_new(path)
            error = r"Error in UpdateMovieInStorage at line \d+ of utils\.cpp: -34\n"
            # A failure may be silent only if the call just makes writing faster.
            self.assertRegex(done.err, f"^({error}){'?' if new else ''}$")
            self.assertEqual(done.status, 1 if done.err else 0)
            if not new:
                self.assertEqual(path.stat().st_size, size)

        self.check_each_failure("ENOSPC", check)


if __name__ == "__main__":
    runs.main()
