#include "utils/visible.h"

namespace utils {

std::string Visible(std::string_view name) {
  static constexpr char kDigits[] = "0123456789abcdef";
  // In UTF-8, U+0080 to U+009F are C2 80 to C2 9F.
  const auto isSecond = [&](std::size_t at) {
    return at < name.size() && (name[at] & 0xE0) == 0x80;
  };
  std::string visible;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const auto byte = static_cast<unsigned char>(name[i]);
    const bool isControl = byte < 0x20 || byte == 0x7F || (byte == 0xC2 && isSecond(i + 1)) ||
                           (i > 0 && name[i - 1] == '\xC2' && isSecond(i));
    if (isControl) {
      visible += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    } else {
      visible += name[i];
    }
  }
  return visible;
}

}  // namespace utils
