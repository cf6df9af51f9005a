// A four-character code, such as the type of an atom: four bytes as one number, the first character
// in the highest byte.
#pragma once

#include <compare>
#include <cstdint>
#include <string>

namespace toolbox {

struct FourCC {
  std::uint32_t value = 0;

  constexpr FourCC() = default;
  constexpr explicit FourCC(std::uint32_t number) : value(number) {}
  // A literal of four characters: FourCC{"moov"}.
  constexpr FourCC(const char (&text)[5]) {
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<std::uint8_t>(text[i]);
  }

  friend constexpr auto operator<=>(FourCC, FourCC) = default;

  // The four characters; a byte outside printable ASCII as "\xNN".
  std::string Text() const {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8) {
      const auto byte = static_cast<std::uint8_t>(value >> shift);
      if (byte >= 0x20 && byte < 0x7F) {
        text += static_cast<char>(byte);
      } else {
        text += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
      }
    }
    return text;
  }
};

}  // namespace toolbox
