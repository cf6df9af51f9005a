// New media, without samples.
#pragma once

#include "toolbox/movie/media.h"

namespace toolbox {

// The media header for that kind of media, with the default values: 'vmhd', 'smhd' or 'gmhd'.
Sibling HeaderFor(FourCC type);

// An empty media of that kind. Its samples will be in the file of its one data reference. It has
// the handlers of an MPEG-4 file if `isIso`, else those of a QuickTime movie.
MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso);

}  // namespace toolbox
