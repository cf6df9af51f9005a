// A file descriptor of the system that closes with its owner, and what the system knows of a path.
#pragma once

#include <sys/stat.h>

#include <boost/filesystem/path.hpp>
#include <optional>
#include <utility>

namespace toolbox {

class Descriptor {
 public:
  Descriptor() = default;
  // Opens `path`, closed on exec. Throws nothing: on failure IsOpen is false and errno says why.
  Descriptor(const boost::filesystem::path& path, int flags, mode_t mode = 0);
  ~Descriptor();
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }

  bool IsOpen() const { return number_ >= 0; }
  int Number() const { return number_; }
  // Closes now. Throws Refused: some file systems say only here that bytes could not be stored.
  void Close();

 private:
  int number_ = -1;
};

// What `path` leads to; nothing when there is no such file. Throws Refused when that cannot be
// told.
std::optional<struct stat> StatusOf(const boost::filesystem::path& path);

}  // namespace toolbox
