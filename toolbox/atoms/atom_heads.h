// What is in front of the content of an atom, and atoms made whole from bytes.
#pragma once

#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The size and type of an atom with so many bytes of content, ISO/IEC 14496-12 4.2: 8 bytes, or 16
// when the size needs 64 bits.
Bytes AtomHead(FourCC type, std::uint64_t contentSize);
// The type alone: the second four bytes of a head.
Bytes TypeBytes(FourCC type);
// The whole atom.
Bytes AtomOf(FourCC type, ByteSpan content);
// A 'free' atom of `size` bytes in all, 8 or more: zeros.
Bytes FreeAtom(std::uint64_t size);

// What is in front of so many bytes of media data: the head of 'mdat'.
// QuickTime: 16 bytes always, with a 'wide' in front of a short head.  ISO: has no 'wide'.
Bytes MediaDataHead(std::uint64_t size, bool isIso);

}  // namespace toolbox
