// Shorter ways to ask the toolbox about tracks.
#pragma once

#include <vector>

#include "toolbox/toolbox.h"

namespace utils {

// All tracks, in order. Tracks that are added or removed later do not change the list.
std::vector<toolbox::Track> Tracks(toolbox::Movie movie);
// The media type of the track, such as 'vide'; 0 if it has no media.
toolbox::FourCC MediaType(toolbox::Track track);

}  // namespace utils
