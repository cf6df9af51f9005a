// The names of genres that tags give by number.
#pragma once

#include <cstdint>

namespace chapter {

// The ID3v1 name of the genre, counted from 1 as in 'gnre' tags. Empty for an unknown number.
const char* GenreName(std::uint16_t number);

}  // namespace chapter
