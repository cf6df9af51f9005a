// What the tracks of a movie are called.
#pragma once

#include <string>
#include <vector>

#include "toolbox/toolbox.h"

namespace input {

// What the kind of the track's media is called: "Sound".
std::string KindName(toolbox::Track track);
// The name that the track's user data give it, else its kind and, where the movie has more of that
// kind, its place among them: "Sound Track 2".
std::string TrackName(toolbox::Movie movie, toolbox::Track track);
// The names of all tracks in their order.
std::vector<std::string> TrackNames(toolbox::Movie movie);
// The first track of exactly that name, or null.
toolbox::Track FindTrackByName(toolbox::Movie movie, const std::string& name);

}  // namespace input
