// Playback flags: user data that tells players to start a movie when it is opened, or to loop it.
#pragma once

#include <cstdint>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace chapter {

// Replace all items of the type by one that holds the value (32-bit values big-endian). Return a
// toolbox code; paramErr for a null movie.
toolbox::OSErr SetMovieUserDataByte(toolbox::Movie movie, toolbox::FourCC type, std::uint8_t value);
toolbox::OSErr SetMovieUserDataLong(toolbox::Movie movie, toolbox::FourCC type, std::int32_t value);
// Removes all items of the type. It is not an error if there are none.
toolbox::OSErr RemoveMovieUserData(toolbox::Movie movie, toolbox::FourCC type);
// The value of the first item of the type; `otherwise` if there is none or it is too short.
bool GetMovieUserDataByte(toolbox::Movie movie, toolbox::FourCC type, bool otherwise);
std::int32_t GetMovieUserDataLong(toolbox::Movie movie, toolbox::FourCC type,
                                  std::int32_t otherwise);

// Sets and removes the flags as the options say. If an option to set and one to remove the same
// flag are given, the flag is set.
void ApplyPlaybackFlags(toolbox::Movie movie, const clipjoin::OutputOptions& options);

}  // namespace chapter
