#include "toolbox/files/byte_source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace toolbox {
namespace {

// The pages of a file that hold [at, at + size), all of them read; nothing where the system cannot
// do so, be it for a damaged disk: reading will tell.
std::optional<HeldBytes> Map(int file, std::uint64_t at, std::size_t size) {
#ifdef MADV_POPULATE_READ
  const std::size_t before = at % static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const std::size_t length = before + size;
  void* pages =
      mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, static_cast<off_t>(at - before));
  if (pages == MAP_FAILED) return std::nullopt;
  const std::shared_ptr<const void> owner(
      pages, [length](const void* mapped) { munmap(const_cast<void*>(mapped), length); });
  if (madvise(pages, length, MADV_POPULATE_READ) != 0) return std::nullopt;
  return HeldBytes({static_cast<const std::uint8_t*>(pages) + before, size}, owner);
#else
  return std::nullopt;
#endif
}

}  // namespace

HeldBytes ByteSource::Load(std::uint64_t at, std::size_t size) const {
  Bytes bytes(size);
  Read(at, bytes);
  return HeldBytes(std::move(bytes));
}

FileSource::FileSource(const boost::filesystem::path& path) : file_(path, O_RDONLY) {
  struct stat status {};
  if (!file_.IsOpen() || fstat(file_.Number(), &status) != 0) throw RefusedBy(errno);
  if (S_ISDIR(status.st_mode)) throw RefusedBy(EISDIR);
  size_ = static_cast<std::uint64_t>(status.st_size);
}

void FileSource::Read(std::uint64_t at, std::span<std::uint8_t> into) const {
  constexpr std::uint64_t kFarthest = std::numeric_limits<off_t>::max();
  if (at > kFarthest || into.size() > kFarthest - at) throw Refused{eofErr};
  while (!into.empty()) {
    const ssize_t got = pread(file_.Number(), into.data(), into.size(), static_cast<off_t>(at));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) throw RefusedBy(errno);
    if (got == 0) throw Refused{eofErr};
    into = into.subspan(static_cast<std::size_t>(got));
    at += static_cast<std::uint64_t>(got);
  }
}

HeldBytes FileSource::Load(std::uint64_t at, std::size_t size) const {
  constexpr std::size_t kMuch = 1 << 20;
  if (size >= kMuch && at <= size_ && size <= size_ - at) {
    if (auto mapped = Map(file_.Number(), at, size)) return *mapped;
  }
  return ByteSource::Load(at, size);
}

void MemorySource::Read(std::uint64_t at, std::span<std::uint8_t> into) const {
  if (at > bytes_.size() || into.size() > bytes_.size() - at) throw Refused{eofErr};
  std::ranges::copy(bytes_.subspan(at, into.size()), into.begin());
}

std::optional<FileIdentity> IdentityOf(const boost::filesystem::path& path) {
  const std::optional<struct stat> status = StatusOf(path);
  if (!status) return std::nullopt;
  return FileIdentity{.device = status->st_dev, .inode = status->st_ino};
}

OtherFile FileAt(const boost::filesystem::path& path) { return {path, IdentityOf(path)}; }

Refused RefusedBy(int errorNumber) {
  switch (errorNumber) {
    case ENOSPC:
    case EDQUOT:
      return {dskFulErr};
    case ENAMETOOLONG:
    case EILSEQ:
      return {bdNamErr};
    case EMFILE:
    case ENFILE:
      return {tmfoErr};
    case ENOENT:
    case ENOTDIR:
      return {fnfErr};
    case EROFS:
      return {vLckdErr};
    case ETXTBSY:
    case EBUSY:
    case EWOULDBLOCK:
      return {fBsyErr};  // a lock or a lease in the way
    case EEXIST:
      return {dupFNErr};
    case ENOMEM:
      return {memFullErr};
    case EISDIR:
      return {notAFileErr};
    case EACCES:
    case EPERM:
      return {afpAccessDenied};
    default:
      return {ioErr};
  }
}

}  // namespace toolbox
