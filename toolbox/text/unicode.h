// UTF-8, UTF-16 and composed characters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace toolbox {

// The text in UTF-16. A byte that is not UTF-8, as a path may hold, becomes the lone surrogate
// U+DC00 + byte, by which Utf8 finds it again.
std::u16string Utf16(std::string_view utf8);
std::string Utf8(std::u16string_view utf16);
// Whether every code point is one: no surrogate stands alone.
bool IsValid(std::u16string_view utf16);

// The first code point; a lone surrogate counts as one. The text is not empty.
char32_t FirstCodePoint(std::u16string_view text);
inline std::size_t UnitsOf(char32_t codePoint) { return codePoint > 0xFFFF ? 2 : 1; }

// How many units the first character has, with all that may be composed with it. The text is not
// empty.
std::size_t FirstCharacter(std::u16string_view text);
// The text in its composed form (Unicode Standard Annex 15, NFC).
std::u16string Composed(std::u16string_view text);

}  // namespace toolbox
