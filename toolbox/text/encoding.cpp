#include "toolbox/text/encoding.h"

#include <unicode/ucnv.h>

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <climits>
#include <memory>

#include "toolbox/text/unicode.h"
#include "toolbox/text/upper_halves.h"

namespace toolbox {
namespace {

// How an encoding is converted: by the library, which knows it by name, or by a table in
// upper_halves.h.
struct Row {
  TextEncoding encoding = 0;
  const char* name = nullptr;
  const UpperHalf* upper = nullptr;  // null: by the library
};

// The East Asian encodings are the plain standards, without the additions of the Macintosh.
constexpr Row kRows[] = {
    {kMacRoman, "macintosh"},
    {1, "Shift_JIS"},
    {2, "Big5"},
    {3, "EUC-KR"},
    {4, nullptr, &kArabicUpper},
    {5, nullptr, &kHebrewUpper},
    {6, "x-mac-greek"},
    {7, "x-mac-cyrillic"},
    {21, nullptr, &kThaiUpper},
    {25, "GB2312"},
    {29, "x-mac-centraleurroman"},
    {35, "x-mac-turkish"},
    {36, nullptr, &kCroatianUpper},
    {37, nullptr, &kIcelandicUpper},
    {38, nullptr, &kRomanianUpper},
    {140, nullptr, &kFarsiUpper},
};

using LibraryConverter = std::unique_ptr<UConverter, decltype(&ucnv_close)>;

// A converter that stops at the first error, where the default is to put in a substitute. Null if
// the library was built without it.
LibraryConverter Open(const char* name) {
  UErrorCode error = U_ZERO_ERROR;
  LibraryConverter converter(ucnv_open(name, &error), &ucnv_close);
  ucnv_setFromUCallBack(converter.get(), UCNV_FROM_U_CALLBACK_STOP, nullptr, nullptr, nullptr,
                        &error);
  ucnv_setToUCallBack(converter.get(), UCNV_TO_U_CALLBACK_STOP, nullptr, nullptr, nullptr, &error);
  if (U_FAILURE(error)) converter.reset();
  return converter;
}

// What converts the text of an eight-bit or East Asian encoding: one of the two, or neither if the
// encoding is unknown.
struct Converter {
  const UpperHalf* upper = nullptr;
  LibraryConverter library{nullptr, &ucnv_close};

