// Where bytes are read from: a file or memory, through one small interface.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <span>

#include "toolbox/bytes.h"
#include "toolbox/disk/descriptor.h"
#include "toolbox/held_bytes.h"

namespace toolbox {

struct ByteSource {
  virtual ~ByteSource() = default;
  // Length in bytes when the source was opened.
  virtual std::uint64_t Size() const = 0;
  // Fills all of `into` from position `at`. Throws Refused: eofErr when the source ends before,
  // ioErr and its kin when reading fails.
  virtual void Read(std::uint64_t at, std::span<std::uint8_t> into) const = 0;
  // The bytes [at, at + size), in memory. Throws as Read.
  virtual HeldBytes Load(std::uint64_t at, std::size_t size) const;
  // The descriptor the kernel can copy from, or -1 where there is none.
  virtual int Descriptor() const { return -1; }
};

// A file opened for reading.
class FileSource final : public ByteSource {
 public:
  // Throws Refused: fnfErr, afpAccessDenied, notAFileErr (a directory), tmfoErr, ioErr.
  explicit FileSource(const boost::filesystem::path& path);

  std::uint64_t Size() const override { return size_; }
  void Read(std::uint64_t at, std::span<std::uint8_t> into) const override;
  // Maps a large piece into memory and does not copy it. Until the piece is owned, writing to the
  // file changes it, and cutting the file off ends the process.
  HeldBytes Load(std::uint64_t at, std::size_t size) const override;
  int Descriptor() const override { return file_.Number(); }

 private:
  toolbox::Descriptor file_;
  std::uint64_t size_ = 0;
};

// Bytes in memory; the caller keeps them alive.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(ByteSpan bytes) : bytes_(bytes) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  void Read(std::uint64_t at, std::span<std::uint8_t> into) const override;

 private:
  ByteSpan bytes_;
};

}  // namespace toolbox
