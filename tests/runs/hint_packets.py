"""The RTP packets that hint samples describe, and what they send."""

import collections
import struct

Packet = collections.namedtuple("Packet", "marker kind sequence shift payload size")


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
