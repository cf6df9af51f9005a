// The operations on a file that is being written.
#pragma once

#include <cstdint>

#include "toolbox/bytes.h"
#include "toolbox/disk/byte_source.h"

namespace toolbox {

// One file: a new file, a file that is changed in place, or a file in memory for a test. Positions
// and sizes are in bytes. Every operation throws Refused if it fails.
class Disk {
 public:
  virtual ~Disk() = default;

  // The number of threads that are to copy `bytes` bytes of media to this disk. `source` is one of
  // the sources. If the result is more than 1, Write and Copy may be called by that many threads at
  // the same time, and in any order.
  virtual std::uint64_t ThreadsToCopy(const ByteSource& source, std::uint64_t bytes);

  // Writes `bytes` at position `at`. They need not live after the call.
  virtual void Write(std::uint64_t at, ByteSpan bytes) = 0;
  // Copies the bytes [from, from + length) of `source` to position `at`. Throws eofErr if the
  // source ends too early.
  virtual void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                    std::uint64_t length) = 0;
  // Reserves room for a file of `size` bytes. Throws if the disk is too full. If the file system
  // cannot reserve room, this does nothing.
  virtual void Reserve(std::uint64_t size) = 0;
  // Waits until everything written so far is safe from a power cut.
  virtual void Sync() = 0;
  // Removes everything after the first `size` bytes.
  virtual void CutOff(std::uint64_t size) = 0;
  // Gives a new file its name. No other operation may follow.
  virtual void TakeName() = 0;
};

inline std::uint64_t Disk::ThreadsToCopy(const ByteSource&, std::uint64_t) { return 1; }

}  // namespace toolbox
