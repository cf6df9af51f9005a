// Handle references: data references of kind 'hndl', whose media data is in a block of memory.
#pragma once

#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// The initial content of the memory block: the content of the atom 'data' in the handle reference
// `handle`. Returns nothing if there is no such atom or the reference is malformed.
// The layout is: a 32-bit handle, the length of a file name in one byte, the name, atoms.
std::optional<Bytes> InitialData(ByteSpan handle);

}  // namespace toolbox
