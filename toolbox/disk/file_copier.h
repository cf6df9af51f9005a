// Copies large pieces from one file to another in the fastest way that the system offers.
#pragma once

#include <atomic>
#include <cstdint>

#include "toolbox/disk/byte_source.h"

namespace toolbox {

// Copies into one file. Sizes and positions are in bytes.
class FileCopier {
 public:
  // Smaller pieces are not worth a system call of their own.
  static constexpr std::uint64_t kSmallest = 64 << 10;

  // `file` is a regular file that is open for writing. It stays open while this object is used.
  explicit FileCopier(int file) : file_(file) {}

  // Tries to share one block with `source`, so the file must be empty. Returns the size of a block,
  // or 1 if none can be shared. From then on, Copy shares all whole blocks of a piece if its two
  // positions differ by a multiple of that size. That takes no room and almost no time.
  std::uint64_t FindSharing(const ByteSource& source);

  // The number of threads that are to copy `bytes` bytes of several sources side by side. `source`
  // is one of them.
  std::uint64_t ThreadsToCopy(const ByteSource& source, std::uint64_t bytes);

  // Copies the bytes [from, from + length) of `source`, which has a descriptor, to position `at`.
  // As many threads as ThreadsToCopy has returned may call it at the same time. Throws Refused:
  // eofErr (the source ends too early), and what reading and writing throw.
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from, std::uint64_t length);

 private:
  // The same without sharing.
  void CopyBytes(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                 std::uint64_t length);

  int file_;
  std::uint64_t unit_ = 1;  // the block size, if blocks can be shared
  // False after the kernel could not copy once, and once several threads copy.
  std::atomic<bool> kernelCopies_ = true;
};

}  // namespace toolbox
