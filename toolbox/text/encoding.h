// Text as bytes in the encodings that the toolbox knows by number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "toolbox/bytes.h"

namespace toolbox {

// Numbers below 256 are the encodings of the Macintosh scripts.
using TextEncoding = std::uint32_t;
inline constexpr TextEncoding kMacRoman = 0, kUtf16 = 0x100, kUtf8 = 0x08000100;

bool HasConverter(TextEncoding encoding);

// The bytes as UTF-8; nothing when they are not valid in the encoding or there is no converter.
// UTF-16 is big-endian unless its byte-order mark says otherwise. With `markMayLead` a mark at the
// front is not part of the text.
std::optional<std::string> DecodeText(ByteSpan bytes, TextEncoding encoding, bool markMayLead);

struct EncodedText {
  Bytes bytes;
  std::size_t length = 0;  // of the text that was converted, in UTF-16 units
};

// As much of the text as converts and fits into `most` bytes. `loss` replaces each code point that
// does not convert; with 0 the text ends before the first of them. For a Macintosh encoding the
// text is composed first; what composes to one character converts as a whole or not at all.
EncodedText EncodeText(std::u16string_view text, TextEncoding encoding, std::uint8_t loss,
                       std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace toolbox
