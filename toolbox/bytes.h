// A run of bytes as it stands in a file.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace toolbox {

using Bytes = std::vector<std::uint8_t>;
using ByteSpan = std::span<const std::uint8_t>;

}  // namespace toolbox
