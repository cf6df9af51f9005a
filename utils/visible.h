// Names that are safe to print.
#pragma once

#include <string>
#include <string_view>

namespace utils {

// The name with its control characters as escapes such as \x1b, so that it stays on its line and a
// terminal does not obey it. `name` may hold any bytes. The control characters from U+0080 on are
// recognized only in UTF-8.
std::string Visible(std::string_view name);

}  // namespace utils
