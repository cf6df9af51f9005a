#include "toolbox/atoms/group_atoms.h"

#include <algorithm>

namespace toolbox {
namespace {

// The length in bytes of an entry in version 0 of 'sgpd', which has no length fields. Only these
// groupings have a known length; 0 for all others.
std::size_t FixedLength(FourCC grouping) {
  for (const FourCC known : {FourCC{"roll"}, FourCC{"prol"}}) {
    if (grouping == known) return 2;
  }
  for (const FourCC known : {FourCC{"rap "}, FourCC{"tele"}, FourCC{"sync"}}) {
    if (grouping == known) return 1;
  }
  return 0;
}

// Reads numbers of 4, 8, 16 or 32 bits without padding between them. Throws Malformed at the end of
// the bytes.
class PackedNumbers {
 public:
  explicit PackedNumbers(ByteSpan bytes) : bytes_(bytes) {}
  std::uint32_t Take(std::size_t bits) {
    if (bits > bytes_.size() * 8 - at_) throw Malformed("'csgp' is shorter than its count");
    std::uint32_t number = 0;
    for (const std::size_t end = at_ + bits; at_ < end; at_ += 4) {
      number = number << 4 | (bytes_[at_ / 8] >> (at_ % 8 == 0 ? 4U : 0U) & 15U);
    }
    return number;
  }

 private:
  ByteSpan bytes_;
  std::size_t at_ = 0;  // in bits
};

}  // namespace

std::optional<GroupEntries> SampleGroupDescriptions::Entries() const try {
  const std::uint32_t version = versionAndFlags >> 24;
  FieldReader io(rest);
  GroupEntries found;
  std::uint32_t length = 0, count = 0;
  if (version >= 1) io("length", length);
  if (version >= 2) io("defaultNumber", found.defaultNumber);
  io("count", count);
  ByteSpan left = io.Remaining();
  if (count > left.size()) return std::nullopt;
  for (; count != 0; --count) {
    std::uint32_t size = length;
    if (version == 0) {
      // A single entry needs no length: it has all the bytes.
      const bool isOnly = found.entries.empty() && count == 1;
      size = static_cast<std::uint32_t>(isOnly ? left.size() : FixedLength(grouping));
    } else if (length == 0) {
      if (left.size() < 4) return std::nullopt;
      size = FromBigEndian<std::uint32_t>(left.data());
      left = left.subspan(4);
    }
    if (size == 0 || size > left.size()) return std::nullopt;
    found.entries.push_back(left.first(size));
    left = left.subspan(size);
  }
  if (!left.empty()) return std::nullopt;
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
  const auto widthOf = [](std::uint32_t code) { return std::size_t{4} << (code & 3); };
  // Each pattern has two fields of at least 4 bits, so at least one byte.
  if (patterns > packed.size()) throw Malformed("'csgp' is shorter than its count");
  struct Pattern {
    std::uint32_t length = 0, samples = 0;
  };
  PackedNumbers input(packed);
  std::vector<Pattern> all(patterns);
  for (Pattern& pattern : all) {
    pattern.length = input.Take(widthOf(versionAndFlags >> 4));
    pattern.samples = input.Take(widthOf(versionAndFlags >> 2));
  }
  // In a fragment, the top bit of a number can mark a description of the fragment itself.
  const std::size_t width = widthOf(versionAndFlags);
  const std::uint32_t mark = (versionAndFlags & kMarksFragmentNumbers) != 0 ? 1U << (width - 1) : 0;
  for (const Pattern& pattern : all) {
    std::vector<std::uint32_t> numbers;
    for (std::uint32_t i = 0; i < pattern.length; ++i) {
      const std::uint32_t number = input.Take(width);
      numbers.push_back((number & mark) != 0 ? kFragmentNumbers + (number & ~mark) : number);
    }
    if (!visit(pattern.samples, numbers)) return;
  }
}

}  // namespace toolbox
