#include "toolbox/atoms/framing.h"

#include <algorithm>
#include <functional>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/malformed.h"

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
    throw Malformed("a child atom is longer than its parent");
  }
  return atoms;
}

}  // namespace toolbox
