// Sample descriptions: how the samples of a media are decoded.
#pragma once

#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/bytes.h"

namespace toolbox {

// One entry of a sample description table, with the data reference that its samples are in.
struct SampleDescription {
  Bytes bytes;  // the whole entry, as in atoms/sample_entries.h; the number in it is ignored
  std::uint32_t dataReference = 0;  // index

  FourCC Format() const { return EntryFormat(bytes); }
  // Some metadata formats have text in the place of the data-reference number.
  bool HoldsReference() const { return ReferenceNumber(bytes).has_value(); }
  // Whether the samples are encrypted, ISO/IEC 23001-7. The data for decrypting is next to the
  // samples and in the movie.
  bool IsProtected() const {
    // 'encv', 'enca', 'enct' and so on, one for each kind of media.
    return Format().value >> 8 == FourCC{"encv"}.value >> 8;
  }
  // The bytes, with `dataReference` as the number of the data reference in them.
  Bytes Numbered() const {
    Bytes numbered = bytes;
    SetReferenceNumber(numbered, dataReference + 1);
    return numbered;
  }
};

}  // namespace toolbox
