#include <iostream>

#include "clipinfo/modes.h"

namespace clipinfo {

void PrintSummary(const OpenedMovie& opened) { std::cout << opened.name << '\n'; }

}  // namespace clipinfo
