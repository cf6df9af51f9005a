#include "toolbox/disk/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "toolbox/disk/system_error.h"

namespace toolbox {

Descriptor::Descriptor(const boost::filesystem::path& path, int flags, mode_t mode) {
  do {
    number_ = open(path.c_str(), flags | O_CLOEXEC, mode);
  } while (number_ < 0 && errno == EINTR);
}

Descriptor::~Descriptor() {
  if (IsOpen()) close(number_);
}

void Descriptor::Close() {
  // No second try after EINTR: the number is free by then and may already belong to another file.
  if (close(std::exchange(number_, -1)) != 0 && errno != EINTR) throw RefusedBy(errno);
}

std::optional<struct stat> StatusOf(const boost::filesystem::path& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) == 0) return status;
  // ENOTDIR: a folder on the path is a file.
  if (errno == ENOENT || errno == ENOTDIR) return std::nullopt;
  throw RefusedBy(errno);
}

}  // namespace toolbox
