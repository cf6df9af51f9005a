// Bytes as text.
#pragma once

#include <string>

#include "toolbox/bytes.h"

namespace clipinfo {

// Base64, RFC 4648 4.
std::string Base64(toolbox::ByteSpan bytes);
// Two hexadecimal digits for each byte.
std::string Hexadecimal(toolbox::ByteSpan bytes);

}  // namespace clipinfo
