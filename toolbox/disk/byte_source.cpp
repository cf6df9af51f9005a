#include "toolbox/disk/byte_source.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <optional>

#include "toolbox/disk/system_error.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// A read-only mapping of a part of a file. `at` must be a multiple of the page size.
class Mapping final : public HeldBytes::Holder {
 public:
  Mapping(int file, std::uint64_t at, std::size_t length)
      : length_(length),
        pages_(mmap(nullptr, length, PROT_READ, MAP_PRIVATE, file, static_cast<off_t>(at))) {}
  Mapping(const Mapping&) = delete;
  Mapping& operator=(const Mapping&) = delete;
  ~Mapping() override {
    if (pages_ != MAP_FAILED) munmap(pages_, length_);
  }

  // Reads all pages now. Returns false if that fails, for example on a damaged disk. If a page were
  // read only when it is used, a failure would end the process with SIGBUS.
  bool Fill() const {
#ifdef MADV_POPULATE_READ
    return pages_ != MAP_FAILED && madvise(pages_, length_, MADV_POPULATE_READ) == 0;
#else
    return false;
#endif
  }
  const std::uint8_t* Data() const { return static_cast<const std::uint8_t*>(pages_); }

  // Replaces the pages by a copy at the same address, so that existing spans stay valid. From then
  // on, changes of the file have no effect.
  void Detach() const override {
    if (isOwned_) return;
    void* copy = mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (copy == MAP_FAILED) throw std::bad_alloc();
    std::memcpy(copy, pages_, length_);
    if (mremap(copy, length_, length_, MREMAP_MAYMOVE | MREMAP_FIXED, pages_) == MAP_FAILED) {
      munmap(copy, length_);
      throw std::bad_alloc();
    }
    isOwned_ = true;
  }

 private:
  std::size_t length_;
  void* pages_;
  mutable bool isOwned_ = false;
};

// Maps the bytes [at, at + size) of a file. Returns nothing on failure: the caller then reads the
// bytes, and that reports the error.
std::optional<HeldBytes> Map(int file, std::uint64_t at, std::size_t size) {
  const std::size_t before = at % static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  const auto mapping = std::make_shared<const Mapping>(file, at - before, before + size);
  if (!mapping->Fill()) return std::nullopt;
  return HeldBytes({mapping->Data() + before, size}, mapping);
}

}  // namespace

HeldBytes ByteSource::Load(std::uint64_t at, std::size_t size) const {
  Bytes bytes(size);
  Read(at, bytes);
  return HeldBytes(std::move(bytes));
}

bool ByteSource::IsZero(std::uint64_t at, std::uint64_t size) const {
  constexpr std::uint64_t kBlock = 1 << 20;
  Bytes block;
  for (; size != 0; at += block.size(), size -= block.size()) {
    block.resize(std::min(size, kBlock));
    Read(at, block);
    if (std::ranges::any_of(block, std::identity())) return false;
  }
  return true;
}

// O_NONBLOCK: opening a FIFO would otherwise wait for a writer. It does nothing to regular files.
FileSource::FileSource(const boost::filesystem::path& path, int flags)
    : path_(path.native()), file_(path, flags | O_NONBLOCK) {
  if (!file_.IsOpen()) throw RefusedBy(errno, path_);
  const struct stat status = StatusOf(file_.Number());
  if (!S_ISREG(status.st_mode)) throw Refused{notAFileErr, "it is not a regular file", path_};
  state_ = StateIn(status);
}

void FileSource::Read(std::uint64_t at, std::span<std::uint8_t> into) const try {
  CheckEnd(at, into.size(), std::numeric_limits<off_t>::max());
  while (!into.empty()) {
    const ssize_t got = Required(
        [&] { return pread(file_.Number(), into.data(), into.size(), static_cast<off_t>(at)); });
    // The file can be shorter than when it was opened.
    if (got == 0) CheckEnd(at, into.size(), at);
    into = into.subspan(static_cast<std::size_t>(got));
    at += static_cast<std::uint64_t>(got);
  }
} catch (Failure& failure) {
  failure.NameFile(path_);
  throw;
}

HeldBytes FileSource::Load(std::uint64_t at, std::size_t size) const {
  // A mapping costs time, so it does not pay for small pieces.
  constexpr std::size_t kMuch = 1 << 20;
  if (size >= kMuch && at <= Size() && size <= Size() - at) {
    if (auto mapped = Map(file_.Number(), at, size)) return *mapped;
  }
  return ByteSource::Load(at, size);
}

bool FileSource::IsZero(std::uint64_t at, std::uint64_t size) const {
#ifdef SEEK_DATA
  for (const std::uint64_t end = at + size; at < end;) {
    const off_t data = lseek(file_.Number(), static_cast<off_t>(at), SEEK_DATA);
    if (data < 0 && errno == ENXIO) return true;  // a hole up to the end of the file
    if (data < 0) return ByteSource::IsZero(at, end - at);
    const off_t hole = lseek(file_.Number(), data, SEEK_HOLE);
    const auto start = static_cast<std::uint64_t>(data), next = static_cast<std::uint64_t>(hole);
    if (start >= end) return true;
    if (hole < 0 || !ByteSource::IsZero(start, std::min(next, end) - start)) return false;
    at = next;
  }
  return true;
#else
  return ByteSource::IsZero(at, size);
#endif
}

void MemorySource::Read(std::uint64_t at, std::span<std::uint8_t> into) const {
  CheckEnd(at, into.size(), bytes_.size());
  std::ranges::copy(bytes_.subspan(at, into.size()), into.begin());
}

}  // namespace toolbox
