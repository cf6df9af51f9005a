#include "toolbox/atoms/group_atoms.h"

#include <algorithm>

namespace toolbox {
namespace {

// The length in bytes of an entry in version 0 of 'sgpd', which has no length fields. Only these
// groupings have a known length; 0 for all others.
std::uint32_t FixedLength(FourCC grouping) {
  if (grouping == FourCC{"roll"} || grouping == FourCC{"prol"}) return 2;
  const bool isOneByte =
      grouping == FourCC{"rap "} || grouping == FourCC{"tele"} || grouping == FourCC{"sync"};
  return isOneByte ? 1 : 0;
}

}  // namespace

std::optional<GroupEntries> SampleGroupDescriptions::Entries() const try {
  const std::uint32_t version = versionAndFlags >> 24;
  FieldReader io(rest);
  GroupEntries found;
  std::uint32_t length = 0, count = 0;
  if (version >= 1) io("length", length);
  if (version >= 2) io("defaultNumber", found.defaultNumber);
  io("count", count);
  if (count > io.Remaining().size()) return std::nullopt;
  for (; count != 0; --count) {
    std::uint32_t size = length;
    if (version == 0) {
      // A single entry needs no length: it has all the bytes.
      const bool isOnly = found.entries.empty() && count == 1;
      size = isOnly ? static_cast<std::uint32_t>(io.Remaining().size()) : FixedLength(grouping);
    } else if (length == 0) {
      io("size", size);
    }
    if (size == 0) return std::nullopt;
    found.entries.push_back(io.Take("entry", size));
  }
  if (!io.Remaining().empty()) return std::nullopt;
  return found;
} catch (const Malformed&) {
  return std::nullopt;
}

SampleGroupDescriptions SampleGroupDescriptions::Of(FourCC grouping,
                                                    std::span<const ByteSpan> entries,
                                                    std::uint32_t defaultNumber) {
  const bool isFixed = !entries.empty() && std::ranges::all_of(entries, [&](ByteSpan entry) {
    return entry.size() == entries.front().size() && !entry.empty();
  });
  const std::uint32_t version = defaultNumber == 0 ? 1 : 2;
  return {version << 24, grouping, Encoded([&](auto& io) {
            io("length", static_cast<std::uint32_t>(isFixed ? entries.front().size() : 0));
            if (defaultNumber != 0) io("defaultNumber", defaultNumber);
            io("count", static_cast<std::uint32_t>(entries.size()));
            for (const ByteSpan entry : entries) {
              if (!isFixed) io("size", static_cast<std::uint32_t>(entry.size()));
              io.Append(entry);
            }
          })};
}

std::optional<std::uint32_t> RollDistanceIn(ByteSpan entry) {
  if (entry.size() != 2) return std::nullopt;
  const auto distance = FromBigEndian<std::int16_t>(entry.data());
  // A positive distance is a number of samples after the sample.
  if (distance >= 0) return std::nullopt;
  return static_cast<std::uint32_t>(-distance);
}

void CompactSampleToGroup::ForEachPattern(const Visit& visit) const {
  constexpr std::uint32_t kMarksFragmentNumbers = 0x80;
  const auto widthOf = [](std::uint32_t code) { return 4 << (code & 3); };
  // Each pattern has two fields of at least 4 bits, so at least one byte.
  if (patterns > packed.size()) throw Malformed("'csgp' is shorter than its count");
  struct Pattern {
    std::uint32_t length = 0, samples = 0;
  };
  BitReader input(packed);
  const auto take = [&input](int bits) {
    const std::uint32_t number = input.Take(bits);
    if (input.IsPastEnd()) throw Malformed("'csgp' is shorter than its count");
    return number;
  };
  std::vector<Pattern> all(patterns);
  for (Pattern& pattern : all) {
    pattern.length = take(widthOf(versionAndFlags >> 4));
    pattern.samples = take(widthOf(versionAndFlags >> 2));
  }
  // In a fragment, the top bit of a number can mark a description of the fragment itself.
  const int width = widthOf(versionAndFlags);
  const std::uint32_t mark = (versionAndFlags & kMarksFragmentNumbers) != 0 ? 1U << (width - 1) : 0;
  for (const Pattern& pattern : all) {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t i = 0; i < pattern.length; ++i) {
      const std::uint32_t number = take(width);
      numbers.push_back((number & mark) != 0 ? kFragmentNumbers + (number & ~mark) : number);
    }
    if (!visit(pattern.samples, numbers)) return;
  }
}

}  // namespace toolbox
