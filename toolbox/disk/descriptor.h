// A file descriptor that is closed by its destructor, writing to it, and the status of a path.
#pragma once

#include <sys/stat.h>

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <optional>
#include <utility>

#include "toolbox/bytes.h"
#include "toolbox/file_state.h"

namespace toolbox {

// Owns one file descriptor, or none. It can be moved, not copied.
class Descriptor {
 public:
  Descriptor() = default;
  // Opens `path` with the flags of open(2) and O_CLOEXEC. Does not throw an error of the system: on
  // failure IsOpen is false and errno has the reason.
  Descriptor(const boost::filesystem::path& path, int flags, mode_t mode = 0);
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  bool IsOpen() const { return number_ >= 0; }
  // The descriptor, or -1. This object still owns it.
  int Number() const { return number_; }
  // Closes the open file now. Throws Refused: some file systems report a failed write only here.
  // The destructor ignores such errors.
  void Close();

 private:
  int number_ = -1;
};

// Writes all of `bytes` at position `at` of an open file. Throws Refused.
void WriteFully(int descriptor, std::uint64_t at, ByteSpan bytes);

// The status of the file at `path`, after following links. Nothing if there is no such file. Throws
// Refused on other errors, for example if a folder cannot be searched.
std::optional<struct stat> StatusOf(const boost::filesystem::path& path);
// The same for an open file.
struct stat StatusOf(int descriptor);

// The state of a file.
FileState StateIn(const struct stat& status);
// The state of the file at `path`. Nothing if there is no such file. Throws as StatusOf.
std::optional<FileState> StateOf(const boost::filesystem::path& path);

}  // namespace toolbox
