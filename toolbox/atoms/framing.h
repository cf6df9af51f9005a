// Finds where atoms start and end. The size of an atom has 32 or 64 bits, or means "to the end".
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size and type at the start of an atom, ISO/IEC 14496-12 4.2. Sizes are in bytes.
struct AtomFrame {
  FourCC type;
  std::uint64_t headerSize = 8;  // 16 with a 64-bit size
  std::uint64_t size = 0;  // header included
};

// Reads the frame at the start of `bytes`. The first 16 bytes of the atom are enough. `available`
// is the distance from there to the end of the parent or file; a size of 0 in the atom means all of
// it. Returns nothing if the frame is cut short or the atom reaches past that end.
std::optional<AtomFrame> ReadFrame(ByteSpan bytes, std::uint64_t available);

// One atom, as views of the bytes of its parent.
struct AtomView {
  FourCC type;
  ByteSpan whole;  // size and type included
  ByteSpan content;  // without them
};

// The atoms in `bytes`, in their order. `tail` receives the bytes after the last whole atom. If it
// is null, throws Malformed for such bytes, unless they are up to seven zeros of padding.
std::vector<AtomView> SplitAtoms(ByteSpan bytes, ByteSpan* tail = nullptr);

}  // namespace toolbox
