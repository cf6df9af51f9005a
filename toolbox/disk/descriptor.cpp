#include "toolbox/disk/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "toolbox/disk/system_error.h"

namespace toolbox {

Descriptor::Descriptor(const boost::filesystem::path& path, int flags, mode_t mode)
    : number_(Uninterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC, mode); })) {}

Descriptor::~Descriptor() {
  if (IsOpen()) close(number_);
}

void Descriptor::Close() {
  // No second try after EINTR: the number is free by then and may already belong to another file.
  if (close(std::exchange(number_, -1)) != 0 && errno != EINTR) throw RefusedBy(errno);
}

void WriteFully(int descriptor, std::uint64_t at, ByteSpan bytes) {
  while (!bytes.empty()) {
    const ssize_t put = Required(
        [&] { return pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(at)); });
    bytes = bytes.subspan(static_cast<std::size_t>(put));
    at += static_cast<std::uint64_t>(put);
  }
}

std::optional<struct stat> StatusOf(const boost::filesystem::path& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) return status;
  // ENOTDIR: a folder on the path is a file.
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  throw RefusedBy(errno, path.native());
}

struct stat StatusOf(int descriptor) {
  struct stat status = {};
  Required([&] { return fstat(descriptor, &status); });
  return status;
}

FileState StateIn(const struct stat& status) {
  constexpr std::int64_t kNanoseconds = 1'000'000'000;  // in a second
  return {{status.st_dev, status.st_ino},
          static_cast<std::uint64_t>(status.st_size),
          status.st_mtim.tv_sec * kNanoseconds + status.st_mtim.tv_nsec};
}

std::optional<FileState> StateOf(const boost::filesystem::path& path) {
  const auto status = StatusOf(path);
  return status ? std::optional(StateIn(*status)) : std::nullopt;
}

}  // namespace toolbox
