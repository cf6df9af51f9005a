// Handle references: how a data reference of kind 'hndl' names a block of memory.
#pragma once

#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// The bytes that a handle reference starts its memory block with, from its atom 'data'. Nothing
// when it has none or is malformed. Before the atoms are a 32-bit handle and the name of a file,
// after its length.
std::optional<Bytes> InitialData(ByteSpan handle);

}  // namespace toolbox
