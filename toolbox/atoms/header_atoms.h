// The atoms that describe movies, tracks and media, each with its list of fields. Fixed-point
// numbers are written 16.16: 16 bits before the point, 16 after it.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// The 3 x 3 matrix of a movie or track in the order of files: a b u c d v tx ty w. a to d, tx and
// ty are 16.16; u, v and w are 2.30.
using Matrix = std::array<std::int32_t, 9>;
inline constexpr Matrix kIdentityMatrix{0x10000, 0, 0, 0, 0x10000, 0, 0, 0, 0x40000000};

// The nine fields of a matrix, for the list of fields of an atom.
inline void PutMatrix(auto& io, auto& matrix) {
  static constexpr const char* kNames[] = {"a", "b", "u", "c", "d", "v", "tx", "ty", "w"};
  for (std::size_t i = 0; i < matrix.size(); ++i) io(kNames[i], matrix[i]);
}

struct FileType {  // 'ftyp', ISO/IEC 14496-12 4.3
  static constexpr FourCC kType{"ftyp"};
  FourCC majorBrand;
  std::uint32_t minorVersion = 0;
  Bytes compatibleBrands;  // four bytes each

  static void Fields(auto& io, auto& type) {
    io("majorBrand", type.majorBrand);
    io("minorVersion", type.minorVersion);
    io.Rest("compatibleBrands", type.compatibleBrands);
  }
};

// 'mvhd', ISO/IEC 14496-12 8.2.2. QuickTime has times after the matrix; ISO reserves them. Dates,
// here and in the other headers, are in seconds since 1904-01-01 UTC.
struct MovieHeader {
  static constexpr FourCC kType{"mvhd"};
  std::uint32_t flags = 0;
  std::uint64_t created = 0, modified = 0, duration = 0;
  std::int32_t scale = 600;  // movie units a second
  std::int32_t rate = 0x10000;  // preferred, 16.16
  std::int16_t volume = 0x100;  // preferred, 8.8
  std::array<std::uint8_t, 10> reserved{};
  Matrix matrix = kIdentityMatrix;
  // In movie units. A file has 32 bits for each; larger values are written as 0.
  std::int64_t previewTime = 0, previewDuration = 0, posterTime = 0;
  std::int64_t selectionTime = 0, selectionDuration = 0, currentTime = 0;
  // Greater than the id of each track. If it is kIdsUsedUp, a new track gets an id that is free.
  std::uint32_t nextTrackId = 1;
  static constexpr std::uint32_t kIdsUsedUp = UINT32_MAX;

  bool NeedsWide() const { return std::max({created, modified, duration}) > UINT32_MAX; }
  static void Fields(auto& io, auto& header) {
    io.Version(header.flags, header.NeedsWide());
    io.Wide("created", header.created);
    io.Wide("modified", header.modified);
    io("scale", header.scale);
    io.Wide("duration", header.duration);
    io("rate", header.rate);
    io("volume", header.volume);
    io("reserved", header.reserved);
    PutMatrix(io, header.matrix);
    io.Narrow("previewTime", header.previewTime);
    io.Narrow("previewDuration", header.previewDuration);
    io.Narrow("posterTime", header.posterTime);
    io.Narrow("selectionTime", header.selectionTime);
    io.Narrow("selectionDuration", header.selectionDuration);
    io.Narrow("currentTime", header.currentTime);
    io("nextTrackId", header.nextTrackId);
  }
};

struct TrackHeader {  // 'tkhd', ISO/IEC 14496-12 8.3.2
  static constexpr FourCC kType{"tkhd"};
  static constexpr std::uint32_t kEnabled = 1;  // in the flags
  std::uint32_t flags = 0xF;  // enabled, in movie, in preview, in poster
  std::uint64_t created = 0, modified = 0, duration = 0;
  std::uint32_t id = 0;
  std::array<std::uint8_t, 4> reserved{};
  std::array<std::uint8_t, 8> reserved2{};
  std::int16_t layer = 0, alternateGroup = 0, volume = 0;
  std::array<std::uint8_t, 2> reserved3{};
  Matrix matrix = kIdentityMatrix;
  std::int32_t width = 0, height = 0;  // 16.16

  bool NeedsWide() const { return std::max({created, modified, duration}) > UINT32_MAX; }
  static void Fields(auto& io, auto& header) {
    io.Version(header.flags, header.NeedsWide());
    io.Wide("created", header.created);
    io.Wide("modified", header.modified);
    io("id", header.id);
    io("reserved", header.reserved);
    io.Wide("duration", header.duration);
    io("reserved", header.reserved2);
    io("layer", header.layer);
    io("alternateGroup", header.alternateGroup);
    io("volume", header.volume);
    io("reserved", header.reserved3);
    PutMatrix(io, header.matrix);
    io("width", header.width);
    io("height", header.height);
  }
};

struct EditEntries {  // 'elst', ISO/IEC 14496-12 8.6.6
  static constexpr FourCC kType{"elst"};
  struct Entry {
    static constexpr std::size_t kSmallestSize = 12;
    std::uint64_t duration = 0;  // movie units
    std::int64_t mediaTime = -1;  // media units; -1: nothing is shown
    std::int32_t rate = 0;  // 16.16
    static void Fields(auto& io, auto& entry) {
      io.Wide("duration", entry.duration);
      io.Wide("mediaTime", entry.mediaTime);
      io("rate", entry.rate);
    }
  };
  std::uint32_t flags = 0;
  std::vector<Entry> entries;

