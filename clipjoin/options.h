// What the command line asks for: settings of the whole run and settings of each input.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "toolbox/toolbox.h"

namespace clipjoin {

enum class CommandMode : std::uint8_t {
  kConcatenate = 0,  // clipjoin: end to end
  kMultiplex = 1,  // clipstak: in parallel
  kModify = 2,  // cliptune: one movie
};

// The settings of one input: a copy of the global ones, changed by the options behind its name.
struct FileOptions {
  std::string path;  // as given
  std::int16_t openFlags = toolbox::newMovieDontAskUnresolvedDataRefs;
};

struct OutputOptions {
  bool quiet = false;
  bool selfContained = false;
  std::uint32_t flattenFlags =
      toolbox::flattenCompressMovieResource | toolbox::flattenForceMovieResourceBeforeMovieData;
  std::optional<std::string> outputPath;  // as given
};

}  // namespace clipjoin
