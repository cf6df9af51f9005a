// Tracks selected by name: to keep, to enable or disable, or to take a length or time scale from.
#pragma once

#include <string>
#include <vector>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// The names of all tracks, in track order; none if the options neither name nor list tracks,
// because a name costs several calls. Removing a track can change the names of others, so the
// names must be those from before the first edit.
std::vector<std::string> NeededNames(toolbox::Movie movie, const clipjoin::FileOptions& options);

// Enables, disables, lists (on standard output) and removes tracks as the options say. `names` are
// those of all tracks or, if the options need no names, none. Warns if no track is left, unless
// quiet.
void SelectTracks(toolbox::Movie movie, const std::vector<std::string>& names,
                  const clipjoin::FileOptions& options);

}  // namespace input
