// The graphics mode of a media: how its pictures are drawn over the layers below.
#pragma once

#include <array>
#include <cstdint>

#include "toolbox/atoms/siblings.h"

namespace toolbox {

// Sets the transfer mode and its colour (red, green, blue) in the children of a 'minf'. Video has
// them in 'vmhd', other media in the 'gmin' of 'gmhd'. Does nothing if there is neither.
void SetGraphicsMode(Siblings& mediaInformation, std::uint16_t mode,
                     const std::array<std::uint16_t, 3>& opColor);

}  // namespace toolbox
