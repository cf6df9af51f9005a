// The atoms of a movie in fragments, each by its list of fields.
#pragma once

#include <bit>
#include <cstdint>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// What an atom of a fragment says in its flags to be stated, ISO/IEC 14496-12 8.8.7 and 8.8.8.
namespace fragment_flags {
inline constexpr std::uint32_t kBaseDataOffset = 1, kDescription = 2, kDefaultDuration = 8,
                               kDefaultSize = 0x10, kDefaultFlags = 0x20,
                               kBaseIsFragment = 0x20000;  // of 'tfhd'
inline constexpr std::uint32_t kDataOffset = 1, kFirstSampleFlags = 4, kDuration = 0x100,
                               kSize = 0x200, kSampleFlags = 0x400, kOffset = 0x800;  // of 'trun'
}  // namespace fragment_flags

struct TrackDefaults {  // 'trex', ISO/IEC 14496-12 8.8.3
  static constexpr FourCC kType{"trex"};
  std::uint32_t versionAndFlags = 0, track = 0;
  std::uint32_t description = 1;  // a number from 1
  std::uint32_t duration = 0, size = 0, sampleFlags = 0;

  static void Fields(auto& io, auto& defaults) {
    io("version", defaults.versionAndFlags);
    io("track", defaults.track);
    io("description", defaults.description);
    io("duration", defaults.duration);
    io("size", defaults.size);
    io("sampleFlags", defaults.sampleFlags);
  }
};

struct TrackFragmentHeader {  // 'tfhd', ISO/IEC 14496-12 8.8.7
  static constexpr FourCC kType{"tfhd"};
  std::uint32_t versionAndFlags = 0, track = 0;
  std::uint64_t baseDataOffset = 0;
  std::uint32_t description = 0, duration = 0, size = 0, sampleFlags = 0;

  bool Has(std::uint32_t flag) const { return (versionAndFlags & flag) != 0; }
  static void Fields(auto& io, auto& header) {
    io("version", header.versionAndFlags);
    io("track", header.track);
    if (header.Has(fragment_flags::kBaseDataOffset)) io("baseDataOffset", header.baseDataOffset);
    if (header.Has(fragment_flags::kDescription)) io("description", header.description);
    if (header.Has(fragment_flags::kDefaultDuration)) io("duration", header.duration);
    if (header.Has(fragment_flags::kDefaultSize)) io("size", header.size);
    if (header.Has(fragment_flags::kDefaultFlags)) io("sampleFlags", header.sampleFlags);
  }
};

struct FragmentDecodeTime {  // 'tfdt', ISO/IEC 14496-12 8.8.12
  static constexpr FourCC kType{"tfdt"};
  std::uint32_t flags = 0;
  std::uint64_t time = 0;  // when the first sample is decoded, in media units

  bool NeedsWide() const { return time > UINT32_MAX; }
  static void Fields(auto& io, auto& decode) {
    io.Version(decode.flags, decode.NeedsWide());
    io.Wide("time", decode.time);
  }
};

// 'trun', ISO/IEC 14496-12 8.8.8: samples that lie one behind the other. Which columns its rows
// have is said in the flags, so that they are kept as bytes.
struct TrackRun {
  static constexpr FourCC kType{"trun"};
  std::uint32_t versionAndFlags = 0, count = 0;
  std::int32_t dataOffset = 0;
  std::uint32_t firstSampleFlags = 0;
  Bytes rows;

  bool Has(std::uint32_t flag) const { return (versionAndFlags & flag) != 0; }
  std::size_t RowSize() const {
    using namespace fragment_flags;
    constexpr std::uint32_t kColumns = kDuration | kSize | kSampleFlags | kOffset;
    return 4 * static_cast<std::size_t>(std::popcount(versionAndFlags & kColumns));
  }
  static void Fields(auto& io, auto& run) {
    io("version", run.versionAndFlags);
    io("count", run.count);
    if (run.Has(fragment_flags::kDataOffset)) io("dataOffset", run.dataOffset);
    if (run.Has(fragment_flags::kFirstSampleFlags)) io("firstSampleFlags", run.firstSampleFlags);
    io.Rest("rows", run.rows);
  }
};

}  // namespace toolbox
