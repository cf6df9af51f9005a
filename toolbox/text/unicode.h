// Converts between UTF-8 and UTF-16, and composes characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace toolbox {

// Converts text to UTF-16. Paths can have bytes that are not UTF-8. Each of them becomes the lone
// surrogate U+DC00 + byte, so that Utf8 can restore it.
std::u16string Utf16(std::string_view utf8);
// Converts text to UTF-8, with the bytes that Utf16 put into lone surrogates.
std::string Utf8(std::u16string_view utf16);
// The text with U+FFFD in place of each lone surrogate.
std::u16string Repaired(std::u16string text);
// Whether the text has no lone surrogates.
bool IsValid(std::u16string_view utf16);

// The first code point, or a lone surrogate as it is. The text must not be empty.
char32_t FirstCodePoint(std::u16string_view text);
// The number of UTF-16 units of a code point: 2 if it is a pair of surrogates.
inline std::size_t UnitsOf(char32_t codePoint) { return codePoint > 0xFFFF ? 2 : 1; }

// The number of UTF-16 units of the first character, including the marks that can be composed with
// it. The text must not be empty.
std::size_t FirstCharacter(std::u16string_view text);
// The text in composed form (NFC, Unicode Standard Annex 15): a base character and its marks become
// one code point if there is one. Throws bad_alloc.
std::u16string Composed(std::u16string_view text);

}  // namespace toolbox
