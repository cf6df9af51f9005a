// The names of a movie's tracks.
#pragma once

#include <string>
#include <vector>

#include "toolbox/toolbox.h"

namespace input {

// The name of the track's media type, such as "Sound".
std::string KindName(toolbox::Track track);
// The names of all tracks, in track order: the name in the track's user data ('name'). Without one,
// the name of its media type and, if the movie has several tracks of that type, its number among
// them: "Sound Track 2".
std::vector<std::string> TrackNames(toolbox::Movie movie);
// The first track with exactly that name, or null. `names` are those of all tracks.
toolbox::Track TrackNamed(const std::string& name, toolbox::Movie movie,
                          const std::vector<std::string>& names);

}  // namespace input
