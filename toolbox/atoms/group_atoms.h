// The atoms of sample groups other than 'sbgp', ISO/IEC 14496-12 8.9. Group description numbers
// start at 1; 0 means no group.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// In a fragment, the first description of the fragment's own 'sgpd' has the number after this one;
// smaller numbers mean descriptions of the movie header.
inline constexpr std::uint32_t kFragmentNumbers = 0x10000;

// The entries of an 'sgpd', as views of its bytes. They must not outlive it.
struct GroupEntries {
  std::uint32_t defaultNumber = 0;  // of samples without a row in 'sbgp'
  std::vector<ByteSpan> entries;  // the first has number 1
};

// 'sgpd', ISO/IEC 14496-12 8.9.3. The entries stay encoded, because version 0 has no entry lengths
// and so not every 'sgpd' can be decoded.
struct SampleGroupDescriptions {
  static constexpr FourCC kType{"sgpd"};
  std::uint32_t versionAndFlags = 0;
  FourCC grouping;
  Bytes rest;

  static void Fields(auto& io, auto& descriptions) {
    io("grouping", descriptions.grouping);
    io.Rest("rest", descriptions.rest);
  }
  friend auto operator<=>(const SampleGroupDescriptions&, const SampleGroupDescriptions&) = default;

  // Decodes the entries. Returns nothing if it is unknown where each of them ends.
  std::optional<GroupEntries> Entries() const;
  // Makes an 'sgpd' with `entries`: version 2 if there is a default number, else version 1. Entries
  // of different lengths have a length field each.
  static SampleGroupDescriptions Of(FourCC grouping, std::span<const ByteSpan> entries,
                                    std::uint32_t defaultNumber = 0);
};

// Decodes an entry of a 'roll' group, ISO/IEC 14496-12 10.1. Returns how many samples earlier
// decoding must start so that a sample of the group is decoded correctly. Returns nothing if the
// entry has no such distance.
std::optional<std::uint32_t> RollDistanceIn(ByteSpan entry);

// 'csgp', ISO/IEC 14496-12 8.9.5: patterns of group description numbers. Each pattern is repeated
// for a number of samples. Other versions than 0 are kept but not decoded.
struct CompactSampleToGroup {
  static constexpr FourCC kType{"csgp"};
  std::uint32_t versionAndFlags = 0;
  FourCC grouping;
  std::uint32_t parameter = 0, patterns = 0;  // `patterns` is their number
  Bytes packed;  // the lengths of the patterns, then the patterns; see ForEachPattern

  bool IsKnownVersion() const { return versionAndFlags >> 24 == 0; }
  bool HasParameter() const { return (versionAndFlags & 0x40) != 0; }
  static void Fields(auto& io, auto& groups) {
    if (!groups.IsKnownVersion()) return io.Rest("packed", groups.packed);
    io("grouping", groups.grouping);
    if (groups.HasParameter()) io("parameter", groups.parameter);
    io("patterns", groups.patterns);
    io.Rest("packed", groups.packed);
  }

  // Calls visit(samples, numbers) for each pattern: the next `samples` samples have the group
  // numbers `numbers`, repeated as often as needed. Numbers of the fragment's own descriptions are
  // above kFragmentNumbers. Stops when `visit` returns false. Throws Malformed.
  using Visit = std::function<bool(std::uint32_t samples, std::span<const std::uint32_t> numbers)>;
  void ForEachPattern(const Visit& visit) const;
};

}  // namespace toolbox
