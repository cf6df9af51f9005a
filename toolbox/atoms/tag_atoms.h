// The tags of a movie: the items of an 'ilst', and the texts that telephones write.
#pragma once

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// One value of an item in the 'ilst' of a 'meta'. All spans are views of the 'meta'.
struct Tag {
  // The well-known types of values that have a text or are pictures.
  enum Kind : std::uint32_t {
    kImplicit = 0,
    kUtf8Text = 1,
    kUtf16Text = 2,
    kJpeg = 13,
    kPng = 14,
    kSignedNumber = 21,
    kUnsignedNumber = 22,
    kFloat = 23,
    kDouble = 24,
  };

  FourCC type;  // of the item
  // The name of the item: its key in 'keys' (for example "com.apple.quicktime.make"), or the 'mean'
  // and the 'name' of an item '----'. At most 4096 bytes; empty for an item that has only a type.
  ByteSpan domain, name;
  std::uint32_t kind = kImplicit;
  ByteSpan value;

  // The value as an integer or, for the kinds of floating-point numbers, as a real number. Nothing
  // for other kinds and for values of a wrong size.
  std::optional<std::int64_t> Integer() const;
  std::optional<double> Real() const;
  // The number and the total of 'trkn' and 'disk'. Missing numbers are 0.
  std::pair<std::uint16_t, std::uint16_t> NumberAndTotal() const;
  // The number of 'gnre'.
  std::uint16_t Genre() const;
};

// The tags in `meta`, the content of a 'meta' in the ISO or the QuickTime form. Empty if it has no
// 'ilst'. Malformed items are left out.
std::vector<Tag> ReadTags(ByteSpan meta);

// A text of 3GPP user data such as 'titl': version and flags, a packed ISO 639-2 language, the text
// (3GPP TS 26.244 8). The text ends before its first zero, or is UTF-16 after a byte-order mark.
struct AssetText {
  std::uint16_t language = 0;
  ByteSpan text;
};
// Nothing for types that hold no such text and for short payloads.
std::optional<AssetText> ReadAssetText(FourCC type, ByteSpan payload);

}  // namespace toolbox
