// Movie headers compressed with zlib. QuickTime only: the 'moov' contains a 'cmov', and that
// contains the compressed bytes of the real 'moov'.
#pragma once

#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// `movie` is a whole 'moov', size and type included. Returns a whole 'moov' with `movie` compressed
// inside. Throws std::bad_alloc.
Bytes CompressMovie(ByteSpan movie);

// Decompresses a movie header. `content` is that of a 'cmov'; the result is the content of the real
// 'moov'. Throws Malformed, and Refused (cantFindHandler) if the compression method is unknown.
Bytes Inflate(ByteSpan content);

// The same for the content of a 'moov'. Returns nothing if that is not compressed.
std::optional<Bytes> InflatedMovie(ByteSpan content);

}  // namespace toolbox
