#!/usr/bin/env python3
"""MPEG-4 files: strict readers accept them, they play, and hint tracks split them into packets."""

import base64
import collections
import fractions
import itertools
import re
import struct

import runs
from hint_packets import packets, sound_of_packets, units, units_of_packets
from runs import DATA, atoms, child

# The movies of the project that can be MPEG-4 files.
EXPORTED = {
    "chapters_both.m4b", "chapters_list.m4a", "chapters_text.mov", "dash.mp4", "fragments.mp4",
    "h264.mp4", "hinted.mp4", "languages.mp4", "rotated.mov",
}  # fmt: skip
# The folders whose movies are tried: the project's own, and some of the collection.
FOLDERS = (
    "data", "android-device", "apple-device", "edit-lists", "hinted-systems", "phone-3gp", "timecode",
)  # fmt: skip

# Every atom that may be in the movie header, by its parent (ISO/IEC 14496-12, -14 and -15).
ALLOWED = {
    "moov": "mvhd iods trak udta", "trak": "tkhd tref edts mdia udta", "edts": "elst",
    "tref": "hint chap", "udta": "hnti", "hnti": "sdp  rtp ", "mdia": "mdhd elng hdlr minf",
    "minf": "vmhd smhd gmhd hmhd dinf stbl", "dinf": "dref",
    "stbl": "stsd stts ctts stss stsc stsz stco sdtp sgpd sbgp",
    "avc1": "avcC pasp colr clap btrt", "mp4v": "esds pasp colr clap btrt", "mp4a": "esds",
    "rtp ": "tims", "dref": "url ", "stsd": "avc1 mp4v mp4a text rtp ", "gmhd": "gmin text",
}  # fmt: skip
# The number of bytes of fields before the children.
HEADS = {"stsd": 8, "dref": 8, "avc1": 78, "mp4v": 78, "mp4a": 28, "rtp ": 16}
LIMIT = 1450
Sample = collections.namedtuple("Sample", "data time duration offset")


def foreign(parent, data):
    """The atoms that are not allowed at their place."""
    wanted = ALLOWED.get(parent, "")
    for kind, content in atoms(data):
        if not any(kind == wanted[i : i + 4] for i in range(0, len(wanted), 5)):
            yield f"{parent}/{kind}"
        elif kind == "hnti":
            continue
        elif kind in ALLOWED or kind in HEADS:
            yield from foreign(kind, content[HEADS.get(kind, 0) :])


def table(stbl, kind, form):
    """The rows of a table that starts with a version and a count."""
    content = child(stbl, kind)
    return list(struct.iter_unpack(">" + form, content[8:])) if content else []


def samples(file, trak):
    stbl = child(trak, "mdia", "minf", "stbl")
    constant, count = struct.unpack_from(">II", child(stbl, "stsz"), 4)
    sizes = [constant] * count
    if not constant:
        sizes = [size for (size,) in struct.iter_unpack(">I", child(stbl, "stsz")[12:])]
    times = [delta for count, delta in table(stbl, "stts", "II") for _ in range(count)]
    shifts = [shift for count, shift in table(stbl, "ctts", "Ii") for _ in range(count)]
    chunks = [offset for (offset,) in table(stbl, "stco", "I")]
    runs_of_chunks = table(stbl, "stsc", "III") + [(len(chunks) + 1, 0, 0)]
    found, time = [], 0
    for (first, held, _), (end, _, _) in zip(runs_of_chunks, runs_of_chunks[1:]):
        for at in chunks[first - 1 : end - 1]:
            for _ in range(held):
                i = len(found)
                shift = shifts[i] if shifts else 0
                found.append(Sample(file[at : at + sizes[i]], time, times[i], shift))
                at, time = at + sizes[i], time + times[i]
    assert len(found) == count
    return found


