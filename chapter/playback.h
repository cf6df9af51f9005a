// Playback flags: items of a movie's user data by which players start and loop it by themselves.
#pragma once

#include <cstdint>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace chapter {

// Each replaces all items of the type by one. Returns a toolbox code; paramErr for a movie without
// user data.
toolbox::OSErr SetMovieUserDataByte(toolbox::Movie movie, toolbox::FourCC type, std::uint8_t value);
toolbox::OSErr SetMovieUserDataLong(toolbox::Movie movie, toolbox::FourCC type, std::int32_t value);
// Removes every item of the type.
toolbox::OSErr RemoveMovieUserData(toolbox::Movie movie, toolbox::FourCC type);
// The first item of the type, or `otherwise` when there is none.
bool GetMovieUserDataByte(toolbox::Movie movie, toolbox::FourCC type, bool otherwise);
std::int32_t GetMovieUserDataLong(toolbox::Movie movie, toolbox::FourCC type,
                                  std::int32_t otherwise);

// Sets and removes the flags that the options ask for; where both are asked for, setting wins.
void ApplyPlaybackFlags(toolbox::Movie movie, const clipjoin::OutputOptions& options);

}  // namespace chapter
