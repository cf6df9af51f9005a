// Bytes as text of 64 letters, digits and signs.
#pragma once

#include <string>

#include "toolbox/bytes.h"

namespace toolbox {

// Base64 with padding, RFC 4648 4.
std::string Base64(Bytes bytes);

}  // namespace toolbox
