#include "toolbox/disk/file_copier.h"

#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#ifdef __linux__
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/vfs.h>
#endif

#include <algorithm>
#include <bit>
#include <boost/filesystem/fstream.hpp>
#include <cerrno>
#include <string>

#include "toolbox/disk/descriptor.h"
#include "toolbox/disk/side_by_side.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

#ifdef __linux__

// Lets `file` share the blocks of `source`. Returns false if that is not possible. All three
// numbers are multiples of the block size.
bool Share(int file, std::uint64_t at, int source, std::uint64_t from, std::uint64_t length) {
  file_clone_range range = {source, from, length, at};
  return Uninterrupted([&] { return ioctl(file, FICLONERANGE, &range); }) == 0;
}

// Lets the kernel copy up to `length` bytes. Returns their number, or 0 if the kernel cannot copy
// between these files, or if the source has ended.
std::uint64_t CopyInKernel(int file, std::uint64_t at, int source, std::uint64_t from,
                           std::uint64_t length) {
  // The most that one call copies, so that signals are handled in between.
  constexpr std::uint64_t kMost = 1 << 30;
  auto in = static_cast<off_t>(from), out = static_cast<off_t>(at);
  const ssize_t copied = Uninterrupted(
      [&] { return copy_file_range(source, &in, file, &out, std::min(length, kMost), 0); });
  if (copied >= 0) return static_cast<std::uint64_t>(copied);
  const int lacks[] = {ENOSPC, EDQUOT, EFBIG, EIO};
  if (std::ranges::find(lacks, errno) != std::end(lacks)) throw RefusedBy(errno);
  return 0;
}

// Whether the file is on a network file system or one that a program provides. There a copy by the
// kernel may be done at the other end.
bool IsRemote(int file) {
  // NFS, SMB (two numbers), Ceph, FUSE; see statfs(2).
  constexpr std::uint32_t kRemote[] = {0x6969, 0xfe534d42, 0xff534d42, 0xc36400, 0x65735546};
  struct statfs status = {};
  if (fstatfs(file, &status) != 0) return false;
  const auto type = static_cast<std::uint32_t>(status.f_type);
  return std::ranges::find(kRemote, type) != std::end(kRemote);
}

// Whether the bytes [at, at + length) seem to be in memory, so that no disk is read. This looks at
// five of them.
bool AreInMemory(int file, std::uint64_t at, std::uint64_t length) {
  for (std::uint64_t part = 0; part <= 4; ++part) {
    char byte = 0;
    const iovec into = {&byte, 1};
    const std::uint64_t place = at + (length - 1) / 4 * part;
    if (preadv2(file, &into, 1, static_cast<off_t>(place), RWF_NOWAIT) != 1) return false;
  }
  return true;
}

// Whether the file is on a spinning disk. Virtual machines say that of many disks.
bool IsOnSpinningDisk(int file) {
  const dev_t device = StatusOf(file).st_dev;
  const std::string disk =
      "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
  // A partition has no queue of its own.
  for (const char* queue : {"/queue/rotational", "/../queue/rotational"}) {
    boost::filesystem::ifstream answer(disk + queue);
    if (int isSpinning = 0; answer >> isSpinning) return isSpinning != 0;
  }
  return false;
}

#else

bool Share(int, std::uint64_t, int, std::uint64_t, std::uint64_t) { return false; }
std::uint64_t CopyInKernel(int, std::uint64_t, int, std::uint64_t, std::uint64_t) { return 0; }
bool IsRemote(int) { return false; }
bool AreInMemory(int, std::uint64_t, std::uint64_t) { return false; }
bool IsOnSpinningDisk(int) { return false; }

#endif

}  // namespace

std::uint64_t FileCopier::FindSharing(const ByteSource& source) {
  struct statvfs status = {};
  if (source.Descriptor() < 0 || fstatvfs(file_, &status) != 0) return 1;
  // The trial shares one block. No file system has larger ones than this.
  constexpr std::uint64_t kLargest = 1 << 20;
  const std::uint64_t block = status.f_bsize;
  if (!std::has_single_bit(block) || block > std::min(kLargest, source.Size())) return 1;
  if (!Share(file_, 0, source.Descriptor(), 0, block)) return 1;
  Required([this] { return ftruncate(file_, 0); });
  return unit_ = block;
}

std::uint64_t FileCopier::ThreadsToCopy(const ByteSource& source, std::uint64_t bytes) {
  // More threads than this only wait for the lock of the new file.
  constexpr std::uint64_t kMost = 4, kFewestBytes = 8 << 20;
  const int file = source.Descriptor();
  const std::uint64_t threads = std::min(kMost, ThreadsFor(bytes, kFewestBytes));
  if (threads == 1 || file < 0 || IsRemote(file_)) return 1;
  // On a spinning disk, threads would make the head move back and forth.
  if (!AreInMemory(file, 0, source.Size()) && IsOnSpinningDisk(file)) return 1;
  // The kernel holds the lock while it copies. Reading needs no lock.
  kernelCopies_ = false;
  return threads;
}

void FileCopier::Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                      std::uint64_t length) {
  if (unit_ != 1 && at % unit_ == from % unit_) {
    const std::uint64_t before = std::min((unit_ - from % unit_) % unit_, length);
    const std::uint64_t middle = (length - before) / unit_ * unit_, after = before + middle;
    if (middle != 0 && Share(file_, at + before, source.Descriptor(), from + before, middle)) {
      CopyBytes(at, source, from, before);
      return CopyBytes(at + after, source, from + after, length - after);
    }
  }
  CopyBytes(at, source, from, length);
}

void FileCopier::CopyBytes(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                           std::uint64_t length) {
  while (kernelCopies_ && length >= kSmallest) {
    const std::uint64_t copied = CopyInKernel(file_, at, source.Descriptor(), from, length);
    if (copied == 0) kernelCopies_ = false;
    at += copied;
    from += copied;
    length -= copied;
  }
  ForEachBlock(source, from, length, [&](ByteSpan block) {
    WriteFully(file_, at, block);
    at += block.size();
  });
}

}  // namespace toolbox
