// clipjoin with calls of the toolbox that fail on request, to test what it then prints.
//
//   FAIL=InsertMovieSegment:1:-50,GetMovieDuration:*:-108
//
// fails the first call of one name with -50 and every call of the other with -108. The program ends
// with status 125 if a requested failure did not happen.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <regex>
#include <string>
#include <vector>

#include "clipjoin/clipjoin.h"
#include "toolbox/calls/call.h"

namespace {

struct Failure {
  std::string call, number;  // which call of that name, from 1, or "*"
  toolbox::OSErr code = toolbox::noErr;
  bool hasHappened = false;
};

std::vector<Failure> ParseFailures(const std::string& text) {
  const std::regex form("(\\w+):(\\d+|\\*):(-?\\d+)");
  std::vector<Failure> failures;
  for (std::sregex_iterator at(text.begin(), text.end(), form), end; at != end; ++at) {
    failures.push_back({(*at)[1], (*at)[2], static_cast<toolbox::OSErr>(std::stoi((*at)[3]))});
  }
  return failures;
}

}  // namespace

int main(int count, char** arguments) {
  const char* wanted = std::getenv("FAIL");
  std::vector<Failure> failures = ParseFailures(wanted != nullptr ? wanted : "");
  std::map<std::string, int, std::less<>> calls;
  toolbox::SetCallHook([&](std::string_view name) -> toolbox::OSErr {
    const std::string number = std::to_string(++calls[std::string(name)]);
    for (Failure& failure : failures) {
      if (failure.call != name || (failure.number != "*" && failure.number != number)) continue;
      failure.hasHappened = true;
      return failure.code;
    }
    return toolbox::noErr;
  });
  int status = clipjoin::Run({arguments, static_cast<std::size_t>(count)});
  toolbox::SetCallHook({});
  for (const Failure& failure : failures) {
    if (failure.hasHappened) continue;
    std::fprintf(stderr, "failing_clipjoin: no call %s:%s\n", failure.call.c_str(),
                 failure.number.c_str());
    status = 125;
  }
  return status;
}
