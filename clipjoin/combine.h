// How a further input is joined to the output movie.
#pragma once

#include "clipjoin/command_line.h"
#include "toolbox/toolbox.h"

namespace clipjoin {

// Joins `movie`, which has the settings `options`, to `output` as the command asks. What fails is
// reported, and the run goes on.
void Combine(toolbox::Movie movie, const FileOptions& options, toolbox::Movie output,
             const CommandLine& line);

}  // namespace clipjoin
