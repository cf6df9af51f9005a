#include "toolbox/atoms/handle_reference.h"

#include <algorithm>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/fourcc.h"

namespace toolbox {

std::optional<Bytes> InitialData(ByteSpan handle) {
  if (handle.size() < 5) return {};
  const std::size_t atoms = std::size_t{5} + handle[4];
  for (handle = handle.subspan(std::min(atoms, handle.size())); handle.size() >= 8;) {
    const std::size_t size = FromBigEndian<std::uint32_t>(handle.data());
    if (size < 8 || size > handle.size()) return {};
    if (FourCC(FromBigEndian<std::uint32_t>(&handle[4])) == FourCC{"data"}) {
      return Bytes(handle.begin() + 8, handle.begin() + static_cast<std::ptrdiff_t>(size));
    }
    handle = handle.subspan(size);
  }
  return {};
}

}  // namespace toolbox
