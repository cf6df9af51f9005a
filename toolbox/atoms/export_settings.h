// The settings of an exporter, in the form in which callers pass them: a tree of settings with a
// head of 12 bytes before it.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

// A setting without children whose value is one number.
struct NumberSetting {
  FourCC parent, type;  // the parent is null at the top level
  std::uint32_t number = 0;
};

// All number settings in `container`, in their order; other settings are skipped. Throws Malformed.
std::vector<NumberSetting> ReadNumberSettings(ByteSpan container);

}  // namespace toolbox
