// Names of the genres that tags give by number.
#pragma once

#include <cstdint>

namespace chapter {

// The ID3 version 1 name of the genre, the first being 1; empty for a number without one.
const char* GenreName(std::uint16_t number);

}  // namespace chapter
