#!/usr/bin/env python3
"""MPEG-4 files: strict readers accept them, they play, and hint tracks split them into packets."""

import base64
import collections
import fractions
import re
import shutil
import struct
import unittest

import runs
from chapters_test import chapters, menu
from runs import MEDIA, atoms, child

# Every supported kind of video and sound: sound descriptions of QuickTime version 1 and of ISO;
# video in both formats; video that is reordered or rotated; and edits that delay, cut or advance
# it.
MOVIES = (
    "android-device/sample_sef_slow_motion.mp4", "apple-device/auth.mov",
    "apple-device/ios9.mov", "apple-device/meta.mov", "chapters/7abc46ad_chapters_QT.m4v",
    "chapters/chapters_260qt255nero.m4a", "chapters/mp4-chapterized.m4a",
    "chapters/sample_with_chapters.mp4", "classic-mov/bt601.mov",
    "edit-lists/edit_list_positive_shift.mp4", "edit-lists/midroll-5s.mp4",
    "edit-lists/sample_edit_list_only_preroll_sync_sample.mp4", "hinted-systems/test-001.mp4", "layout/0001.mp4", "layout/sample_rotate_and_reflect.mp4",
    "phone-3gp/test.3gp",
    "tags/no_udta.m4a", "timecode/frame_debugger_1h.mov", "video-codecs/count_video.mp4",
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
ANNOTATIONS = (
    "Warning: the movie has annotations that will not appear in the output file.\n"
    "iTunes can be used to manually add annotations to m4a files.\n"
)

Sample = collections.namedtuple("Sample", "data time offset")
Packet = collections.namedtuple("Packet", "marker kind sequence shift payload size")


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
                found.append(Sample(file[at : at + sizes[i]], time, shift))
                at, time = at + sizes[i], time + times[i]
    assert len(found) == count
    return found


def packets(hint, media):
    """The RTP packets of a hint sample, assembled from the samples of the media."""
    (count, reserved), at = struct.unpack_from(">HH", hint), 4
    assert reserved == 0
    for _ in range(count):
        delay, head, kind, sequence, flags, entries = struct.unpack_from(">IBBHHH", hint, at)
        assert (delay, head) == (0, 0x80)
        at += 12
        shift = 0
        if flags & 4:
            length, size, name, shift = struct.unpack_from(">II4si", hint, at)
            assert (length, size, name) == (16, 12, b"rtpo")
            at += length
        payload = b""
        for _ in range(entries):
            if hint[at] == 1:
                assert hint[at + 1] <= 14
                payload += hint[at + 2 : at + 2 + hint[at + 1]]
            else:
                how, track, length, number, offset, block, per = struct.unpack_from(
                    ">BbHIIHH", hint, at
                )
                assert (how, track, block, per) == (2, 0, 1, 1)
                piece = media[number - 1].data[offset : offset + length]
                assert len(piece) == length
                payload += piece
            at += 16
        yield Packet(kind >> 7, kind & 127, sequence, shift, payload, 12 + len(payload))
    assert at == len(hint)


def units(sample, size):
    """The NAL units of a sample."""
    at = 0
    while at < len(sample):
        length = int.from_bytes(sample[at : at + size], "big")
        yield sample[at + size : at + size + length]
        at += size + length


def units_of_packets(sent):
    """The NAL units in the packets, complete or in fragments; RFC 6184 5.8."""
    unit = None
    for packet in sent:
        indicator, header = packet.payload[:2]
        if indicator & 31 != 28:
            yield packet.payload
            continue
        if header & 0x80:
            assert unit is None
            unit = bytes([indicator & 0xE0 | header & 31])
        unit += packet.payload[2:]
        if header & 0x40:
            yield unit
            unit = None
    assert unit is None


def sound_of_packets(sent):
    """The access units of sound in the packets; a unit can take several packets. RFC 3640 3.3.6."""
    begun = b""
    for packet in sent:
        (bits,) = struct.unpack_from(">H", packet.payload)
        headers = struct.unpack_from(f">{bits // 16}H", packet.payload, 2)
        at = 2 + bits // 8
        for header in headers:
            assert header & 7 == 0
            piece = packet.payload[at : at + (header >> 3)]
            at += len(piece)
            begun += piece
            assert packet.marker == (len(begun) == header >> 3)
            if packet.marker:
                yield begun
                begun = b""
        assert at == len(packet.payload)
    assert not begun


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
        text = child(exported.movie, "udta", "hnti", "rtp ")
        self.assertRegex(text.decode(), r"\Asdp b=AS:\d+\r\na=range:npt=0-\d+\.\d{3}\r\n\Z")
        for hint, trak in hinted:
            media = samples(exported.file, trak)
            hints = samples(exported.file, hint)
            scale, clock = (runs.time_scale(child(t, "mdia", "mdhd")) for t in (trak, hint))
            for edit in runs.edits_of(hint, runs.time_scale(child(exported.movie, "mvhd"))) or ():
                end = runs.media_duration(child(hint, "mdia", "mdhd"))
                self.assertLessEqual(fractions.Fraction(edit.media, clock) + edit.duration,
                                     end + fractions.Fraction(1, 600), "an edit after the last hint")  # fmt: skip
            sent = [list(packets(h.data, media)) for h in hints]
            flat = [packet for group in sent for packet in group]
            self.assertLessEqual(max(packet.size for packet in flat), LIMIT)
            self.assertEqual([p.sequence for p in flat], [i & 0xFFFF for i in range(len(flat))])
            lines = dict(
                line.split(":", 1) for line in
                child(hint, "udta", "hnti", "sdp ").decode().split("\r\n") if ":" in line
            )  # fmt: skip
            self.assertEqual({str(p.kind) for p in flat}, {lines["a=rtpmap"].split()[0]})
            words = dict(part.strip().split("=", 1) for part in
                         lines["a=fmtp"].split(" ", 1)[1].split(";"))  # fmt: skip
            largest, average = struct.unpack_from(">HH", child(hint, "mdia", "minf", "hmhd"), 4)
            self.assertEqual(largest, max(packet.size for packet in flat))
            self.assertEqual(average, sum(packet.size for packet in flat) // len(flat))
            kind, content = description(trak)
            if kind == "mp4a":
                self.assert_sound(words, content, sent, media, scale)
                continue
            # There is one hint sample per frame. It has the decode time of the frame, and the shift
            # of its packets gives the display time.
            to_clock = lambda time: (time * clock * 2 + scale) // (2 * scale)  # noqa: E731
            self.assertEqual(
                [(h.time, {p.shift for p in group}) for h, group in zip(hints, sent)],
                [(to_clock(m.time), {to_clock(m.time + m.offset) - to_clock(m.time)})
                 for m in media])  # fmt: skip
            self.assertTrue(all([p.marker for p in g] == [0] * (len(g) - 1) + [1] for g in sent))
            if kind == "avc1":
                self.assert_avc(words, child(content[78:], "avcC"), sent, media)
            else:
                config = decoder_info(child(content[78:], "esds"))
                self.assertEqual(bytes.fromhex(words["config"]), config)
                self.assert_same([b"".join(p.payload for p in g) for g in sent],
                                 [m.data for m in media], "pictures")  # fmt: skip

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

    def assert_sound(self, words, content, sent, media, scale):
        self.assertEqual(words["mode"], "AAC-hbr")
        self.assertEqual(bytes.fromhex(words["config"]), decoder_info(child(content[28:], "esds")))
        flat = [packet for group in sent for packet in group]
        self.assert_same(list(sound_of_packets(flat)), [m.data for m in media], "units of sound")
        first = 0
        for group in sent:
            count = struct.unpack_from(">H", group[0].payload)[0] // 16
            units_sent = media[first : first + count + 1]
            self.assertTrue(count == 1 or len(units_sent) == count or
                            units_sent[-1].time - units_sent[0].time <= scale / 10)  # fmt: skip
            first += count


@runs.needs_corpus
@runs.has_tools("ffmpeg", "ffprobe", "mediainfo")
class RealMovies(Mpeg4Test):
    def test_exported_movies_are_strict_play_the_same_and_can_be_streamed(self):
        for name in MOVIES:
            with self.subTest(name):
                path = self.export(MEDIA / name)
                exported = self.assert_strict(path)
                for kind, stream in (("vide", "v:0"), ("soun", "a:0")):
                    if exported.of_kind(kind):
                        self.assert_same(runs.frames(path, stream),
                                         runs.frames(MEDIA / name, stream), stream)  # fmt: skip
                self.assert_hinted(exported)
                self.assertEqual(chapters(path), chapters(MEDIA / name))
                known = set(runs.complaints(MEDIA / name))
                self.assertEqual([c for c in runs.complaints(path) if c not in known], [])
                told, _ = runs.read_by("mediainfo", "--Inform=General;%Format%|%CodecID%|%VideoCount%|%AudioCount%|%IsTruncated%", path)
                kinds = [len(exported.of_kind(k)) or "" for k in ("vide", "soun")]
                self.assertEqual(told.decode().strip(), "MPEG-4|mp42|{}|{}|".format(*kinds))
                if shutil.which("mkvmerge"):
                    self.assertIn(b'"warnings": []', runs.read_by("mkvmerge", "-J", path)[0])


    def test_joined_movies_are_one_stream(self):
        one, two = (MEDIA / "join-stack" / f"seq_h264_{i}.mp4" for i in (1, 2))
        path = self.export(one, two, "-force-same-tracks")
        exported = self.assert_strict(path)
        hashes = [[frame.hash for frame in runs.frames(f)] for f in (path, one, two)]
        self.assert_same(hashes[0], hashes[1] + hashes[2], "frames")
        self.assert_hinted(exported)

    def test_a_speed_moves_from_the_edits_to_the_samples(self):
        movie = MEDIA / "video-codecs/count_video.mp4"
        seconds = runs.movie_duration(movie)
        path = self.folder / "out.mp4"
        done = self.run_in_folder("cliptune", movie, "-scaleTo", str(float(2 * seconds)), "-mp4", "-q",
                                  "-o", path)
        self.assertEqual(done, runs.Result(0, "", ""))
        exported = self.assert_strict(path)
        self.assert_hinted(exported)
        (video,) = exported.of_kind("vide")
        self.assertEqual({edit.rate for edit in runs.edits_of(video, 600)}, {1})
        self.assert_same([(round(2 * f.time, 2), f.hash) for f in runs.frames(movie)],
                         [(round(f.time, 2), f.hash) for f in runs.frames(path)], "frames")

    def test_losses_are_reported_first(self):
        movie = MEDIA / "tags/has-tags.m4a"
        for options, said in (([], True), (["-q"], False)):
            done = self.run_in_folder("clipjoin", movie, "-mp4", *options, "-o", "out.m4a")
            self.assertEqual(done, runs.Result(0, "", ANNOTATIONS if said else ""))
        self.assertEqual(child(Exported(self.folder / "out.m4a").movie, "udta", "meta"), b"")


@runs.has_tools("ffmpeg", "ffprobe", "mediainfo")
class Books(Mpeg4Test):
    def test_have_chapters_where_readers_find_them(self):
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
                if shutil.which("mkvmerge"):
                    told, _ = runs.read_by("mkvmerge", "-J", path)
                    self.assertIn(b'"num_entries": %d' % len(expected), told)


def error(call, code):
    return f"Error in {call} at line LINE of utils.cpp: {code}\n"


CREATE, CONVERT = "CreateMovieStorage", "ConvertMovieToDataRef"
ALIAS = "QTNewDataReferenceFromFullPathCFString"
BUSY = "The output file out.mp4 is busy.\nPlease check to see if another application has it open\n"

# (calls that fail, the message, how many failures are counted, what happens to the old file)
FAILURES = (
    (f"{CREATE}:1:-47", error(CREATE, -47), 0, "replaced"),
    (f"{CREATE}:1:-48,{CREATE}:2:-47", error(CREATE, -48) + error(CREATE, -47), 0, "replaced"),
    (f"{CREATE}:*:-47", error(CREATE, -47) * 10 + BUSY, 1, "replaced"),
    (f"{CREATE}:*:-48", error(CREATE, -48) * 10, 1, "replaced"),
    (f"{CREATE}:1:-47,{CREATE}:2:-34", error(CREATE, -47) + error(CREATE, -34), 1, "replaced"),
    (f"{CREATE}:1:-5000", error(CREATE, -5000), 1, "replaced"),
    (f"{CONVERT}:1:-48", error(CONVERT, -48), 0, "replaced"),
    (f"{CONVERT}:*:-47", error(CONVERT, -47) * 10, 1, "kept"),
    (f"{CONVERT}:1:-39", error(CONVERT, -39), 1, "kept"),
    (f"{ALIAS}:2:-37", error("PathToDataRef", -37) + error(CREATE, -109) + error(CONVERT, -109), 3,
     "kept"),
    ("OpenADefaultComponent:1:-2003", error("OpenADefaultComponent", -2003), 1, "without hints"),
    ("MovieExportSetSettingsFromAtomContainer:1:-50", "", 0, "without hints"),
    ("PtrToHand:1:-108", "", 0, "without hints"),
)  # fmt: skip


@runs.has_tools("ffmpeg")
@unittest.skipUnless((runs.BIN / "failing_clipjoin").exists(), "failing_clipjoin is not built")
class Failures(Mpeg4Test):
    def test_messages_counts_and_outputs_of_failing_calls(self):
        movie = runs.make_clip(self.folder / "in.mp4", "-f", "lavfi", "-i",
                               "testsrc=s=64x48:r=10:d=1", "-c:v", "mpeg4")  # fmt: skip
        path = self.folder / "out.mp4"
        for calls, said, count, outcome in FAILURES:
            with self.subTest(calls):
                path.write_bytes(b"old")
                done = self.run_in_folder(
                    "failing_clipjoin", movie, "-mp4", "-o", "out.mp4", env={"FAIL": calls}
                )
                told = re.sub(r" at line \d+ of ", " at line LINE of ", done.err)
                closing = ("", runs.ONE_ERROR)[count] if count < 2 else runs.MORE_ERRORS
                whole = runs.Result(int(count > 0), "", ANNOTATIONS + said + closing)
                self.assertEqual(done._replace(err=told), whole)
                self.assertEqual(sorted(p.name for p in self.folder.iterdir()), ["in.mp4", "out.mp4"])
                if outcome == "kept":
                    self.assertEqual(path.read_bytes(), b"old")
                else:
                    hints = len(self.assert_strict(path).of_kind("hint"))
                    self.assertEqual(hints, 0 if outcome == "without hints" else 1)


if __name__ == "__main__":
    runs.main()
