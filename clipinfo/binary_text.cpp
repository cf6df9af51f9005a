#include "clipinfo/binary_text.h"

#include <algorithm>
#include <cstdint>

namespace clipinfo {

std::string Base64(toolbox::ByteSpan bytes) {
  static constexpr char kDigits[] =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes = bytes.subspan(std::min<std::size_t>(3, bytes.size()))) {
    std::uint32_t three = 0;
    for (std::size_t i = 0; i < 3; ++i) three = three << 8 | (i < bytes.size() ? bytes[i] : 0U);
    for (std::size_t i = 0; i < 4; ++i) {
      text += i <= bytes.size() ? kDigits[three >> (18 - 6 * i) & 63] : '=';
    }
  }
  return text;
}

std::string Hexadecimal(toolbox::ByteSpan bytes) {
  static constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) text += {kDigits[byte >> 4], kDigits[byte & 15]};
  return text;
}

}  // namespace clipinfo
