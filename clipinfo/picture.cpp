#include <iostream>

#include "clipinfo/modes.h"

namespace clipinfo {

int WritePicture(const Options& options) { return options.movies.empty() ? 0 : 1; }

}  // namespace clipinfo
