// The languages that the Macintosh numbers, and the encodings their text is in.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/text/encoding.h"

namespace toolbox {

// Stands for a script, language or region that does not matter.
inline constexpr std::int16_t kAnyScriptOrLanguage = -128;

// From here on the numbers of languages are packed ISO 639-2 codes, whose text is UTF-8 or, behind
// a byte-order mark, UTF-16; but for kUnspecifiedLanguage.
inline constexpr std::uint16_t kFirstIsoLanguage = 0x400, kUnspecifiedLanguage = 0x7FFF;

// The encoding of a language or, where that does not matter, of a script. Nothing when it has no
// converter.
std::optional<TextEncoding> EncodingOf(std::int16_t script, std::int16_t language);

}  // namespace toolbox
