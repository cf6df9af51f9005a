// MPEG-4 export: the movie through the toolbox's exporter, with settings that never change.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "toolbox/toolbox.h"

namespace utils {

// What the exporter is told: to pass pictures and sound through as they are, with hint tracks.
std::span<const std::uint8_t> ExportSettings();

// Writes the movie as an MPEG-4 file to `outputPath`, replacing a file that is there. With
// `showProgress` a user at a terminal sees how far it is. What fails is reported and counted;
// featureUnsupported, and nothing is done, only for a movie that would need conversion.
[[nodiscard]] toolbox::OSErr writeMovieToMPEG4(toolbox::Movie movie, const std::string& outputPath,
                                               bool showProgress = true);

}  // namespace utils
