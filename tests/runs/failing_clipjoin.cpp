// clipjoin with calls of the toolbox that fail on request, to test what it then prints.
//
//   FAIL=InsertMovieSegment:1:-50,GetMovieDuration:*:-108
//
// fails the first call of one name with -50 and every call of the other with -108. The program ends
// with status 125 if a requested failure did not happen.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "clipjoin/clipjoin.h"
#include "toolbox/calls/call.h"

namespace {

constexpr int kUnusable = 125;
constexpr int kEveryCall = 0;

struct Failure {
  std::string call;
  int number = kEveryCall;  // which call of that name, from 1
  toolbox::OSErr code = toolbox::noErr;
  bool cameAbout = false;
};

[[noreturn]] void Unusable(std::string_view why) {
  std::fprintf(stderr, "failing_clipjoin: %.*s\n", static_cast<int>(why.size()), why.data());
  std::exit(kUnusable);
}

// The text before `separator`, or all of it. `rest` keeps the text after it.
std::string_view Cut(std::string_view& rest, char separator) {
  const std::string_view part = rest.substr(0, rest.find(separator));
  rest.remove_prefix(std::min(part.size() + 1, rest.size()));
  return part;
}

template <class Number>
Number Parse(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) Unusable(text);
  return number;
}

std::vector<Failure> ParseFailures(std::string_view text) {
  std::vector<Failure> failures;
  while (!text.empty()) {
    std::string_view one = Cut(text, ',');
    const std::string_view call = Cut(one, ':');
    const std::string_view number = Cut(one, ':');
    failures.push_back({std::string(call), number == "*" ? kEveryCall : Parse<int>(number),
                        Parse<toolbox::OSErr>(one)});
  }
  return failures;
}

}  // namespace

int main(int count, char** arguments) {
  const char* wanted = std::getenv("FAIL");
  std::vector<Failure> failures = ParseFailures(wanted != nullptr ? wanted : "");
  std::map<std::string, int, std::less<>> calls;
  toolbox::SetCallHook([&](std::string_view name) -> toolbox::OSErr {
    const int number = ++calls[std::string(name)];
    for (Failure& failure : failures) {
      if (failure.call != name) continue;
      if (failure.number != kEveryCall && failure.number != number) continue;
      failure.cameAbout = true;
      return failure.code;
    }
    return toolbox::noErr;
  });
  const int status = clipjoin::Run({arguments, static_cast<std::size_t>(count)});
  toolbox::SetCallHook({});
  for (const Failure& failure : failures) {
    if (!failure.cameAbout) Unusable(failure.call + " was not called so often");
  }
  return status;
}
