// The start of an atom that may be incomplete, as at the end of a file that was cut off.
#pragma once

#include <optional>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/bytes.h"

namespace toolbox {

struct AtomHead {
  FourCC type;
  std::optional<AtomFrame> frame;  // nothing: the atom is incomplete
};

// The head at the start of `bytes`, which go on for `available` bytes in all. Nothing if there are
// fewer bytes than a size and a type take.
inline std::optional<AtomHead> ReadHead(ByteSpan bytes, std::uint64_t available) {
  if (bytes.size() < 8) return std::nullopt;
  return AtomHead{FourCC(FromBigEndian<std::uint32_t>(&bytes[4])), ReadFrame(bytes, available)};
}

}  // namespace toolbox
