// The output step: chooses the output file and its format, and writes it.
#pragma once

#include <string>
#include <vector>

#include "clipjoin/options.h"

namespace utils {

// Writes the finished movie as the options say, after warnings about names and formats. `inputs`
// has the paths of the input movies. Returns the exit status of the step: 4 if the movie cannot be
// exported as MPEG-4 without conversion, else 0. Other failures are reported.
int finishOutput(toolbox::Movie movie, const clipjoin::OutputOptions& options,
                 const std::vector<std::string>& inputs);

// The path of the user's desktop folder, which is created if it is missing. Failures are reported;
// the path may then be empty.
std::string desktopFolderPath();

}  // namespace utils
