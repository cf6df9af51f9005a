// A command line as a test states it, and what comes of it.
#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "clipjoin/command_line.h"
#include "clipjoin/cursor.h"

namespace clipjoin {

using Words = std::vector<std::string>;

inline std::vector<const char*> Pointers(const Words& words) {
  std::vector<const char*> pointers;
  for (const std::string& word : words) pointers.push_back(word.c_str());
  return pointers;
}

inline Words operator+(Words words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

// What goes to a stream of the library is kept, or comes from the test.
class Redirected {
 public:
  Redirected(std::ios& stream, const std::string& text = "")
      : stream_(stream), text_(text), before_(stream.rdbuf(text_.rdbuf())) {}
  ~Redirected() {
    stream_.rdbuf(before_);
    stream_.clear();
  }
  Redirected(const Redirected&) = delete;
  Redirected& operator=(const Redirected&) = delete;

  std::string Text() const { return text_.str(); }

 private:
  std::ios& stream_;
  std::stringstream text_;
  std::streambuf* before_;
};

struct Parsed {
  std::variant<CommandLine, ExitStatus> result;
  std::string said;

  bool IsAccepted() const { return std::holds_alternative<CommandLine>(result); }
  // 0 when the run would go on.
  int Status() const { return IsAccepted() ? 0 : std::get<ExitStatus>(result).value; }
  const CommandLine& Line() const { return std::get<CommandLine>(result); }
  const FileOptions& File(std::size_t index) const { return Line().inputs.at(index).options; }
};

inline Parsed Parse(const Words& words, bool quiet = false, const std::string& input = "") {
  const Redirected in(std::cin, input), err(std::cerr);
  auto result = ParseCommandLine(Pointers(words), quiet);
  return {std::move(result), err.Text()};
}

}  // namespace clipjoin
