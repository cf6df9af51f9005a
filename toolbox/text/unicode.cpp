#include "toolbox/text/unicode.h"

#include <unicode/unorm2.h>

#include <boost/locale/utf.hpp>
#include <iterator>
#include <new>

namespace toolbox {
namespace {

using Of8 = boost::locale::utf::utf_traits<char>;
using Of16 = boost::locale::utf::utf_traits<char16_t>;

constexpr char32_t kEscape = 0xDC00;  // plus a byte that is not UTF-8

// Owned by the library.
const UNormalizer2& Composer() {
  UErrorCode error = U_ZERO_ERROR;
  const UNormalizer2* composer = unorm2_getNFCInstance(&error);
  // The data is built in, so only memory can be missing.
  if (U_FAILURE(error)) throw std::bad_alloc();
  return *composer;
}

// Whether a result of FirstCodePoint is a lone surrogate. It returns no others.
bool IsSurrogate(char32_t codePoint) { return codePoint >= 0xD800 && codePoint < 0xE000; }

}  // namespace

std::u16string Utf16(std::string_view utf8) {
  std::u16string text;
  text.reserve(utf8.size());
  for (const char* at = utf8.data(); at != utf8.data() + utf8.size();) {
    // After an error `next` can be past more than one byte, but only the first one is replaced.
    const char* next = at;
    const auto codePoint = Of8::decode(next, utf8.data() + utf8.size());
    if (boost::locale::utf::is_valid_codepoint(codePoint)) {
      Of16::encode(codePoint, std::back_inserter(text));
      at = next;
    } else {
      text += static_cast<char16_t>(kEscape + static_cast<unsigned char>(*at++));
    }
  }
  return text;
}

std::string Utf8(std::u16string_view utf16) {
  std::string text;
  text.reserve(utf16.size());
  while (!utf16.empty()) {
    const char32_t codePoint = FirstCodePoint(utf16);
    if (IsSurrogate(codePoint)) {
      text += static_cast<char>(codePoint - kEscape);
    } else {
      Of8::encode(codePoint, std::back_inserter(text));
    }
    utf16.remove_prefix(UnitsOf(codePoint));
  }
  return text;
}

std::u16string Repaired(std::u16string text) {
  for (std::size_t at = 0; at < text.size();) {
    const char32_t codePoint = FirstCodePoint(std::u16string_view(text).substr(at));
    if (IsSurrogate(codePoint)) text[at] = 0xFFFD;
    at += UnitsOf(codePoint);
  }
  return text;
}

bool IsValid(std::u16string_view utf16) { return Repaired(std::u16string(utf16)) == utf16; }

char32_t FirstCodePoint(std::u16string_view text) {
  const char16_t* at = text.data();
  const auto codePoint = Of16::decode(at, at + text.size());
  return boost::locale::utf::is_valid_codepoint(codePoint) ? codePoint : text[0];
}

std::size_t FirstCharacter(std::u16string_view text) {
  std::size_t end = UnitsOf(FirstCodePoint(text));
  while (end < text.size()) {
    const char32_t next = FirstCodePoint(text.substr(end));
    // Code points below this one are never composed with the one before them.
    constexpr char32_t kFirstMark = 0x300;
    if (next < kFirstMark ||
        unorm2_hasBoundaryBefore(&Composer(), static_cast<UChar32>(next)) != 0) {
      break;
    }
    end += UnitsOf(next);
  }
  return end;
}

std::u16string Composed(std::u16string_view text) {
  // The usual case needs no library call.
  if (text.size() == 1 && text[0] < 0x80) return std::u16string(text);
  // The composed form is at most three times as long.
  std::u16string composed(3 * text.size(), 0);
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t size =
      unorm2_normalize(&Composer(), text.data(), static_cast<std::int32_t>(text.size()),
                       composed.data(), static_cast<std::int32_t>(composed.size()), &error);
  if (U_FAILURE(error)) throw std::bad_alloc();
  composed.resize(static_cast<std::size_t>(size));
  return composed;
}

}  // namespace toolbox
