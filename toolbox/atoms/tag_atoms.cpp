#include "toolbox/atoms/tag_atoms.h"

#include <algorithm>
#include <bit>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/framing.h"

namespace toolbox {
namespace {

constexpr std::size_t kVersionSize = 4;
constexpr std::size_t kLongestName = 4096;
constexpr FourCC kHandler{"hdlr"}, kKeys{"keys"}, kItems{"ilst"}, kData{"data"}, kFree{"----"};

// The atoms in `bytes`; those after a malformed one are left out.
std::vector<AtomView> Atoms(ByteSpan bytes) {
  ByteSpan tail;
  return SplitAtoms(bytes, &tail);
}

ByteSpan ContentOf(const std::vector<AtomView>& atoms, FourCC type) {
  const auto found = std::ranges::find(atoms, type, &AtomView::type);
  return found == atoms.end() ? ByteSpan() : found->content;
}

ByteSpan After(ByteSpan bytes, std::size_t size) {
  return bytes.subspan(std::min(size, bytes.size()));
}

// The children of a 'meta'. Only the ISO form has version and flags before them.
std::vector<AtomView> Children(ByteSpan meta) {
  const auto first = ReadFrame(meta, meta.size());
  const bool isQuickTime = first && first->type == kHandler;
  return Atoms(isQuickTime ? meta : After(meta, kVersionSize));
}

// The number in the bytes from `at` on; bytes after the end are 0.
std::uint16_t ShortAt(ByteSpan bytes, std::size_t at) {
  return at + 2 <= bytes.size() ? FromBigEndian<std::uint16_t>(&bytes[at]) : std::uint16_t{0};
}

// Adds the values of an item to `tags`; `keys` are the children of 'keys'.
void AddValues(const AtomView& item, const std::vector<AtomView>& keys, std::vector<Tag>& tags) {
  constexpr std::size_t kBeforeValue = 8;  // kind and locale
  Tag tag{.type = item.type};
  const std::vector<AtomView> parts = Atoms(item.content);
  if (item.type == kFree) {
    tag.domain = After(ContentOf(parts, FourCC{"mean"}), kVersionSize);
    tag.name = After(ContentOf(parts, FourCC{"name"}), kVersionSize);
  } else if (item.type.value - 1 < keys.size()) {
    tag.name = keys[item.type.value - 1].content;
  }
  // Many items can have one key, so a long key would make an output far larger than the file.
  tag.domain = tag.domain.first(std::min(tag.domain.size(), kLongestName));
  tag.name = tag.name.first(std::min(tag.name.size(), kLongestName));
  for (const AtomView& part : parts) {
    if (part.type != kData || part.content.size() < kBeforeValue) continue;
    tag.kind = FromBigEndian<std::uint32_t>(part.content.data());
    tag.value = part.content.subspan(kBeforeValue);
    tags.push_back(tag);
  }
}

}  // namespace

std::optional<std::int64_t> Tag::Integer() const {
  if ((kind != kSignedNumber && kind != kUnsignedNumber) || value.empty() || value.size() > 8) {
    return std::nullopt;
  }
  // The highest bit of a signed number is copied into the bytes before it.
  const bool isNegative = kind == kSignedNumber && (value[0] & 0x80) != 0;
  std::uint64_t number = isNegative ? UINT64_MAX : 0;
  for (const std::uint8_t byte : value) number = number << 8 | byte;
  return static_cast<std::int64_t>(number);
}

std::optional<double> Tag::Real() const {
  if (kind == kFloat && value.size() == 4) {
    return std::bit_cast<float>(FromBigEndian<std::uint32_t>(value.data()));
  }
  if (kind == kDouble && value.size() == 8) {
    return std::bit_cast<double>(FromBigEndian<std::uint64_t>(value.data()));
  }
  return std::nullopt;
}

std::pair<std::uint16_t, std::uint16_t> Tag::NumberAndTotal() const {
  return {ShortAt(value, 2), ShortAt(value, 4)};
}

std::uint16_t Tag::Genre() const { return ShortAt(value, 0); }

std::vector<Tag> ReadTags(ByteSpan meta) {
  const std::vector<AtomView> children = Children(meta);
  // Version and flags, and a count that the atoms make unnecessary.
  const std::vector<AtomView> keys = Atoms(After(ContentOf(children, kKeys), kVersionSize + 4));
  std::vector<Tag> tags;
  for (const AtomView& item : Atoms(ContentOf(children, kItems))) AddValues(item, keys, tags);
  return tags;
}

std::optional<AssetText> ReadAssetText(FourCC type, ByteSpan payload) {
  static constexpr FourCC kTypes[] = {"titl", "dscp", "cprt", "perf", "auth", "gnre", "albm"};
  constexpr std::size_t kLanguageSize = 2;
  if (std::ranges::find(kTypes, type) == std::end(kTypes)) return std::nullopt;
  if (payload.size() < kVersionSize + kLanguageSize) return std::nullopt;
  AssetText found{ShortAt(payload, kVersionSize), payload.subspan(kVersionSize + kLanguageSize)};
  const std::uint16_t mark = ShortAt(found.text, 0);
  if (mark != 0xFEFF && mark != 0xFFFE) {
    const auto end = std::ranges::find(found.text, 0);
    found.text = found.text.first(static_cast<std::size_t>(end - found.text.begin()));
  }
  return found;
}

}  // namespace toolbox
