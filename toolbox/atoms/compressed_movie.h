// A movie header compressed with zlib. QuickTime: 'cmov' in 'moov'.
#pragma once

#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// A whole 'moov' that holds `movie`, a whole 'moov' too, compressed.
Bytes CompressMovie(ByteSpan movie);

// The content of the movie header that is compressed in `content`, the content of a 'cmov'. Throws
// Malformed, and Refused: cantFindHandler (compressed in an unknown way).
Bytes Inflate(ByteSpan content);

// The same for the content of a 'moov'; nothing when that is not compressed.
std::optional<Bytes> InflatedMovie(ByteSpan content);

}  // namespace toolbox
