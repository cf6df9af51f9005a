#include "toolbox/atoms/framing.h"

#include <algorithm>

namespace toolbox {

std::optional<AtomFrame> ReadFrame(ByteSpan bytes, std::uint64_t available) {
  if (bytes.size() < 8) return std::nullopt;
  AtomFrame frame;
  frame.size = FromBigEndian<std::uint32_t>(bytes.data());
  frame.type = FourCC(FromBigEndian<std::uint32_t>(&bytes[4]));
  if (frame.size == 1) {
    if (bytes.size() < 16) return std::nullopt;
    frame.size = FromBigEndian<std::uint64_t>(&bytes[8]);
    frame.headerSize = 16;
  } else if (frame.size == 0) {
    frame.size = available;
  }
  if (frame.size < frame.headerSize || frame.size > available) return std::nullopt;
  return frame;
}

std::vector<AtomView> SplitAtoms(ByteSpan bytes, ByteSpan* tail) {
  std::vector<AtomView> atoms;
  while (const auto frame = ReadFrame(bytes, bytes.size())) {
    const ByteSpan whole = bytes.first(frame->size);
    atoms.push_back({frame->type, whole, whole.subspan(frame->headerSize)});
    bytes = bytes.subspan(frame->size);
  }
  if (tail != nullptr) {
    *tail = bytes;
  } else if (bytes.size() >= 8 || std::ranges::any_of(bytes, std::identity())) {
    throw Malformed("an atom inside reaches past the end");
  }
  return atoms;
}

Children::Children(ByteSpan content) {
  for (const AtomView& atom : SplitAtoms(content)) children_.push_back({atom});
}

std::optional<ByteSpan> Children::Maybe(FourCC type) {
  const auto found = std::ranges::find_if(
      children_, [type](const Child& child) { return child.atom.type == type && !child.isTaken; });
  if (found == children_.end()) return std::nullopt;
  found->isTaken = true;
  return found->atom.content;
}

ByteSpan Children::One(FourCC type) {
  const auto content = Maybe(type);
  if (!content) throw Malformed("the atom '" + type.Text() + "' is missing");
  return *content;
}

std::vector<ByteSpan> Children::Each(FourCC type) {
  std::vector<ByteSpan> all;
  while (const auto content = Maybe(type)) all.push_back(*content);
  return all;
}

Siblings Children::Others() const {
  Siblings siblings;
  for (const Child& child : children_) {
    Sibling& sibling = siblings.emplace_back(Sibling{child.atom.type, {}});
    if (child.isTaken) continue;
    sibling.bytes.assign(child.atom.whole.begin(), child.atom.whole.end());
    // A size of 0 means "to the end", which is elsewhere once siblings come and go.
    if (FromBigEndian<std::uint32_t>(sibling.bytes.data()) == 0) {
      for (std::size_t i = 0; i < 4; ++i) {
        sibling.bytes[i] = static_cast<std::uint8_t>(sibling.bytes.size() >> (24 - 8 * i));
      }
    }
  }
  return siblings;
}

}  // namespace toolbox
