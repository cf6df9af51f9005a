// Makes the head of an atom (its size and type) and whole atoms with a given content. All sizes are
// in bytes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The head of an atom with `contentSize` bytes of content, ISO/IEC 14496-12 4.2. It has 8 bytes, or
// 16 if the size needs 64 bits.
Bytes AtomHead(FourCC type, std::uint64_t contentSize);
// The four bytes of a type as in a head. Written over the type of an atom, they rename it.
Bytes TypeBytes(FourCC type);
// A whole atom with a copy of `content`. Throws Malformed if it would be longer than 4 GiB.
Bytes AtomOf(FourCC type, ByteSpan content);
// A 'free' atom filled with zeros. `size` includes its head, so it must be at least 8.
Bytes FreeAtom(std::uint64_t size);

// The head of an 'mdat' with `size` bytes of media data. QuickTime: always 16 bytes. An empty
// 'wide' atom comes before a head of 8 bytes; a head with a 64-bit size can later replace both, and
// the media data does not move. ISO: 8 or 16 bytes, because 'wide' does not exist there.
Bytes MediaDataHead(std::uint64_t size, bool isIso);

// The four characters from byte `at` on; a null FourCC if fewer than four bytes are there. The type
// of an atom is 4 bytes after its start.
FourCC FourCCAt(ByteSpan bytes, std::size_t at);

}  // namespace toolbox
