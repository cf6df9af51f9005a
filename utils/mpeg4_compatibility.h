// Whether a movie can be an MPEG-4 file as it is.
#pragma once

#include "toolbox/toolbox.h"

namespace utils {

// One enabled video track and one enabled sound track at most, at least one of the two, and in
// formats that MPEG-4 files hold. Other tracks do not count.
bool isMPEG4Compatible(toolbox::Movie movie);

}  // namespace utils
