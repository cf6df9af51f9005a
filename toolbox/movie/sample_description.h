// Sample descriptions: how the samples of a media are decoded.
#pragma once

#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// One entry of a sample description table, with the data reference that its samples are in.
struct SampleDescription {
  Bytes bytes;  // the whole entry, as in atoms/sample_entries.h; its own number is not looked at
  std::uint32_t dataReference = 0;  // index

  FourCC Format() const;
  // Some metadata formats have text in the place of the data-reference number.
  bool HoldsReference() const;
  // Whether the samples are encrypted, ISO/IEC 23001-7. What decrypts them is beside the samples
  // and in the movie.
  bool IsProtected() const;
  // The bytes with the number of the data reference in its place.
  Bytes Numbered() const;
  // Whether samples of a media of that type decode alike by both, as in DecodeAlike.
  bool SameAs(const SampleDescription& other, FourCC mediaType) const;
};

}  // namespace toolbox
