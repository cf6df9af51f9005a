// The atoms of movie fragments, each with its list of fields.
#pragma once

#include <bit>
#include <cstdint>
#include <utility>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// Most of these flags mean that an atom of a fragment has a field, ISO/IEC 14496-12 8.8.7
// and 8.8.8.
namespace fragment_flags {
inline constexpr std::uint32_t kBaseDataOffset = 1, kDescription = 2, kDefaultDuration = 8,
                               kDefaultSize = 0x10, kDefaultFlags = 0x20,
                               kBaseIsFragment = 0x20000;  // of 'tfhd'
inline constexpr std::uint32_t kDataOffset = 1, kFirstSampleFlags = 4, kDuration = 0x100,
                               kSize = 0x200, kSampleFlags = 0x400, kOffset = 0x800;  // of 'trun'
inline constexpr std::uint32_t kIsNoSync = 0x10000;  // of a sample, 8.8.3.1
}  // namespace fragment_flags

struct TrackDefaults {  // 'trex', ISO/IEC 14496-12 8.8.3
  static constexpr FourCC kType{"trex"};
  std::uint32_t versionAndFlags = 0, track = 0;
  std::uint32_t description = 1;  // number, the first is 1
  std::uint32_t duration = 0, size = 0, sampleFlags = 0;  // of a sample: media units, bytes

  static void Fields(auto& io, auto& defaults) {
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
  std::uint64_t baseDataOffset = 0;  // in the file, bytes
  std::uint32_t description = 0, duration = 0, size = 0, sampleFlags = 0;

  bool Has(std::uint32_t flag) const { return (versionAndFlags & flag) != 0; }
  static void Fields(auto& io, auto& header) {
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

// The properties of one sample of a fragment, or of several equal ones.
struct FragmentSample {
  std::uint32_t duration = 0;  // media units
  std::uint32_t size = 0;  // bytes
  std::uint32_t flags = 0;
  std::int32_t offset = 0;  // from decoding to showing, media units
};

// 'trun', ISO/IEC 14496-12 8.8.8: consecutive samples in the file. The rows stay encoded, because
// the flags decide which columns they have.
struct TrackRun {
  static constexpr FourCC kType{"trun"};
  std::uint32_t versionAndFlags = 0, count = 0;
  std::int32_t dataOffset = 0;  // of the first sample, relative to the base, bytes
  std::uint32_t firstSampleFlags = 0;
  Bytes rows;

  bool Has(std::uint32_t flag) const { return (versionAndFlags & flag) != 0; }
  std::size_t RowSize() const {
    using namespace fragment_flags;
    constexpr std::uint32_t kColumns = kDuration | kSize | kSampleFlags | kOffset;
    return 4 * static_cast<std::size_t>(std::popcount(versionAndFlags & kColumns));
  }
  static void Fields(auto& io, auto& run) {
    io("count", run.count);
    if (run.Has(fragment_flags::kDataOffset)) io("dataOffset", run.dataOffset);
    if (run.Has(fragment_flags::kFirstSampleFlags)) io("firstSampleFlags", run.firstSampleFlags);
    io.Rest("rows", run.rows);
  }

  // True if there is a row for each of `count` samples, or if rows would have no columns.
  bool IsComplete() const { return RowSize() == 0 || count <= rows.size() / RowSize(); }
  // Calls visit(samples, sample) for all samples in order: the next `samples` samples have the
  // properties `sample`. Properties that the run does not have come from `defaults`. IsComplete()
  // must be true.
  template <class Visit>
  void ForEach(const FragmentSample& defaults, Visit&& visit) const {
    using namespace fragment_flags;
    FragmentSample sample = defaults;
    if (RowSize() == 0) {
      std::uint32_t left = count;
      if (Has(kFirstSampleFlags) && left != 0) {
        sample.flags = firstSampleFlags;
        visit(1U, std::as_const(sample));
        --left;
      }
      if (left != 0) visit(left, defaults);
      return;
    }
    RowReader row(rows.data());
    for (std::uint32_t i = 0; i < count; ++i) {
      sample.flags = defaults.flags;
      if (Has(kDuration)) row("duration", sample.duration);
      if (Has(kSize)) row("size", sample.size);
      if (Has(kSampleFlags)) row("flags", sample.flags);
      if (i == 0 && Has(kFirstSampleFlags)) sample.flags = firstSampleFlags;
      if (Has(kOffset)) row("offset", sample.offset);
      visit(1U, std::as_const(sample));
    }
  }
};

}  // namespace toolbox
