// Names that are safe to print.
#pragma once

#include <string>
#include <string_view>

namespace utils {

// The name with its control characters as escapes such as \x1b, so that it stays on its line and a
// terminal does not obey it. Takes any bytes; only UTF-8 can hold the control characters from
// U+0080 on.
std::string Visible(std::string_view name);

}  // namespace utils
