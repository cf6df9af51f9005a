// Changes an existing file in place.
#pragma once

#include "toolbox/disk/disk.h"

namespace toolbox {

// TakeName and Reserve do nothing: the file already has its name, and it grows as it is written.
// Any position may be written, in any order.
class FileInPlace final : public Disk {
 public:
  // `file` is open for reading and writing and stays so while this object is used.
  explicit FileInPlace(int file) : file_(file) {}

  void Write(std::uint64_t at, ByteSpan bytes) override;
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override;
  void Reserve(std::uint64_t) override {}
  void Sync() override;
  void CutOff(std::uint64_t size) override;
  void TakeName() override {}

 private:
  int file_;
};

}  // namespace toolbox
