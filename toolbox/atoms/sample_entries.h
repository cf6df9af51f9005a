// Sample entries, the entries of 'stsd', ISO/IEC 14496-12 8.5.2. They describe how to decode the
// samples of a media.
//
// An entry starts with its size, its format, six reserved bytes and the number of a data reference.
// The rest depends on the media type: entries of pictures and sound have fields, then atoms.
// Entries are passed as whole bytes, size and format included.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/decoder_config.h"
#include "toolbox/atoms/descriptors.h"
#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The format of an entry, such as 'avc1'; null if the entry has less than 8 bytes.
FourCC EntryFormat(ByteSpan entry);

// The number of the data reference in an entry; the first is 1. Returns nothing if the reserved
// bytes before it are not zero: some metadata formats have text in its place.
std::optional<std::uint16_t> ReferenceNumber(ByteSpan entry);
// Replaces the number of the data reference. Does nothing if the entry has none.
void SetReferenceNumber(Bytes& entry, std::uint32_t number);

// True if samples can be decoded with either entry: the entries are equal except for the data
// reference, the bit rates and the number of the stream. The same encoder writes different ones
// for each clip.
bool DecodeAlike(ByteSpan a, ByteSpan b, FourCC mediaType);

// The entry of pictures, ISO/IEC 14496-12 12.1.3. The defaults are the values that ISO requires.
// QuickTime: the reserved fields have a version, a vendor and qualities.
struct PictureEntry {
  static constexpr std::size_t kSize = 86;  // bytes before the atoms

  FourCC format;
  std::array<std::uint8_t, 6> reserved{};
  std::uint16_t dataReference = 1;  // number
  std::array<std::uint8_t, 16> reserved2{};
  std::uint16_t width = 0, height = 0;  // pixels
  std::uint32_t horizontalResolution = 72 << 16, verticalResolution = 72 << 16;  // dots an inch
  std::uint32_t dataSize = 0;
  std::uint16_t frames = 1;  // in each sample
  std::array<std::uint8_t, 32> name{};  // its length, then the text
  std::uint16_t depth = 24, colorTable = 0xFFFF;
  Bytes atoms;

  static void Fields(auto& io, auto& entry) {
    io("reserved", entry.reserved);
    io("dataReference", entry.dataReference);
    io("reserved", entry.reserved2);
    io("width", entry.width);
    io("height", entry.height);
    io("horizontalResolution", entry.horizontalResolution);
    io("verticalResolution", entry.verticalResolution);
    io("dataSize", entry.dataSize);
    io("frames", entry.frames);
    io("name", entry.name);
    io("depth", entry.depth);
    io("colorTable", entry.colorTable);
    io.Rest("atoms", entry.atoms);
  }

  // The name if its length fits into the field, otherwise an empty name.
  std::array<std::uint8_t, 32> ValidName() const;
  // The atoms after the fields, as views into `atoms`.
  std::vector<AtomView> Atoms() const;
};

// Returns nothing if the entry is shorter than its fields.
std::optional<PictureEntry> ReadPictureEntry(ByteSpan entry);
Bytes Encode(const PictureEntry& entry);

// QuickTime: the fields that version 1 of a sound entry adds.
struct SoundPackets {
  std::uint32_t samplesPerPacket = 0, bytesPerPacket = 0, bytesPerFrame = 0, bytesPerSample = 0;
  static void Fields(auto& io, auto& packets) {
    io("samplesPerPacket", packets.samplesPerPacket);
    io("bytesPerPacket", packets.bytesPerPacket);
    io("bytesPerFrame", packets.bytesPerFrame);
    io("bytesPerSample", packets.bytesPerSample);
  }
};

// QuickTime: the fields that version 2 of a sound entry adds.
struct WideSound {
  std::uint32_t entrySize = 72;  // bytes before the atoms
  std::uint64_t rateBits = 0;  // the bits of a double in Hz; Rate() converts them
  std::uint32_t channels = 0, always7F = 0x7F000000, bits = 0, formatFlags = 0;
  std::uint32_t bytesPerPacket = 0, samplesPerPacket = 0;
  static void Fields(auto& io, auto& wide) {
    io("entrySize", wide.entrySize);
    io("rate", wide.rateBits);
    io("channels", wide.channels);
    io("always7F", wide.always7F);
    io("bits", wide.bits);
    io("formatFlags", wide.formatFlags);
    io("bytesPerPacket", wide.bytesPerPacket);
    io("samplesPerPacket", wide.samplesPerPacket);
  }
  double Rate() const { return std::bit_cast<double>(rateBits); }  // Hz
};

// The entry of sound, ISO/IEC 14496-12 12.2.3. The defaults are the values that ISO requires.
struct SoundEntry {
  static constexpr std::size_t kSizes[] = {36, 52, 72};  // bytes before the atoms, by version

  FourCC format;
  std::array<std::uint8_t, 6> reserved{};
  std::uint16_t dataReference = 1;  // number
  std::uint16_t version = 0;  // QuickTime
  std::array<std::uint8_t, 6> reserved2{};
  std::uint16_t channels = 2, bits = 16;
  std::int16_t compression = 0;  // QuickTime; -2: packets of several sizes
  std::uint16_t packetSize = 0;
  std::uint32_t rate = 0;  // 16.16
  Bytes rest;  // the fields that `version` adds, then atoms

  static void Fields(auto& io, auto& entry) {
    io("reserved", entry.reserved);
    io("dataReference", entry.dataReference);
    io("version", entry.version);
    io("reserved", entry.reserved2);
    io("channels", entry.channels);
    io("bits", entry.bits);
    io("compression", entry.compression);
    io("packetSize", entry.packetSize);
    io("rate", entry.rate);
    io.Rest("rest", entry.rest);
  }

  // The fields that version 1 or version 2 adds. Returns nothing if the entry has another version
  // or is too short.
  std::optional<SoundPackets> Packets() const;
  std::optional<WideSound> Wide() const;
};

// Returns nothing if the entry is shorter than the fields of version 0.
std::optional<SoundEntry> ReadSoundEntry(ByteSpan entry);
Bytes Encode(const SoundEntry& entry);

// The atoms after the fields of a sample entry, as views of its bytes. Empty for media types whose
// entries have no known atoms. QuickTime: the atoms inside a 'wave' follow it.
std::vector<AtomView> AtomsIn(ByteSpan entry, FourCC mediaType);
// The format of an entry before its samples were encrypted ('frma' in 'sinf', ISO/IEC 14496-12
// 8.12.2); otherwise the format of the entry.
FourCC OriginalFormat(ByteSpan entry, FourCC mediaType);

// The elementary stream in the 'esds' of a picture entry or an 'mp4a'. Returns nothing if there is
// none or it cannot be read. QuickTime: the 'esds' of sound can be inside 'wave'.
std::optional<ElementaryStream> StreamIn(ByteSpan entry);
// The 'avcC' of a picture entry. Returns nothing if there is none or it cannot be read.
std::optional<AvcConfig> AvcConfigIn(ByteSpan entry);

// Converts a 'colr' to the ISO form, ISO/IEC 14496-12 12.1.5: QuickTime's 'nclc' becomes 'nclx'.
// Returns any other atom unchanged.
Bytes IsoColors(const AtomView& colors);

}  // namespace toolbox
