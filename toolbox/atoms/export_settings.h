// The settings of an exporter as callers hand them over: a tree in a container.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// A setting without children whose value is one number.
struct NumberSetting {
  FourCC parent, type;  // no parent: null
  std::uint32_t number = 0;
};

// The settings of that kind in a container, in their order. Throws Malformed.
std::vector<NumberSetting> ReadNumberSettings(ByteSpan container);

}  // namespace toolbox
