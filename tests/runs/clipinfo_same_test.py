#!/usr/bin/env python3
"""clipinfo -same: outputs that show what their inputs show are equal to them, and every fault is
found and named."""

import re
import struct
import subprocess
import unittest

import runs

FORMS = {
    "reference": ("-o", "out.mov"),
    "self-contained": ("-self-contained", "-no-compressed-header", "-o", "out.mov"),
    "MPEG-4": ("-mp4", "-o", "out.mp4"),
}


def clip(path, pictures=1.0, sound=1.0, color="testsrc2", *options):
    """A clip of H.264 with B-frames and AAC, unless the options say otherwise."""
    coding = ["-c:v", "libx264", "-bf", "2", "-g", "10", "-pix_fmt", "yuv420p", "-c:a", "aac"]
    return runs.make_clip(
        path, "-f", "lavfi", "-i", f"{color}=s=64x48:r=25:d={pictures}",
        "-f", "lavfi", "-i", f"sine=440:d={sound}:r=48000", *coding, *options,
    )  # fmt: skip


def copied(path, source, *filters):
    """A copy by ffmpeg, whose packets go through bitstream filters."""
    return runs.make_clip(path, "-i", source, "-map", "0", "-c", "copy", *filters)


class Same(runs.RunTest):
    def compare(self, output, *inputs):
        return self.run_in_folder("clipinfo", "-same", output, "-from", *inputs)

    def assert_same(self, output, *inputs, rules=""):
        """The two show the same, but for what `rules` matches; returns the first line."""
        done = self.compare(output, *inputs)
        self.assertEqual((done.status, done.err), (0, ""), done.out)
        first, *by_rule = done.out.splitlines()
        self.assertRegex(first, r"^same: \d+ tracks?, \d+ samples?, \d+ bytes, hash [0-9a-f]{32}$")
        for line in by_rule:
            self.assertRegex(line, f"^by rule: .*({rules or 'nothing'})")
        return first

    def assert_differs(self, difference, output, *inputs):
        done = self.compare(output, *inputs)
        self.assertEqual((done.status, done.err), (1, ""), done.out)
        self.assertNotIn("same:", done.out)
        self.assertRegex(done.out, re.compile(difference, re.MULTILINE))

    def edit(self, path, find, replace):
        """A copy of the file with `replace` at the only place of `find`."""
        content = path.read_bytes()
        self.assertEqual(content.count(find), 1)
        changed = path.with_name("changed" + path.suffix)
        changed.write_bytes(content.replace(find, replace))
        return changed


@runs.has_tools("ffmpeg", "ffprobe")
class Equal(Same):
    def test_joins_of_all_forms(self):
        one = clip(self.folder / "one.mp4", 1, 0.9)
        two = clip(self.folder / "two.mp4", 1.2, 1.3, "testsrc")
        rules = "fill gaps|last until the next|hint tracks|a little earlier"
        for name, form in FORMS.items():
            with self.subTest(name):
                self.run_in_folder("clipjoin", "-q", one, two, one, *form)
                first = self.assert_same(form[-1], one, two, one, rules=rules)
                # 25 + 30 + 25 pictures and all packets but those that only start the decoder
                samples = int(re.search(r"(\d+) samples", first)[1])
                self.assertGreater(samples, 80 + 3 * 40)

    def test_cuts_and_stacks(self):
        one = clip(self.folder / "one.mp4", 2, 2)
        two = clip(self.folder / "two.mp4", 1, 1, "testsrc")
        part = ("-startAt", "0.5", "-trimTo", "1.1")
        self.run_in_folder("cliptune", "-q", one, *part, "-self-contained", "-o", "cut.mov")
        self.assert_same("cut.mov", one, *part)
        self.assert_differs("Video Track: picture 1 at 0.000 s of input 1", "cut.mov", one)
        cuts = (one, *part, two, "-startAt", "0.3")
        self.run_in_folder("clipjoin", "-q", *cuts, "-self-contained", "-o", "cuts.mov")
        self.assert_same("cuts.mov", *cuts, rules="a little earlier|last until the next|fill gaps")
        stack = (one, two, "-placeAt", "0.7")
        self.run_in_folder("clipstak", "-q", *stack, "-self-contained", "-o", "stack.mov")
        self.assert_same("stack.mov", *stack)
        self.assert_differs("Video Track .*: ", "stack.mov", one, two, "-placeAt", "0.9")

    def test_uncompressed_sound_in_other_chunks_and_with_gaps(self):
        for codec in ("pcm_s16le", "pcm_alaw"):
            with self.subTest(codec):
                # Silence before the first sound must not hide a gap of another length.
                one = clip(self.folder / "one.mov", 1, 0.9, "testsrc2", "-c:a", codec)
                two = clip(
                    self.folder / "two.mov", 0.8, 1.1, "testsrc2", "-c:a", codec, "-af", "adelay=200"
                )
                joined = self.join_whole("joined.mov", one, two, one)
                rules = "filled with silence|last until the next"
                first = self.assert_same(joined, one, two, one, rules=rules)
                frames = 48000 * (0.9 + 1.3 + 0.9)
                self.assertIn(f" {int(frames) + 25 + 20 + 25} samples", first)
                self.assert_differs(
                    "Sound Track: sound at", joined, two, one, one
                )

    def test_movies_that_were_cut_and_joined_again(self):
        one = clip(self.folder / "one.mp4", 2, 2)
        halves = (one, "-trimTo", "1", one, "-startAt", "1")
        for form in ((), ("-self-contained",)):
            self.run_in_folder("clipjoin", "-q", *halves, *form, "-o", "again.mov")
            self.assert_same("again.mov", one, rules="a little earlier")

    def test_a_file_that_cannot_be_read(self):
        clip(self.folder / "one.mp4")
        done = self.compare("one.mp4", "none.mp4")
        self.assertEqual((done.status, done.out), (1, ""))
        self.assertIn("none.mp4", done.err)
        self.join("reference.mov", "one.mp4")
        (self.folder / "one.mp4").rename(self.folder / "two.mp4")
        done = self.compare("reference.mov", "two.mp4")
        self.assertEqual((done.status, done.out), (1, ""))
        self.assertIn("its media cannot be found", done.err)


