// What the toolbox throws if it cannot do something. Calls turn it into a result code.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "toolbox/codes.h"

namespace toolbox {

// What is known about a failure. A text that is unknown is empty. Programs get only the code;
// people see the texts with REELWORK_TRACE=1.
struct Failure {
  OSErr code = noErr;
  std::string file = {};  // the path of the file that it is about
  std::string path = {};  // the atoms around the fault, outermost first: "/moov/trak/mdhd"
  std::string reason = {};  // "the atom ends inside duration"

  // Sets the file to the path `name`, unless it is known already. A function that the failure
  // passes through calls this.
  void NameFile(const std::string& name) {
    if (file.empty()) file = name;
  }
};

// A request that cannot be carried out.
struct Refused : Failure {
  Refused(OSErr error, std::string why = {}, std::string where = {})
      : Failure{error, std::move(where), {}, std::move(why)} {}
};

// Throws Refused (eofErr) unless the bytes [at, at + size) are in a file of `end` bytes.
inline void CheckEnd(std::uint64_t at, std::uint64_t size, std::uint64_t end,
                     const std::string& file = {}) {
  if (at <= end && size <= end - at) return;
  throw Refused{eofErr,
                std::to_string(size) + " bytes at " + std::to_string(at) + " are after its end",
                file};
}

}  // namespace toolbox
