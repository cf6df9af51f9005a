// Sample descriptions: how the samples of a media are to be decoded.
#pragma once

#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// One entry of a sample description table: the whole of it, and the data reference it names (an
// index).
struct SampleDescription {
  Bytes bytes;  // size, format, six bytes, data-reference number, then the format's own
  std::uint32_t dataReference = 0;

  FourCC Format() const;
  // Some metadata formats have text where others have the data-reference number.
  bool HoldsReference() const;
  // Whether the samples are encrypted, ISO/IEC 23001-7: what it takes to decrypt them lies beside
  // them, and in the movie.
  bool IsProtected() const;
  // The bytes with the number of the data reference in its place.
  Bytes Numbered() const;
  // Whether samples of a media of that type decode alike by both: equal but for the data reference
  // and what is said of bit rates, which differ from clip to clip of one encoder.
  bool SameAs(const SampleDescription& other, FourCC mediaType) const;
};

}  // namespace toolbox
