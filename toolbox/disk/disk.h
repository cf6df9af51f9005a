// What can be done to a file that is written.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"
#include "toolbox/disk/byte_source.h"

namespace toolbox {

// One file: a new one, one that is changed in place, or a test's in memory. Places and sizes are in
// bytes. Everything here throws Refused when it fails.
class Disk {
 public:
  virtual ~Disk() = default;

  // Puts `bytes` at `at`.
  virtual void Write(std::uint64_t at, ByteSpan bytes) = 0;
  // Puts the bytes [from, from + length) of `source` at `at`. `source` must live until Flush.
  // Refused with eofErr when it ends before.
  virtual void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                    std::uint64_t length) = 0;
  // Reserves room for a file of `size` bytes. A file system that cannot do so is no error; one
  // without the room is.
  virtual void Reserve(std::uint64_t size) = 0;
  // Hands everything so far to the system.
  virtual void Flush() = 0;
  // Returns when everything so far survives a power cut.
  virtual void Sync() = 0;
  // Cuts off what follows the first `size` bytes.
  virtual void CutOff(std::uint64_t size) = 0;
  // Gives a new file its name. Nothing may follow.
  virtual void TakeName() = 0;
};

}  // namespace toolbox
