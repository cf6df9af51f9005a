#!/usr/bin/env python3
"""MPEG-4 files: strict readers accept them, they play, and hint tracks split them into packets."""

import base64
import collections
import fractions
import itertools
import re
import struct

import runs
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
    "tref": "hint chap", "udta": "hnti", "mdia": "mdhd elng hdlr minf",
    "minf": "vmhd smhd gmhd hmhd dinf stbl", "dinf": "dref",
    "stbl": "stsd stts ctts stss stsc stsz stco sdtp sgpd sbgp",
    "avc1": "avcC pasp colr clap btrt", "mp4v": "esds pasp colr clap btrt", "mp4a": "esds",
    "rtp ": "tims", "dref": "url ", "stsd": "avc1 mp4v mp4a text rtp ", "gmhd": "gmin text",
}  # fmt: skip
# The number of bytes of fields before the children.
HEADS = {"stsd": 8, "dref": 8, "avc1": 78, "mp4v": 78, "mp4a": 28, "rtp ": 16}
LIMIT = 1450
Sample = collections.namedtuple("Sample", "data time duration offset is_sync")
Packet = collections.namedtuple("Packet", "marker kind sequence shift payload size")


def foreign(parent, data):
    """The atoms that are not allowed at their place."""
    for kind, content in atoms(data):
        if kind not in re.findall("(.{4}) ?", ALLOWED[parent]):
            yield f"{parent}/{kind}"
        elif kind in ALLOWED:
            yield from foreign(kind, content[HEADS.get(kind, 0) :])


def samples(path, number):
    track, packets = runs.tracks(path)[number], runs.samples_by_track(path)[number]
    file = path.read_bytes()
    # ffprobe starts before 0 if a picture is shown before it is decoded.
    times = [packet.dts - packets[0].dts for packet in packets]
    return [
        Sample(file[int(p.pos) :][: int(p.size)], at, end - at, p.pts - at, "K" in p.flags)
        for p, at, end in zip(packets, times, [*times[1:], track.media_end])
    ]


def edits_of(track):
    """The edits that show media; one for all of it if there is no list."""
    if track.edits is None:
        return [runs.Edit(0, track.duration, 0, 1)]
    return [edit for edit in track.edits if edit.media >= 0]


def needed(track, media, edit):
    """The indexes of the samples that the edit needs: those that it shows, all from the sync sample
    before them, and the sound of the second before."""
    end = edit.media + max(edit.duration * track.scale * edit.rate, 1)
    starts = sorted({m.time + m.offset for m in media})
    until = dict(zip(starts, starts[1:] + [max(starts[-1], media[-1].time) + media[-1].duration]))
    shown = [i for i, m in enumerate(media)
             if m.time + m.offset < end and until[m.time + m.offset] > edit.media]  # fmt: skip
    first = shown[0]
    if track.kind == "soun":
        first = next(i for i, m in enumerate(media) if m.time + m.duration > edit.media - track.scale)
    return range(max(i for i, m in enumerate(media) if m.is_sync and i <= first), shown[-1] + 1)


def description(track):
    """Format and content of the first sample description."""
    return next(atoms(child(track.content, "mdia", "minf", "stbl", "stsd")[8:]))


def decoder_info(esds):
    """The decoder-specific information, whose descriptor comes after the fields that we write."""
    found = re.fullmatch(rb".{30}\x05\x80*([^\x80-\xff])(.*)", esds, re.S)
    return found[2][: ord(found[1])]


# RTP packets


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
                how, track, length, number, offset, *unused = struct.unpack_from(">BbHIIHH", hint, at)
                assert (how, track, unused) == (2, 0, [1, 1])
                assert offset + length <= len(media[number - 1].data)
                payload += media[number - 1].data[offset : offset + length]
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
        at = 2 + bits // 8
        for header in struct.unpack_from(f">{bits // 16}H", packet.payload, 2):
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


def chapters(path):
    """(start in ms, title) of each chapter that ffprobe finds."""
    found = runs.ffprobe(path, "-show_chapters")["chapters"]
    return [(round(1000 * float(c["start_time"])), c["tags"].get("title")) for c in found]


