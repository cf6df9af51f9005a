// Opening inputs.
#pragma once

#include "clipjoin/options.h"

namespace input {

// Opens the input's movie, and gives it back. One that cannot be opened is reported, and an empty
// movie takes its place; the run goes on.
toolbox::Movie OpenInput(clipjoin::InputMovie& input);

}  // namespace input