@runs.has_tools("ffmpeg", "ffprobe")
class Faults(Same):
    def setUp(self):
        super().setUp()
        self.one = clip(self.folder / "one.mov")
        self.two = clip(self.folder / "two.mov", 1, 1, "testsrc")
        self.joined = self.join(
            "joined.mov", self.one, self.two, options=["-self-contained", "-no-compressed-header"]
        )

    def test_packets_that_another_program_has_changed(self):
        """The faults are made by ffmpeg, which writes all tables anew."""
        self.assert_same(copied(self.folder / "copy.mov", self.one), self.one)
        # The media of ffmpeg has 12800 units in a second.
        faults = {
            "setts=pts=PTS+256*eq(N\\,7)": "Video Track: picture .* shown 20.0 ms (later|longer)",
            "setts=pts=PTS+2*eq(N\\,7)": "Video Track: picture .* shown 0.16 ms later",
            "noise=drop=eq(n\\,24)": "Video Track: picture .*: .*1 picture is missing",
        }
        for change, difference in faults.items():
            with self.subTest(change):
                made = copied(self.folder / "made.mov", self.one, "-bsf:v", change)
                self.assert_differs(difference, made, self.one)

    def test_other_bytes_and_swapped_samples(self):
        packets = runs.ffprobe(self.joined, "-show_packets")["packets"]
        pictures = [p for p in packets if p["codec_type"] == "video"]
        places = {p["pts_time"]: int(p["pos"]) for p in pictures}
        content = bytearray(self.joined.read_bytes())
        content[places["1.080000"] + 8] ^= 1
        changed = self.folder / "changed.mov"
        changed.write_bytes(content)
        self.assert_differs(
            "^Video Track: picture 28 at 1.080 s of input 2: it has other bytes$",
            changed, self.one, self.two,
        )  # fmt: skip

        plain = runs.make_clip(
            self.folder / "plain.mov", "-f", "lavfi", "-i",
            "color=s=64x48:r=25:d=1,geq=random(1)*255:128:128", "-c:v", "rawvideo", "-pix_fmt", "rgb24",
        )  # fmt: skip
        size = 64 * 48 * 3
        swapped = bytearray(plain.read_bytes())
        start = int(runs.ffprobe(plain, "-show_packets")["packets"][3]["pos"])
        frames = [bytes(swapped[start + i * size : start + (i + 1) * size]) for i in (0, 1)]
        swapped[start : start + 2 * size] = frames[1] + frames[0]
        changed.write_bytes(swapped)
        self.assert_differs("picture 4 at 0.120 s of input 1: not in its place", changed, plain)

    def test_clips_in_another_order_and_missing_tracks(self):
        self.assert_differs("Video Track: picture \\d+ .*", self.joined, self.two, self.one)
        self.assert_differs("the last 25 pictures are missing", self.one, self.one, self.two)
        self.assert_differs("25 pictures are too many from 1.000 s on", self.joined, self.one)
        silent = self.folder / "silent.mov"
        self.run_in_folder(
            "cliptune", "-q", self.joined, "-notrack", "Sound Track", "-self-contained", "-o", silent
        )
        done = self.compare(silent, self.one, self.two)
        self.assertEqual(
            done.out, "Sound Track of input 1 is missing\nSound Track of input 2 is missing\n"
        )
        self.assertEqual(done.status, 1)
        self.assert_differs("^Sound Track is in no input$", self.joined, silent)

    def test_sync_samples_and_descriptions(self):
        header = runs.movie_header(self.joined)
        video = next(
            track for name, track in runs.atoms(header)
            if name == "trak" and runs.child(track, "mdia", "hdlr")[8:12] == b"vide"
        )  # fmt: skip
        sync = runs.child(video, "mdia", "minf", "stbl", "stss")
        numbers = list(struct.unpack(f">{len(sync) // 4}I", sync))
        numbers[3] += 1  # the second sync sample
        changed = self.edit(self.joined, sync, struct.pack(f">{len(numbers)}I", *numbers))
        self.assert_differs("Video Track: picture .*sync sample", changed, self.one, self.two)
        size = struct.pack(">HH", 64, 48)
        content = self.joined.read_bytes()
        at = content.index(size, content.index(b"avc1"))
        changed.write_bytes(content[:at] + struct.pack(">HH", 64, 46) + content[at + 4 :])
        self.assert_differs("it has another description", changed, self.one, self.two)

    def test_sound_in_a_gap_that_is_not_silent(self):
        short = clip(self.folder / "short.mov", 1, 0.5)
        joined = self.join(
            "gap.mov", short, self.one, options=["-self-contained", "-no-compressed-header"]
        )
        self.assert_same(joined, short, self.one, rules="fill gaps|last until")
        content = joined.read_bytes()
        silence = bytes.fromhex("01182007")
        self.assertGreater(content.count(silence), 10)
        changed = self.folder / "changed.mov"
        changed.write_bytes(content.replace(silence, b"\1\x19\x20\7", 1))
        self.assert_differs("Sound Track: packet .*too many", changed, short, self.one)
        plain = clip(self.folder / "plain.mov", 1, 0.5, "testsrc2", "-c:a", "pcm_s16le")
        joined = self.join_whole("gap.mov", plain, plain)
        content = joined.read_bytes()
        gap = content.index(bytes(40000))
        self.assert_same(joined, plain, plain, rules="filled with silence")
        for at, place in (gap + 20000, 1.0), (gap - 20000, 0.0):
            changed.write_bytes(content[:at] + bytes([content[at] ^ 1]) + content[at + 1 :])
            self.assert_differs(f"Sound Track: sound at {place:.3f} s of input", changed, plain, plain)


@runs.needs_corpus
class Corpus(Same):
    def test_every_movie_joined_with_itself(self):
        """Files that are damaged are left out: they do not even show what they show themselves."""
        files = [
            path for path in sorted(runs.MEDIA.rglob("*"))
            if path.is_file() and path.stat().st_size < 20e6
        ]  # fmt: skip

        def compared(number):
            path, found = files[number], []
            if runs.run("clipinfo", "-same", path, "-from", path).status != 0:
                return None
            for name, form in FORMS.items():
                folder = self.folder / f"{number} {name}"
                folder.mkdir()
                made = runs.run("clipjoin", path, path, "-q", *form, cwd=folder)
                output = folder / form[-1]
                if made.status != 0 or not output.exists():
                    continue  # it is encrypted, or no codec of MPEG-4
                done = runs.run("clipinfo", "-same", output, "-from", path, path)
                found.append((path.name, name, done.status, done.out if done.status else ""))
                output.unlink()
            return found

        results = [each for each in runs.in_parallel(compared, range(len(files))) if each]
        self.assertGreater(len(results), 80)
        for found in results:
            for name, form, status, out in found:
                self.assertEqual(status, 0, f"{name} as {form}: {out}")


if __name__ == "__main__":
    runs.main()
