// How inputs after the first are added to the output movie.
#pragma once

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace clipjoin {

// Adds `movie`, whose settings are `options`, to `output` in the way that the command and `wanted`
// ask for. Media are added by reference, so `movie` must live until `output` is written. Failures
// are reported, and the run goes on. Changes the time scale of `movie` to that of `output`.
void Combine(toolbox::Movie movie, const FileOptions& options, toolbox::Movie output,
             const OutputOptions& wanted);

}  // namespace clipjoin
