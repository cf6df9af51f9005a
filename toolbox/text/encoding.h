// Converts text to bytes and back, in the encodings that the toolbox knows by number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "toolbox/bytes.h"

namespace toolbox {

// The number of an encoding. QuickTime: numbers below 256 are the encodings of Macintosh scripts;
// their bytes below 0x80 are ASCII.
using TextEncoding = std::uint32_t;
inline constexpr TextEncoding kMacRoman = 0, kUtf16 = 0x100, kUtf8 = 0x08000100;

// Whether text can be converted to and from `encoding`.
bool HasConverter(TextEncoding encoding);

// Converts `bytes` to UTF-8. Nothing if they are not valid in `encoding` or there is no converter.
// UTF-16 is big-endian unless it starts with the byte-order mark of little-endian text. If
// `markMayLead` is true, a byte-order mark at the start is removed.
std::optional<std::string> DecodeText(ByteSpan bytes, TextEncoding encoding, bool markMayLead);

// The result of EncodeText.
struct EncodedText {
  Bytes bytes;
  std::size_t length = 0;  // of the text that was converted, in UTF-16 units
};

// Converts as much of `text`, from its start, as fits into `most` bytes. The byte `loss` replaces
// each code point that `encoding` does not have; if `loss` is 0, the result ends before the
// character with the first of these. Text for a Macintosh encoding is composed first, because most
// of these encodings have no separate marks. A base character and its marks are then converted
// together or not at all.
EncodedText EncodeText(std::u16string_view text, TextEncoding encoding, std::uint8_t loss,
                       std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace toolbox
