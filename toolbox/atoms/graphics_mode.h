// How the pictures of a media are laid over what is below them.
#pragma once

#include <array>
#include <cstdint>

#include "toolbox/atoms/siblings.h"

namespace toolbox {

// Sets the transfer mode and its colour (red, green, blue) in the atoms of a 'minf' that state
// them: 'vmhd' of video, 'gmin' in 'gmhd' of the rest. Does nothing where neither is.
void SetGraphicsMode(Siblings& mediaInformation, std::uint16_t mode,
                     const std::array<std::uint16_t, 3>& opColor);

}  // namespace toolbox
