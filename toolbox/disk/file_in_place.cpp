#include "toolbox/disk/file_in_place.h"

#include <unistd.h>

#include "toolbox/disk/descriptor.h"
#include "toolbox/disk/system_error.h"

namespace toolbox {

void FileInPlace::Write(std::uint64_t at, ByteSpan bytes) { WriteFully(file_, at, bytes); }

void FileInPlace::Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                       std::uint64_t length) {
  ForEachBlock(source, from, length, [&](ByteSpan block) {
    Write(at, block);
    at += block.size();
  });
}

void FileInPlace::Sync() {
  Required([this] { return fsync(file_); });
}

void FileInPlace::CutOff(std::uint64_t size) {
  Required([&] { return ftruncate(file_, static_cast<off_t>(size)); });
}

}  // namespace toolbox
