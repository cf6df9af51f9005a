#include "chapter/text.h"

#include <iostream>

namespace chapter {

std::string ConvertTextEncoding(const std::string& text, toolbox::CFStringEncoding from,
                                toolbox::CFStringEncoding to) {
  const toolbox::CFStringRef string =
      toolbox::CFStringCreateWithBytes(nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
                                       static_cast<std::int64_t>(text.size()), from, true);
  if (string == nullptr) std::cerr << "Error encoding " << text << " to " << from << '\n';
  std::string converted = StringFromCFString(string, to);
  toolbox::CFRelease(string);
  return converted;
}

std::string StringFromCFString(toolbox::CFStringRef string, toolbox::CFStringEncoding encoding) {
  if (string == nullptr) return {};
  const auto length = static_cast<std::size_t>(toolbox::CFStringGetLength(string));
  // No encoding needs ten bytes for a character. A string that does not fit then does not convert.
  const std::size_t most = 10 * (length + 1);
  for (std::size_t size = length + 1; size <= most; size += length) {
    std::string text(size, '\0');
    if (toolbox::CFStringGetCString(string, text.data(), static_cast<std::int64_t>(size),
                                    encoding)) {
      text.resize(text.find('\0'));
      return text;
    }
    if (length == 0) break;
  }
  return {};
}

}  // namespace chapter