def needed(trak, media, edit):
    """The indexes of the samples that the edit needs: those that it shows, all from the sync sample
    before them, and the sound of the second before."""
    scale = runs.time_scale(child(trak, "mdia", "mdhd"))
    end = edit.media + max(edit.duration * scale * edit.rate, 1)
    starts = sorted({m.time + m.offset for m in media})
    until = dict(zip(starts, starts[1:] + [max(starts[-1], media[-1].time) + media[-1].duration]))
    shown = [i for i, m in enumerate(media)
             if m.time + m.offset < end and until[m.time + m.offset] > edit.media]  # fmt: skip
    first = shown[0]
    if Exported.handler(trak)[8:12] == b"soun":
        first = next(i for i, m in enumerate(media) if m.time + m.duration > edit.media - scale)
    syncs = [number - 1 for (number,) in table(child(trak, "mdia", "minf", "stbl"), "stss", "I")]
    return range(max((i for i in syncs if i <= first), default=first), shown[-1] + 1)


def decoder_info(esds):
    """The decoder-specific information, which comes after the fields that we write."""
    at = 30
    assert esds[at] == 5
    length = 0
    while True:
        at += 1
        length = length << 7 | esds[at] & 127
        if not esds[at] & 128:
            return esds[at + 1 : at + 1 + length]


def chapters(path):
    """(start in ms, title) of each chapter that ffprobe finds."""
    found = runs.ffprobe(path, "-show_chapters")["chapters"]
    return [(round(1000 * float(c["start_time"])), c["tags"].get("title")) for c in found]


def menu(path):
    """The same, as mediainfo reads them."""
    told, _ = runs.read_by("mediainfo", path)
    form = r"(?m)^(\d\d):(\d\d):(\d\d)\.(\d{3}) +: (?:\w*:)?(.+?)\r?$"
    return [(((int(h) * 60 + int(m)) * 60 + int(s)) * 1000 + int(ms), title)
            for h, m, s, ms, title in re.findall(form, told.decode())]  # fmt: skip


class Exported:
    """The contents of one of our files."""

    def __init__(self, path):
        self.file = path.read_bytes()
        self.top = [kind for kind, _ in atoms(self.file)]
        self.movie = child(self.file, "moov")
        self.tracks = {}
        for kind, trak in atoms(self.movie):
            if kind == "trak":
                self.tracks[struct.unpack_from(">I", child(trak, "tkhd"), 12)[0]] = trak

    def of_kind(self, *kinds):
        return [t for t in self.tracks.values() if self.handler(t)[8:12].decode() in kinds]

    def edits(self, trak):
        """The edits that show media; one for all of it if there is no list."""
        listed = runs.edits_of(trak, runs.time_scale(child(self.movie, "mvhd")))
        if listed is None:
            listed = [runs.Edit(0, runs.media_duration(child(trak, "mdia", "mdhd")), 0, 1)]
        return [edit for edit in listed if edit.media >= 0]

    def duration(self, trak):
        scale = runs.time_scale(child(self.movie, "mvhd"))
        return fractions.Fraction(struct.unpack_from(">I", child(trak, "tkhd"), 20)[0], scale)

    @staticmethod
    def handler(trak):
        return child(trak, "mdia", "hdlr")

    def hinted(self):
        """(hint track, the track that it describes)"""
        for hint in self.of_kind("hint"):
            (number,) = struct.unpack(">I", child(hint, "tref", "hint"))
            yield hint, self.tracks[number]


def description(trak):
    """Format and content of the first sample description."""
    return next(atoms(child(trak, "mdia", "minf", "stbl", "stsd")[8:]))


