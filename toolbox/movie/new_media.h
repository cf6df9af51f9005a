// New media, without samples.
#pragma once

#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/media.h"

namespace toolbox {

// An empty media of that kind with the one data reference. With `isIso` its handler is named
// as in an MPEG-4 file, else as in a QuickTime movie.
MediaRecord NewMedia(FourCC type, std::int32_t scale, DataReference where, bool isIso);

// The description of text samples that look like that.
SampleDescription DescriptionOf(const TextDescription& text);

}  // namespace toolbox
