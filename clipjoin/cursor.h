// The command-line arguments that have not been read yet. An option takes its values from here, so
// it need not know how many arguments there are.
#pragma once

#include <span>
#include <string_view>

#include "clipjoin/report.h"

namespace clipjoin {

// Does not own the arguments, which must live longer.
class Cursor {
 public:
  explicit Cursor(std::span<const char* const> arguments) : rest_(arguments) {}

  bool AtEnd() const { return rest_.empty(); }
  // Takes the next argument. Throws NeedMoreArguments at the end.
  const char* operator()() {
    if (AtEnd()) throw NeedMoreArguments{};
    const char* argument = rest_.front();
    rest_ = rest_.subspan(1);
    return argument;
  }
  // Takes the next argument only if it is exactly `keyword`; returns whether it was.
  bool Takes(std::string_view keyword) {
    if (AtEnd() || keyword != rest_.front()) return false;
    rest_ = rest_.subspan(1);
    return true;
  }

 private:
  std::span<const char* const> rest_;
};

}  // namespace clipjoin
