// QuickTime: the language numbers of the Macintosh and the encodings of their text.
#pragma once

#include <cstdint>
#include <optional>

#include "toolbox/text/encoding.h"

namespace toolbox {

// Means "any" where a script, language or region is expected.
inline constexpr std::int16_t kAnyScriptOrLanguage = -128;

// Numbers from kFirstIsoLanguage on are packed ISO 639-2 codes (ISO/IEC 14496-12 8.4.2.3), except
// kUnspecifiedLanguage. Their text is UTF-16 if it starts with a byte-order mark, else UTF-8.
inline constexpr std::uint16_t kFirstIsoLanguage = 0x400, kUnspecifiedLanguage = 0x7FFF;

// The encoding of `language`, a Macintosh number. If that is kAnyScriptOrLanguage, the encoding of
// `script`. Nothing if the number is unknown or its encoding has no converter.
std::optional<TextEncoding> EncodingOf(std::int16_t script, std::int16_t language);

}  // namespace toolbox