class Mpeg4(runs.RunTest):
    def export(self, *arguments, output="out.mp4"):
        """An exported movie, which is checked."""
        path = self.join(output, *arguments, options=["-mp4"])
        self.assert_strict(path)
        self.assert_hinted(path)
        return path

    def assert_strict(self, path):
        """The file has only atoms that the standards name, in the order that players prefer."""
        file, tracks = path.read_bytes(), runs.tracks(path).values()
        self.assertEqual([kind for kind, _ in atoms(file)], ["ftyp", "moov", "mdat"])
        self.assertEqual(list(foreign("moov", child(file, "moov"))), [])
        brands = child(file, "ftyp")
        self.assertEqual(brands[:8], b"mp42\0\0\0\0")
        self.assertEqual(b"avc1" in brands, "avc1" in [description(track)[0] for track in tracks])
        for track in tracks:
            media = child(track.content, "mdia")
            self.assertRegex(child(media, "hdlr"), rb"(?s)\A.{4}\0{4}.{4}\0{12}[^\0]*\0\Z")
            references = child(media, "minf", "dinf", "dref")
            self.assertEqual(references, struct.pack(">III4sI", 0, 1, 12, b"url ", 1))
            self.assertGreaterEqual(track.language, 0x400, "a language of three letters")
            if track.kind == "text":  # players show enabled text as subtitles
                self.assertEqual(child(track.content, "tkhd")[3], 6)
        kinds = [track.kind for track in tracks]
        self.assertLessEqual(max(kinds.count("vide"), kinds.count("soun")), 1)

    def assert_hinted(self, path):
        tracks = runs.tracks(path)
        hints = [track for track in tracks.values() if track.kind == "hint"]
        described = [tracks[target] for hint in hints for _, (target,) in hint.references]
        self.assertEqual(sorted(t.kind for t in described),
                         sorted(t.kind for t in tracks.values() if t.kind in ("soun", "vide")))
        movie = runs.movie_header(path)
        text = child(movie, "udta", "hnti", "rtp ").decode()
        length = re.fullmatch(r"sdp b=AS:\d+\r\na=range:npt=0-(\d+\.\d{3})\r\n", text)[1]
        header = child(movie, "mvhd")
        unit = 1 / runs.time_scale(header)
        lasts = max(track.duration for track in tracks.values() if track.kind != "text")
        self.assertAlmostEqual(float(length), lasts, delta=0.002 + unit)
        lasts = max(track.duration for track in tracks.values() if track.kind != "hint")
        self.assertAlmostEqual(runs.media_duration(header), lasts, delta=unit)
        for hint, track in zip(hints, described):
            self.assert_sends(path, hint, track)

    def assert_sends(self, path, hint, track):
        """The hint track sends the whole media track, as its session description says."""
        media, hints = samples(path, track.number), samples(path, hint.number)
        sent = [list(packets(h.data, media)) for h in hints]
        flat = [packet for group in sent for packet in group]
        self.assertEqual([p.sequence for p in flat], [i & 0xFFFF for i in range(len(flat))])
        text = child(hint.content, "udta", "hnti", "sdp ").decode()
        lines = dict(line.split(":", 1) for line in text.split("\r\n") if ":" in line)
        self.assertEqual({str(p.kind) for p in flat}, {lines["a=rtpmap"].split()[0]})
        self.assertGreaterEqual(flat[0].kind, 96, "a dynamic payload type")
        settings = lines["a=fmtp"].split(" ", 1)[1].split(";")
        words = dict(setting.strip().split("=", 1) for setting in settings)
        header = child(hint.content, "mdia", "minf", "hmhd")
        largest, average, most_bits, bits = struct.unpack_from(">HHII", header, 4)
        self.assertLessEqual(largest, LIMIT)
        self.assertEqual(largest, max(packet.size for packet in flat))
        sizes = [sum(packet.size for packet in group) for group in sent]
        self.assertEqual(average, sum(sizes) // len(flat))
        seconds = collections.Counter()
        for h, size in zip(hints, sizes):
            seconds[h.time // hint.scale] += 8 * size
        self.assertEqual(most_bits, max(seconds.values()))
        lasts = fractions.Fraction(sum(h.duration for h in hints), hint.scale)
        self.assertAlmostEqual(bits, 8 * sum(sizes) / lasts, delta=1)
        kind, content = description(track)
        counts = [1] * len(hints)  # of the media samples that a hint sample sends
        if kind == "mp4a":
            counts = [struct.unpack_from(">H", g[0].payload)[0] // 16 for g in sent]
        firsts = [0, *itertools.accumulate(counts)]
        self.assertEqual(firsts.pop(), len(media))
        order = [range(first, first + count) for first, count in zip(firsts, counts)]

        # A hint sample has the decode time of what it sends. The shift of its packets gives the
        # display time.
        def times(m):
            at, shown = (((time * hint.scale * 2 + track.scale) // (2 * track.scale))
                         for time in (m.time, m.time + m.offset))  # fmt: skip
            return at, {shown - at}

        self.assert_same([(h.time, {p.shift for p in group}) for h, group in zip(hints, sent)],
                         [times(media[first]) for first in firsts], "times")  # fmt: skip
        self.assert_nothing_hidden(hint, hints, order, track, media)
        if kind == "mp4a":
            self.assertEqual(words["mode"], "AAC-hbr")
            config = decoder_info(child(content[28:], "esds"))
            self.assert_same(list(sound_of_packets(flat)), [m.data for m in media], "sound")
            for numbers in order:
                lasts = sum(media[i].duration for i in numbers)
                self.assertTrue(len(numbers) == 1 or lasts <= track.scale / 10)
        else:
            self.assertTrue(all([p.marker for p in g] == [0] * (len(g) - 1) + [1] for g in sent))
        if kind == "avc1":
            self.assert_avc(words, child(content[78:], "avcC"), sent, media)
            return
        if kind == "mp4v":
            config = decoder_info(child(content[78:], "esds"))
            pictures = [b"".join(p.payload for p in group) for group in sent]
            self.assert_same(pictures, [m.data for m in media], "pictures")
        self.assertEqual(bytes.fromhex(words["config"]), config)

    def assert_nothing_hidden(self, hint, hints, order, track, media):
        """The edits of the hint track send what each edit of the media needs, in that order."""
        sent = []
        for edit in edits_of(hint):
            end = edit.media + edit.duration * hint.scale
            self.assertLessEqual(end, hints[-1].time + hints[-1].duration + hint.scale / 600)
            self.assertIn(edit.media, {h.time for h in hints})
            for h, numbers in zip(hints, order):
                if edit.media <= h.time and h.time + h.duration <= end + 1:
                    sent += numbers
        at = 0
        for edit in edits_of(track):
            wanted = needed(track, media, edit)
            at = sent.index(wanted[0], at)
            self.assert_same(sent[at : at + len(wanted)], wanted, "hints")
        self.assertEqual(set(sent), set(range(len(media))))

    def assert_avc(self, words, config, sent, media):
        size = (config[4] & 3) + 1
        self.assert_same([list(units_of_packets(group)) for group in sent],
                         [list(units(m.data, size)) for m in media], "NAL units")  # fmt: skip
        self.assertEqual(words["profile-level-id"], config[1:4].hex().upper())
        sets = [base64.b64decode(s) for s in words["sprop-parameter-sets"].split(",")]
        stored = b""
        for kind, mark in ((7, 0xE0), (8, 0)):
            group = [one for one in sets if one[0] & 31 == kind]
            stored += bytes([mark | len(group)])
            stored += b"".join(struct.pack(">H", len(one)) + one for one in group)
        self.assertTrue(config[5:].startswith(stored))

    def test_exported_movies_are_strict_play_the_same_and_can_be_streamed(self):
        exported = set()
        for movie in (movie for movie in runs.MOVIES if movie.parent.name in FOLDERS):
            with self.subTest(movie.name):
                path = self.folder / "out.mp4"
                done = self.run_in_folder("clipjoin", movie, "-mp4", "-q", "-o", path)
                if done != runs.Result(0, "", ""):
                    continue  # it has something that cannot be in such a file
                self.assert_strict(path)
                self.assert_hinted(path)
                self.assertEqual(chapters(path), chapters(movie))
                kinds = [track.kind for track in runs.tracks(path).values()]
                if movie.parent == DATA:
                    exported.add(movie.name)
                    # ffmpeg plays sound of fragments that an edit list cuts off.
                    streams = ["v:0"] * ("vide" in kinds) + ["a:0"] * ("soun" in kinds)
                    for stream in streams if b"moof" not in movie.read_bytes() else ():
                        found = runs.frames(path, stream)
                        self.assert_same(found, runs.frames(movie, stream), stream)
                self.assertLessEqual({*runs.complaints(path)}, {*runs.complaints(movie)})
                self.assertIn(b'"warnings": []', runs.read_by("mkvmerge", "-J", path)[0])
        self.assertEqual(exported, EXPORTED)

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
                movie = runs.media_duration(child(runs.movie_header(path), "mvhd"))
                self.assertAlmostEqual(float(movie), seconds, delta=0.01)
        hashes = [[frame.hash for frame in runs.frames(f)] for f in (self.export(*three), clip)]
        self.assert_same(hashes[0], 3 * hashes[1], "frames")
        # Four of these units nearly fill a packet.
        noise = ("-f", "lavfi", "-i", "anoisesrc=r=44100:d=4", "-c:a", "aac", "-b:a", "123k")
        self.export(runs.make_clip(self.folder / "noise.m4a", *noise))
        for codec in ("libx264", "mpeg4"):  # pictures that take several packets
            source = ("-f", "lavfi", "-i", "testsrc2=s=320x240:r=10:d=1", "-c:v", codec)
            large = runs.make_clip(self.folder / "large.mp4", *source, "-qmin", "1", "-qmax", "4")
            pictures = runs.samples_by_track(self.export(large))[1]
            self.assertGreater(max(int(picture.size) for picture in pictures), 3 * LIMIT)


if __name__ == "__main__":
    runs.main()
