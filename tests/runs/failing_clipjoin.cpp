// clipjoin with calls of the toolbox that fail on request, to test what it then prints.
//
//   FAIL=InsertMovieSegment:1:-50,GetMovieDuration:*:-108
//
// fails the first call of one name with -50 and every call of the other with -108. The program ends
// with status 125 if a requested failure did not happen. failing_writes.cpp makes system calls
// fail.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "clipjoin/clipjoin.h"
#include "clipjoin/process.h"
#include "toolbox/calls/call.h"

int main(int count, char** arguments) {
  std::map<std::string, int> codes, calls;  // by name and number of a call, and by name
  const char* wanted = std::getenv("FAIL");
  std::istringstream failures(wanted != nullptr ? wanted : "");
  for (std::string failure; std::getline(failures, failure, ',');) {
    const auto colon = failure.rfind(':');
    codes[failure.substr(0, colon)] = std::stoi(failure.substr(colon + 1));
  }
  std::set<std::string> happened;
  toolbox::SetCallHook([&](std::string_view name) -> toolbox::OSErr {
    const std::string call(name), number = std::to_string(++calls[call]);
    for (const std::string& key : {call + ":" + number, call + ":*"}) {
      if (!codes.contains(key)) continue;
      happened.insert(key);
      return static_cast<toolbox::OSErr>(codes[key]);
    }
    return toolbox::noErr;
  });
  clipjoin::HandleSignals();
  int status = clipjoin::Run({arguments, static_cast<std::size_t>(count)});
  toolbox::SetCallHook({});
  for (const auto& [key, code] : codes) {
    if (happened.contains(key)) continue;
    std::fprintf(stderr, "failing_clipjoin: no call %s\n", key.c_str());
    status = 125;
  }
  return status;
}