  explicit Converter(TextEncoding encoding) {
    const auto* row = std::ranges::find(kRows, encoding, &Row::encoding);
    if (row == std::end(kRows)) return;
    upper = row->upper;
    if (upper == nullptr) library = Open(row->name);
  }
  bool Exists() const { return upper != nullptr || library != nullptr; }
};

// These two return false and add nothing if the encoding does not have the code point. A table has
// only code points of one unit.
bool AppendFromTable(std::u16string_view codePoint, const UpperHalf& upper, Bytes& bytes) {
  const auto* found = std::ranges::find(upper, codePoint[0]);
  if (codePoint.size() > 1 || found == upper.end()) return false;
  bytes.push_back(static_cast<std::uint8_t>(0x80 + (found - upper.begin())));
  return true;
}

bool AppendByLibrary(std::u16string_view codePoint, UConverter& library, Bytes& bytes) {
  char converted[8];  // more than a code point has in any encoding
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t size = ucnv_fromUChars(&library, converted, sizeof converted, codePoint.data(),
                                            static_cast<std::int32_t>(codePoint.size()), &error);
  if (U_FAILURE(error) || size <= 0) return false;
  bytes.insert(bytes.end(), converted, converted + size);
  return true;
}

// Adds the bytes of one code point, which has one or two units. `converter` is that of `encoding`.
// Returns false and adds nothing if the encoding does not have the code point.
bool Append(std::u16string_view codePoint, TextEncoding encoding, const Converter& converter,
            Bytes& bytes) {
  if (encoding == kUtf8) {
    const std::string utf8 = Utf8(codePoint);
    bytes.insert(bytes.end(), utf8.begin(), utf8.end());
    return true;
  }
  if (encoding == kUtf16) {
    if (!IsValid(codePoint)) return false;
    for (const char16_t unit : codePoint) {
      bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
      bytes.push_back(static_cast<std::uint8_t>(unit));
    }
    return true;
  }
  if (!converter.Exists()) return false;
  // All other encodings contain ASCII.
  if (codePoint[0] < 0x80) {
    bytes.push_back(static_cast<std::uint8_t>(codePoint[0]));
    return true;
  }
  return converter.upper != nullptr ? AppendFromTable(codePoint, *converter.upper, bytes)
                                    : AppendByLibrary(codePoint, *converter.library, bytes);
}

// UTF-16 in either byte order. Without a mark it is big-endian, like all numbers in the files. A
// mark stays in the text.
std::optional<std::u16string> DecodedUnits(ByteSpan bytes) {
  if (bytes.size() % 2 != 0) return std::nullopt;
  const bool isLittle = bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE;
  std::u16string text;
  for (std::size_t at = 0; at < bytes.size(); at += 2) {
    const std::uint16_t unit = isLittle ? boost::endian::load_little_u16(&bytes[at])
                                        : boost::endian::load_big_u16(&bytes[at]);
    text += static_cast<char16_t>(unit);
  }
  return text;
}

// These two return nothing if a byte has no character in the encoding.
std::optional<std::u16string> DecodedByTable(ByteSpan bytes, const UpperHalf& upper) {
  std::u16string text;
  for (const std::uint8_t byte : bytes) {
    text += byte < 0x80 ? byte : upper[byte - 0x80U];
    // The table has 0 for a byte without a character. Only byte 0 itself has the character 0.
    if (text.back() == 0 && byte != 0) return std::nullopt;
  }
  return text;
}

std::optional<std::u16string> DecodedByLibrary(ByteSpan bytes, UConverter& library) {
  if (bytes.size() > INT_MAX) return std::nullopt;
  const auto size = static_cast<std::int32_t>(bytes.size());
  std::u16string text(bytes.size(), 0);  // in these encodings a unit has at least one byte
  UErrorCode error = U_ZERO_ERROR;
  const std::int32_t length = ucnv_toUChars(
      &library, text.data(), size, reinterpret_cast<const char*>(bytes.data()), size, &error);
  if (U_FAILURE(error)) return std::nullopt;
  text.resize(static_cast<std::size_t>(length));
  return text;
}

// The text in UTF-16, which may still have lone surrogates.
std::optional<std::u16string> Units(ByteSpan bytes, TextEncoding encoding) {
  if (encoding == kUtf16) return DecodedUnits(bytes);
  if (encoding == kUtf8) {
    return Utf16({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  const Converter converter(encoding);
  if (!converter.Exists()) return std::nullopt;
  return converter.upper != nullptr ? DecodedByTable(bytes, *converter.upper)
                                    : DecodedByLibrary(bytes, *converter.library);
}

}  // namespace

bool HasConverter(TextEncoding encoding) {
  return encoding == kUtf8 || encoding == kUtf16 || Converter(encoding).Exists();
}

std::optional<std::string> DecodeText(ByteSpan bytes, TextEncoding encoding, bool markMayLead) {
  std::optional<std::u16string> text = Units(bytes, encoding);
  if (!text || !IsValid(*text)) return std::nullopt;
  if (markMayLead && text->starts_with(u'\uFEFF')) text->erase(0, 1);
  return Utf8(*text);
}

EncodedText EncodeText(std::u16string_view text, TextEncoding encoding, std::uint8_t loss,
                       std::size_t most) {
  const Converter converter(encoding);
  const bool composes = encoding != kUtf8 && encoding != kUtf16;
  EncodedText done;
  Bytes bytes;
  while (done.length < text.size()) {
    const std::u16string_view rest = text.substr(done.length);
    const std::size_t length = composes ? FirstCharacter(rest) : UnitsOf(FirstCodePoint(rest));
    const std::u16string composed =
        composes ? Composed(rest.substr(0, length)) : std::u16string(rest.substr(0, length));
    bytes.clear();
    for (std::u16string_view left = composed; !left.empty();) {
      const std::size_t units = UnitsOf(FirstCodePoint(left));
      if (!Append(left.substr(0, units), encoding, converter, bytes)) {
        if (loss == 0) return done;
        bytes.push_back(loss);
      }
      left.remove_prefix(units);
    }
    // A character that does not fit is left out as a whole. What precedes it is still valid text.
    if (bytes.size() > most - done.bytes.size()) break;
    done.bytes.insert(done.bytes.end(), bytes.begin(), bytes.end());
    done.length += length;
  }
  return done;
}

}  // namespace toolbox
