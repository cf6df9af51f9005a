#include "toolbox/atoms/atom_heads.h"

#include "toolbox/atoms/fields.h"

namespace toolbox {

Bytes AtomHead(FourCC type, std::uint64_t contentSize) {
  return Encoded([&](auto& io) {
    const bool isWide = contentSize > UINT32_MAX - 8;
    io("size", isWide ? 1 : static_cast<std::uint32_t>(contentSize + 8));
    io("type", type);
    if (isWide) io("size", contentSize + 16);
  });
}

Bytes TypeBytes(FourCC type) {
  return Encoded([type](auto& io) { io("type", type); });
}

Bytes AtomOf(FourCC type, ByteSpan content) {
  return Encoded([&](auto& io) { io.Atom(type, [&] { io.Append(content); }); });
}

Bytes FreeAtom(std::uint64_t size) { return AtomOf(FourCC{"free"}, Bytes(size - 8)); }

Bytes MediaDataHead(std::uint64_t size, bool isIso) {
  constexpr FourCC kMediaData{"mdat"};
  Bytes head = AtomHead(kMediaData, size);
  if (isIso || head.size() == 16) return head;
  Bytes wide = AtomHead(FourCC{"wide"}, 0);
  wide.insert(wide.end(), head.begin(), head.end());
  return wide;
}

FourCC FourCCAt(ByteSpan bytes, std::size_t at) {
  if (at > bytes.size() || bytes.size() - at < 4) return {};
  return FourCC(FromBigEndian<std::uint32_t>(&bytes[at]));
}

}  // namespace toolbox
