// MPEG-4 export with the exporter of the toolbox.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "toolbox/toolbox.h"

namespace utils {

// The settings of the exporter, an atom container: keep video and sound as they are, add hint
// tracks.
std::span<const std::uint8_t> ExportSettings();

// Exports the movie as an MPEG-4 file to `outputPath` and replaces an existing file. If the movie
// needs conversion, it is not exported, and featureUnsupported is returned. Other failures are
// reported and counted, and noErr is returned all the same. With `showProgress`, shows progress if
// standard error is a terminal.
[[nodiscard]] toolbox::OSErr writeMovieToMPEG4(toolbox::Movie movie, const std::string& outputPath,
                                               bool showProgress = true);

}  // namespace utils
