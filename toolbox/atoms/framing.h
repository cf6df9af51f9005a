// Where atoms start and end: sizes in 32 bits, in 64 bits and to the end.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size and type before an atom, ISO/IEC 14496-12 4.2.
struct AtomFrame {
  FourCC type;
  std::uint64_t headerSize = 8;  // 16 with a 64-bit size
  std::uint64_t size = 0;  // header included
};

// The frame at the start of `bytes`, when `available` bytes follow from its start to the end of
// what holds it; size 0 means all of them. Nothing when the frame is cut short or reaches past the
// end.
std::optional<AtomFrame> ReadFrame(ByteSpan bytes, std::uint64_t available);

// One atom among its siblings, as a view of its parent's bytes.
struct AtomView {
  FourCC type;
  ByteSpan whole;  // size and type included
  ByteSpan content;  // without them
};

// The atoms in `bytes`, in their order. With a `tail`, bytes after the last whole atom go there;
// without one they are Malformed, except for up to seven zero bytes of padding.
std::vector<AtomView> SplitAtoms(ByteSpan bytes, ByteSpan* tail = nullptr);

}  // namespace toolbox
