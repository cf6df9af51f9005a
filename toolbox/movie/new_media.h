// New media, without samples.
#pragma once

#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// An empty media of that kind with the one data reference. `isIso`: as the media of an MPEG-4 file
// name their handlers, else as those of a QuickTime movie do.
MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso);

// The description of text samples that look like that.
SampleDescription DescriptionOf(const TextDescription& text);

}  // namespace toolbox