  bool NeedsWide() const {
    return std::ranges::any_of(entries, [](const Entry& entry) {
      return entry.duration > UINT32_MAX || entry.mediaTime > INT32_MAX;
    });
  }
  static void Fields(auto& io, auto& edits) {
    io.Version(edits.flags, edits.NeedsWide());
    io.List("entries", edits.entries);
  }
};

// 'mdhd', ISO/IEC 14496-12 8.4.2. QuickTime has the quality; ISO reserves it.
struct MediaHeader {
  static constexpr FourCC kType{"mdhd"};
  std::uint32_t flags = 0;
  std::uint64_t created = 0, modified = 0, duration = 0;
  std::int32_t scale = 600;  // media units a second
  std::uint16_t language = 0, quality = 0;

  bool NeedsWide() const { return std::max({created, modified, duration}) > UINT32_MAX; }
  static void Fields(auto& io, auto& header) {
    io.Version(header.flags, header.NeedsWide());
    io.Wide("created", header.created);
    io.Wide("modified", header.modified);
    io("scale", header.scale);
    io.Wide("duration", header.duration);
    io("language", header.language);
    io("quality", header.quality);
  }
};

// 'hdlr', ISO/IEC 14496-12 8.4.3.
// QuickTime: componentType is 'mhlr' or 'dhlr' and the name starts with its length.
// ISO: componentType is 0 and the name ends with a 0 byte.
struct Handler {
  static constexpr FourCC kType{"hdlr"};
  std::uint32_t versionAndFlags = 0;
  FourCC componentType, subtype, manufacturer;
  std::uint32_t componentFlags = 0, componentFlagsMask = 0;
  Bytes name;

  static void Fields(auto& io, auto& handler) {
    io("componentType", handler.componentType);
    io("subtype", handler.subtype);
    io("manufacturer", handler.manufacturer);
    io("componentFlags", handler.componentFlags);
    io("componentFlagsMask", handler.componentFlagsMask);
    io.Rest("name", handler.name);
  }
};

// Makes the handler of a new media, or of its data in QuickTime ('dhlr'). A null componentType
// gives the ISO form. `name` must be ASCII and have at most 255 characters.
Handler NewHandler(FourCC componentType, FourCC subtype, std::string_view name);
// The same handler in the QuickTime form. The bytes of the name are kept, at most 255 of them.
Handler QuickTimeHandler(Handler handler);
// The same handler in the ISO form. A name that is not printable ASCII is dropped: ISO requires
// UTF-8, and the name can be in any encoding of the Macintosh.
Handler IsoHandler(const Handler& handler);

struct VideoMediaHeader {  // 'vmhd', ISO/IEC 14496-12 12.1.2
  static constexpr FourCC kType{"vmhd"};
  std::uint32_t versionAndFlags = 1;
  std::uint16_t mode = 0;  // how the picture is drawn over the layers below; 0: copy
  std::array<std::uint16_t, 3> opColor{};  // red, green, blue

  static void Fields(auto& io, auto& header) {
    io("mode", header.mode);
    for (auto& component : header.opColor) io("opColor", component);
  }
};

struct SoundMediaHeader {  // 'smhd', ISO/IEC 14496-12 12.2.2
  static constexpr FourCC kType{"smhd"};
  std::uint32_t versionAndFlags = 0;
  std::int16_t balance = 0;  // 8.8; negative: left
  std::uint16_t reserved = 0;

  static void Fields(auto& io, auto& header) {
    io("balance", header.balance);
    io("reserved", header.reserved);
  }
};

// One entry of 'dref', ISO/IEC 14496-12 8.7.2: the file with the media data. QuickTime: its data is
// an alias record, a URL or a handle reference. ISO: a URL.
struct DataReferenceEntry {
  FourCC kind;
  std::uint32_t versionAndFlags = 0;  // lowest bit set: the file of the movie itself
  Bytes data;  // the bytes after version and flags
  friend bool operator==(const DataReferenceEntry&, const DataReferenceEntry&) = default;

  // Decodes an entry. `atom` is whole, size and type included, so at least 8 bytes. Throws
  // Malformed.
  static DataReferenceEntry Decoded(ByteSpan atom);
  // The whole atom.
  Bytes Encoded() const;
};

using DataReferences = AtomList<FourCC{"dref"}>;  // ISO/IEC 14496-12 8.7.2

// The media data in a handle reference, a data reference of kind 'hndl': the content of its atom
// 'data'. Returns nothing if there is no such atom or the reference is malformed.
// The layout is: a 32-bit handle, the length of a file name in one byte, the name, atoms.
std::optional<Bytes> InitialData(ByteSpan handle);

// Sets the graphics mode and its color (red, green, blue) in the children of a 'minf'. Video has
// them in 'vmhd', other media in the 'gmin' of 'gmhd'. Does nothing if there is neither.
void SetGraphicsMode(Siblings& mediaInformation, std::uint16_t mode,
                     const std::array<std::uint16_t, 3>& opColor);

}  // namespace toolbox
