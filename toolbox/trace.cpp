#include "toolbox/trace.h"

#include <cctype>
#include <cstdlib>
#include <iostream>
#include <string_view>

namespace toolbox {

void TraceLine(std::string line) {
  const char* const wanted = std::getenv("REELWORK_TRACE");
  if (wanted == nullptr || std::string_view(wanted) != "1") return;
  for (char& letter : line) {
    if (std::iscntrl(static_cast<unsigned char>(letter)) != 0) letter = '?';
  }
  std::cerr << line + '\n';
}

}  // namespace toolbox
