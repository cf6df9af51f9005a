// The interface to read bytes from a file or from memory.
#pragma once

#include <fcntl.h>

#include <algorithm>
#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <span>
#include <string>

#include "toolbox/bytes.h"
#include "toolbox/disk/descriptor.h"
#include "toolbox/held_bytes.h"

namespace toolbox {

// A fixed number of bytes that can be read at any position. Positions and sizes are in bytes.
struct ByteSource {
  virtual ~ByteSource() = default;
  // The size when the source was opened.
  virtual std::uint64_t Size() const = 0;
  // The path of the file; empty if the bytes are in no file.
  virtual std::string Path() const { return {}; }
  // Fills all of `into` with the bytes from position `at` on. Throws Refused: eofErr if the source
  // ends too early, ioErr and other file errors if reading fails.
  virtual void Read(std::uint64_t at, std::span<std::uint8_t> into) const = 0;
  // Returns the bytes [at, at + size). They live as long as the result does, whatever happens to
  // the source object. Throws as Read does.
  virtual HeldBytes Load(std::uint64_t at, std::size_t size) const;
  // Whether all bytes [at, at + size) are zero. Throws as Read does.
  virtual bool IsZero(std::uint64_t at, std::uint64_t size) const;
  // A file descriptor from which the kernel can copy, or -1 if there is none. The source owns it.
  virtual int Descriptor() const { return -1; }
};

// A regular file that is open for reading.
class FileSource final : public ByteSource {
 public:
  // Opens the file; `flags` are O_RDONLY or O_RDWR. Throws Refused: fnfErr, afpAccessDenied,
  // notAFileErr (a directory, a device or a FIFO), tmfoErr, ioErr.
  explicit FileSource(const boost::filesystem::path& path, int flags = O_RDONLY);

  // The state of the file when it was opened or last renewed.
  const FileState& State() const { return state_; }
  // Notes the present state, size included.
  void Renew() { state_ = StateIn(StatusOf(file_.Number())); }

  std::uint64_t Size() const override { return state_.size; }
  std::string Path() const override { return path_; }
  void Read(std::uint64_t at, std::span<std::uint8_t> into) const override;
  // Maps a large piece into memory instead of copying it. Until HeldBytes::Detach is called, a
  // write to the file changes the piece, and truncating the file can end the process.
  HeldBytes Load(std::uint64_t at, std::size_t size) const override;
  // Does not read the holes of a sparse file.
  bool IsZero(std::uint64_t at, std::uint64_t size) const override;
  int Descriptor() const override { return file_.Number(); }

 private:
  std::string path_;
  toolbox::Descriptor file_;
  FileState state_;
};

// Bytes in memory. The caller owns them and keeps them alive.
class MemorySource final : public ByteSource {
 public:
  explicit MemorySource(ByteSpan bytes) : bytes_(bytes) {}
  std::uint64_t Size() const override { return bytes_.size(); }
  void Read(std::uint64_t at, std::span<std::uint8_t> into) const override;

 private:
  ByteSpan bytes_;
};

// The bytes that are copied through memory at once. With smaller blocks, two threads wait longer
// for each other; with 512 KiB and more, the kernel took four times as long for each byte.
inline constexpr std::size_t kCopyBlock = 256 << 10;

// Passes the bytes [at, at + length) of `source` to take(ByteSpan), block by block. Throws as
// ByteSource::Read.
template <class Take>
void ForEachBlock(const ByteSource& source, std::uint64_t at, std::uint64_t length, Take&& take) {
  Bytes block;
  for (const std::uint64_t end = at + length; at < end; at += block.size()) {
    block.resize(std::min<std::uint64_t>(kCopyBlock, end - at));
    source.Read(at, block);
    take(ByteSpan(block));
  }
}

}  // namespace toolbox
