// Where bytes are read from: a file or memory behind one small interface.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <optional>
#include <span>

#include "toolbox/bytes.h"
#include "toolbox/disk/descriptor.h"
#include "toolbox/held_bytes.h"
#include "toolbox/movie/data_reference.h"
#include "toolbox/refused.h"

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
  // Much at once is looked at where the system keeps it and not copied: until it is owned, whoever
  // writes to the file changes it, and whoever cuts the file short ends the process.
  HeldBytes Load(std::uint64_t at, std::size_t size) const override;
  int Descriptor() const override { return file_.Number(); }

 private:
  toolbox::Descriptor file_;
  std::uint64_t size_ = 0;
};

// Bytes that somebody else keeps alive.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(ByteSpan bytes) : bytes_(bytes) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  void Read(std::uint64_t at, std::span<std::uint8_t> into) const override;

 private:
  ByteSpan bytes_;
};

// Nothing when the file does not exist. Throws Refused when that cannot be told.
std::optional<FileIdentity> IdentityOf(const boost::filesystem::path& path);

// The reference to the file at `path`, which may not exist. Throws as IdentityOf.
OtherFile FileAt(const boost::filesystem::path& path);

// The refusal that stands for a failed system call.
Refused RefusedBy(int errorNumber);

}  // namespace toolbox
