// Movie headers compressed with zlib. QuickTime only: the 'moov' contains a 'cmov', and that
// contains the compressed bytes of the real 'moov'.
#pragma once

#include <memory>
#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// Compresses a whole 'moov', size and type included, that is made piece by piece.
class MovieDeflater {
 public:
  MovieDeflater();
  ~MovieDeflater();
  MovieDeflater(const MovieDeflater&) = delete;
  MovieDeflater& operator=(const MovieDeflater&) = delete;

  // Adds the next piece, of less than 4 GiB.
  void Append(ByteSpan bytes);
  // Call this after the last Append. Returns a whole 'moov' with the compressed one inside, or
  // nothing if it has become so short that Inflate would refuse it.
  std::optional<Bytes> Finish();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Returns a whole 'moov' with the whole 'moov' `movie` inside. It has the form of a compressed one,
// but the bytes are stored as they are.
Bytes StoreMovie(ByteSpan movie);

// Decompresses a movie header. `content` is that of a 'cmov'; the result is the content of the real
// 'moov'. Throws Malformed, and Refused (cantFindHandler) if the compression method is unknown.
Bytes Inflate(ByteSpan content);

// The same for the content of a 'moov'. Returns nothing if that is not compressed.
std::optional<Bytes> InflatedMovie(ByteSpan content);

}  // namespace toolbox
