// A file that is changed where it is.
#pragma once

#include "toolbox/disk/descriptor.h"
#include "toolbox/disk/disk.h"

namespace toolbox {

// Every operation goes to the system at once. The file has its name and room already: TakeName and
// Reserve do nothing.
class FileInPlace final : public Disk {
 public:
  // `file` is open for reading and writing and must outlive this object.
  explicit FileInPlace(const Descriptor& file) : file_(file) {}

  void Write(std::uint64_t at, ByteSpan bytes) override;
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from,
            std::uint64_t length) override;
  void Reserve(std::uint64_t) override {}
  void Flush() override {}
  void Sync() override;
  void CutOff(std::uint64_t size) override;
  void TakeName() override {}

 private:
  const Descriptor& file_;
};

}  // namespace toolbox
