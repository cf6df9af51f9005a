// The sizes and types that atoms start with, and whole atoms made of bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size and type of an atom with that many bytes of content, ISO/IEC 14496-12 4.2: 8 bytes, or
// 16 if the size needs 64 bits.
Bytes AtomHead(FourCC type, std::uint64_t contentSize);
// The type alone: the second four bytes of a head.
Bytes TypeBytes(FourCC type);
// The whole atom.
Bytes AtomOf(FourCC type, ByteSpan content);
// A 'free' atom of `size` bytes in all, 8 or more: zeros.
Bytes FreeAtom(std::uint64_t size);

// The head of an 'mdat' with that many bytes of media data.
// QuickTime: always 16 bytes; a short head has a 'wide' before it.  ISO: there is no 'wide'.
Bytes MediaDataHead(std::uint64_t size, bool isIso);

// The four characters at byte `at`, such as the type in a head that starts 4 bytes before. Null if
// `bytes` ends before their end.
FourCC FourCCAt(ByteSpan bytes, std::size_t at);

}  // namespace toolbox
