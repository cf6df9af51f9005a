#include <iostream>

#include "clipinfo/modes.h"

namespace clipinfo {

int Compare(const Options& options) { return options.movies.empty() ? 0 : 1; }

}  // namespace clipinfo
