// The arguments that are still to be read.
#pragma once

#include <span>
#include <string_view>

#include "clipjoin/report.h"

namespace clipjoin {

class Cursor {
 public:
  explicit Cursor(std::span<const char* const> arguments) : rest_(arguments) {}

  bool AtEnd() const { return rest_.empty(); }
  // The next argument. Throws NeedMoreArguments at the end.
  const char* operator()() {
    if (AtEnd()) throw NeedMoreArguments{};
    const char* argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }
  // Whether the next argument is just that keyword, which is then passed over.
  bool Takes(std::string_view keyword) {
    if (AtEnd() || keyword != rest_.front()) return false;
    rest_ = rest_.subspan(1);
    return true;
  }

 private:
  std::span<const char* const> rest_;
};

}  // namespace clipjoin