class Mpeg4Test(runs.RunTest):
    def export(self, *arguments, output="out.mp4"):
        done = self.run_in_folder("clipjoin", *arguments, "-mp4", "-q", "-o", output)
        self.assertEqual(done, runs.Result(0, "", ""))
        return self.folder / output

    def assert_strict(self, path):
        """The file has only atoms that the standards name, in the order that players prefer."""
        exported = Exported(path)
        self.assertEqual(exported.top, ["ftyp", "moov", "mdat"])
        self.assertEqual(list(foreign("moov", exported.movie)), [])
        brands = child(exported.file, "ftyp")
        self.assertEqual(brands[:8], b"mp42\0\0\0\0")
        self.assertEqual(b"avc1" in brands, any(description(t)[0] == "avc1"
                                                for t in exported.of_kind("vide")))
        for trak in exported.tracks.values():
            handler = exported.handler(trak)
            self.assertEqual((handler[4:8], handler[12:24], handler[-1]), (bytes(4), bytes(12), 0))
            self.assertNotIn(0, handler[24:-1])
            references = child(trak, "mdia", "minf", "dinf", "dref")
            self.assertEqual(references, struct.pack(">III4sI", 0, 1, 12, b"url ", 1))
            self.assertGreaterEqual(struct.unpack_from(">H", child(trak, "mdia", "mdhd"), 20)[0],
                                    0x400, "a language of three letters")
        self.assertEqual([len(exported.of_kind(k)) <= 1 for k in ("vide", "soun")], [True] * 2)
        return exported

    def assert_hinted(self, exported):
        hinted = list(exported.hinted())
        self.assertEqual(len(hinted), len(exported.of_kind("vide", "soun")))
        text = child(exported.movie, "udta", "hnti", "rtp ").decode()
        length = re.fullmatch(r"sdp b=AS:\d+\r\na=range:npt=0-(\d+\.\d{3})\r\n", text)[1]
        lasts = lambda kinds: max(map(exported.duration, exported.of_kind(*kinds)))  # noqa: E731
        self.assertAlmostEqual(float(length), lasts(["vide", "soun", "hint"]), delta=0.002)
        self.assertEqual(runs.media_duration(child(exported.movie, "mvhd")),
                         lasts(["vide", "soun", "text"]), "hints make the movie longer")  # fmt: skip
        for hint, trak in hinted:
            media = samples(exported.file, trak)
            hints = samples(exported.file, hint)
            scale, clock = (runs.time_scale(child(t, "mdia", "mdhd")) for t in (trak, hint))
            sent = [list(packets(h.data, media)) for h in hints]
            flat = [packet for group in sent for packet in group]
            self.assertLessEqual(max(packet.size for packet in flat), LIMIT)
            self.assertEqual([p.sequence for p in flat], [i & 0xFFFF for i in range(len(flat))])
            lines = dict(
                line.split(":", 1) for line in
                child(hint, "udta", "hnti", "sdp ").decode().split("\r\n") if ":" in line
            )  # fmt: skip
            self.assertEqual({str(p.kind) for p in flat}, {lines["a=rtpmap"].split()[0]})
            self.assertGreaterEqual(flat[0].kind, 96, "a dynamic payload type")
            words = dict(part.strip().split("=", 1) for part in
                         lines["a=fmtp"].split(" ", 1)[1].split(";"))  # fmt: skip
            largest, average = struct.unpack_from(">HH", child(hint, "mdia", "minf", "hmhd"), 4)
            self.assertEqual(largest, max(packet.size for packet in flat))
            self.assertEqual(average, sum(packet.size for packet in flat) // len(flat))
            kind, content = description(trak)
            counts = [1] * len(hints)  # of the media samples that a hint sample sends
            if kind == "mp4a":
                counts = [struct.unpack_from(">H", g[0].payload)[0] // 16 for g in sent]
            firsts = [0, *itertools.accumulate(counts)]
            self.assertEqual(firsts.pop(), len(media))
            # A hint sample has the decode time of what it sends. The shift of its packets gives the
            # display time.
            to_clock = lambda time: (time * clock * 2 + scale) // (2 * scale)  # noqa: E731
            at = lambda m: (to_clock(m.time), {to_clock(m.time + m.offset) - to_clock(m.time)})  # noqa: E731
            self.assert_same([(h.time, {p.shift for p in group}) for h, group in zip(hints, sent)],
                             [at(media[first]) for first in firsts], "times")  # fmt: skip
            order = [range(first, first + count) for first, count in zip(firsts, counts)]
            self.assert_nothing_hidden(exported, hint, hints, order, trak, media)
            if kind == "mp4a":
                self.assert_sound(words, content, sent, order, media, scale)
                continue
            self.assertTrue(all([p.marker for p in g] == [0] * (len(g) - 1) + [1] for g in sent))
            if kind == "avc1":
                self.assert_avc(words, child(content[78:], "avcC"), sent, media)
            else:
                config = decoder_info(child(content[78:], "esds"))
                self.assertEqual(bytes.fromhex(words["config"]), config)
                self.assert_same([b"".join(p.payload for p in g) for g in sent],
                                 [m.data for m in media], "pictures")  # fmt: skip

    def assert_nothing_hidden(self, exported, hint, hints, order, trak, media):
        """The edits of the hint track send what each edit of the media needs, in that order."""
        clock = runs.time_scale(child(hint, "mdia", "mdhd"))
        sent = []
        for edit in exported.edits(hint):
            end = edit.media + edit.duration * clock
            self.assertLessEqual(end, hints[-1].time + hints[-1].duration + clock / 600)
            self.assertIn(edit.media, {h.time for h in hints})
            for h, numbers in zip(hints, order):
                if edit.media <= h.time and h.time + h.duration <= end + 1:
                    sent += numbers
        at = 0
        for edit in exported.edits(trak):
            wanted = needed(trak, media, edit)
            at = next((i for i, number in enumerate(sent) if i >= at and number == wanted[0]), None)
            self.assertIsNotNone(at, "a hidden hint")
            self.assert_same(sent[at : at + len(wanted)], wanted, "hints")
        self.assertEqual(set(sent), set(range(len(media))))

    def assert_avc(self, words, config, sent, media):
        size = (config[4] & 3) + 1
        self.assert_same([list(units_of_packets(group)) for group in sent],
                         [list(units(m.data, size)) for m in media], "NAL units")  # fmt: skip
        self.assertEqual(words["profile-level-id"], config[1:4].hex().upper())
        sets = [base64.b64decode(s) for s in words["sprop-parameter-sets"].split(",")]
        known, at = [], 5
        for mask in (31, 255):
            count, at = config[at] & mask, at + 1
            for _ in range(count):
                length = int.from_bytes(config[at : at + 2], "big")
                known.append(config[at + 2 : at + 2 + length])
                at += 2 + length
        self.assertEqual(sets, known)

    def assert_sound(self, words, content, sent, order, media, scale):
        self.assertEqual(words["mode"], "AAC-hbr")
        self.assertEqual(bytes.fromhex(words["config"]), decoder_info(child(content[28:], "esds")))
        flat = [packet for group in sent for packet in group]
        self.assert_same(list(sound_of_packets(flat)), [m.data for m in media], "units of sound")
        for numbers in order:
            last = media[numbers[-1]]
            length = last.time + last.duration - media[numbers[0]].time
            self.assertTrue(len(numbers) == 1 or length <= scale / 10)


class EveryMovie(Mpeg4Test):
    def test_exported_movies_are_strict_play_the_same_and_can_be_streamed(self):
        exported = set()
        for movie in (movie for movie in runs.MOVIES if movie.parent.name in FOLDERS):
            is_own = movie.parent == DATA
            with self.subTest(movie.name):
                path = self.folder / "out.mp4"
                done = self.run_in_folder("clipjoin", movie, "-mp4", "-q", "-o", path)
                if done != runs.Result(0, "", ""):
                    continue  # it has something that cannot be in such a file
                exported |= {movie.name} if is_own else set()
                file = self.assert_strict(path)
                self.assert_hinted(file)
                self.assertEqual(chapters(path), chapters(movie))
                for kind, stream in (("vide", "v:0"), ("soun", "a:0")):
                    # ffmpeg plays sound of fragments that an edit list cuts off.
                    if is_own and file.of_kind(kind) and b"moof" not in movie.read_bytes():
                        found = runs.frames(path, stream)
                        self.assert_same(found, runs.frames(movie, stream), stream)
                known = set(runs.complaints(movie))
                self.assertEqual([c for c in runs.complaints(path) if c not in known], [])
                form = "--Inform=General;%Format%|%CodecID%|%VideoCount%|%AudioCount%|%IsTruncated%"
                told, _ = runs.read_by("mediainfo", form, path)
                kinds = [len(file.of_kind(k)) or "" for k in ("vide", "soun")]
                self.assertEqual(told.decode().strip(), "MPEG-4|mp42|{}|{}|".format(*kinds))
                self.assertIn(b'"warnings": []', runs.read_by("mkvmerge", "-J", path)[0])
        self.assertEqual(exported, EXPORTED)

    def test_a_speed_moves_from_the_edits_to_the_samples(self):
        movie, path = DATA / "h264.mp4", self.folder / "out.mp4"
        done = self.run_in_folder("cliptune", movie, "-scaleTo", "4", "-mp4", "-q", "-o", path)
        self.assertEqual(done, runs.Result(0, "", ""))
        exported = self.assert_strict(path)
        self.assert_hinted(exported)
        (video,) = exported.of_kind("vide")
        self.assertEqual({edit.rate for edit in runs.edits_of(video, 600)}, {1})
        self.assert_same([(round(2 * f.time, 2), f.hash) for f in runs.frames(movie)],
                         [(round(f.time, 2), f.hash) for f in runs.frames(path)], "frames")

    def test_losses_are_reported_first(self):
        for options, said in (([], runs.ANNOTATIONS_ARE_LOST), (["-q"], "")):
            movie = DATA / "chapters_both.m4b"
            done = self.run_in_folder("clipjoin", movie, *options, "-mp4", "-o", "out.m4a")
            self.assertEqual(done, runs.Result(0, "", said))
        self.assertEqual(child(Exported(self.folder / "out.m4a").movie, "udta", "meta"), b"")

    def test_hints_send_all_that_edits_need(self):
        clip = DATA / "h264.mp4"
        cut, three = (clip, "-startAt", "0.6"), (clip, clip, clip, "-force-same-tracks")
        exported_cut = self.export(*cut, output="cut.mp4")
        for inputs, seconds in (
            ([clip], 2), (cut, 1.4), (three, 6), ((*cut, *cut, "-force-same-tracks"), 2.8),
            ([exported_cut, exported_cut, "-force-same-tracks"], 2.8),
        ):  # fmt: skip
            with self.subTest(inputs):
                path = self.export(*inputs)
                exported = self.assert_strict(path)
                self.assert_hinted(exported)
                movie = runs.media_duration(child(exported.movie, "mvhd"))
                self.assertAlmostEqual(float(movie), seconds, delta=0.01)
        hashes = [[frame.hash for frame in runs.frames(f)] for f in (self.export(*three), clip)]
        for codec in ("libx264", "mpeg4"):  # pictures that take several packets
            source = ("-f", "lavfi", "-i", "testsrc2=s=320x240:r=10:d=1", "-c:v", codec)
            large = runs.make_clip(self.folder / "large.mp4", *source, "-qmin", "1", "-qmax", "4")
            exported = self.assert_strict(self.export(large))
            pictures = samples(exported.file, exported.of_kind("vide")[0])
            self.assertGreater(max(len(picture.data) for picture in pictures), 3 * LIMIT)
            self.assert_hinted(exported)
        self.assert_same(hashes[0], 3 * hashes[1], "frames")

    def test_books_have_chapters_where_readers_find_them(self):
        """Also after edits, because most readers do not apply the edits of a chapter track."""
        talk = runs.make_clip(self.folder / "talk.m4a", "-f", "lavfi", "-i", "sine=d=4", "-c:a", "aac")
        made = ("-auto-chapters", talk, "-chapter-name", "Größe", talk, "-add-chapter", "Mitte", "1.5")
        book = self.export(*made, output="book.m4b")
        plain = self.join_whole("plain.mov", talk, talk)
        self.assert_same(runs.sound(book), runs.sound(plain), "sound")
        for edits, expected in (
            ([], [(0, "Größe"), (1500, "Mitte"), (4000, "talk")]),
            (["-startAt", "1"], [(0, "Größe"), (500, "Mitte"), (3000, "talk")]),
            (["-nochapter", "Mitte"], [(0, "Größe"), (1500, "talk")]),
            (["-rate", "2"], [(0, "Größe"), (750, "Mitte"), (2000, "talk")]),
        ):
            with self.subTest(edits):
                path = self.export(book, *edits, output="out.m4b")
                exported = self.assert_strict(path)
                self.assert_hinted(exported)
                (text,) = exported.of_kind("text")
                self.assertEqual(child(text, "tkhd")[3], 6, "players show enabled text as subtitles")
                for reader in (chapters, menu):
                    self.assertEqual(reader(path), expected)
                told, _ = runs.read_by("mkvmerge", "-J", path)
                self.assertIn(b'"num_entries": %d' % len(expected), told)


if __name__ == "__main__":
    runs.main()
