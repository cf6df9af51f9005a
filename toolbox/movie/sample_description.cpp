#include "toolbox/movie/sample_description.h"

#include "toolbox/atoms/sample_entries.h"

namespace toolbox {

FourCC SampleDescription::Format() const { return EntryFormat(bytes); }

bool SampleDescription::HoldsReference() const { return ReferenceNumber(bytes).has_value(); }

bool SampleDescription::IsProtected() const {
  // 'encv', 'enca', 'enct' and so on, one for each kind of media.
  return Format().value >> 8 == FourCC{"encv"}.value >> 8;
}

Bytes SampleDescription::Numbered() const {
  Bytes numbered = bytes;
  SetReferenceNumber(numbered, dataReference + 1);
  return numbered;
}

bool SampleDescription::SameAs(const SampleDescription& other, FourCC mediaType) const {
  return DecodeAlike(bytes, other.bytes, mediaType);
}

}  // namespace toolbox
