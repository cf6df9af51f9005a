#include "chapter/text.h"

#include <iostream>

#include "utils/owned.h"
#include "utils/visible.h"

namespace chapter {

std::string ConvertTextEncoding(const std::string& text, toolbox::CFStringEncoding from,
                                toolbox::CFStringEncoding to) {
  const utils::OwnedString string(
      toolbox::CFStringCreateWithBytes(nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
                                       static_cast<std::int64_t>(text.size()), from, true));
  if (string == nullptr)
    std::cerr << "Error encoding " << utils::Visible(text) << " to " << from << '\n';
  return StringFromCFString(string.get(), to);
}

std::string StringFromCFString(toolbox::CFStringRef string, toolbox::CFStringEncoding encoding) {
  // No encoding needs ten bytes for a unit of UTF-16. So there is always enough room, and the call
  // fails only if the encoding cannot represent the string.
  const std::int64_t room = 10 * (toolbox::CFStringGetLength(string) + 1);
  std::string text(static_cast<std::size_t>(room), '\0');
  if (!toolbox::CFStringGetCString(string, text.data(), room, encoding)) return {};
  text.resize(text.find('\0'));
  return text;
}

}  // namespace chapter
