// Writes small pieces to a disk without a system call for each piece.
#pragma once

#include <cstdint>
#include <span>

#include "toolbox/bytes.h"
#include "toolbox/disk/block_reader.h"
#include "toolbox/disk/disk.h"

namespace toolbox {

// Collects small pieces and passes them to the disk in blocks. Pieces of sources are read in blocks
// too. Large pieces are not collected.
class PieceWriter {
 public:
  // `disk` must outlive this object.
  explicit PieceWriter(Disk& disk) : disk_(disk) {}

  // Copies the bytes [from, from + length) of `source` to position `at` of the disk, at the latest
  // when Flush is called. `source` must live until ForgetSources. Throws what reading and writing
  // throw.
  void Copy(std::uint64_t at, const ByteSource& source, std::uint64_t from, std::uint64_t length) {
    // A long movie has millions of pieces, and most of them fit.
    if (at != start_ + filled_ || length > kCopyBlock - filled_) {
      return CopyAcross(at, source, from, length);
    }
    Read(source, from, length);
  }
  // Writes `bytes` at position `at` of the disk, at the latest when Flush is called.
  void Write(std::uint64_t at, ByteSpan bytes);
  // Writes all pieces that are still collected.
  void Flush();
  // Call this before a source is destroyed: a new one may get its address.
  void ForgetSources() { cache_.Forget(); }

 private:
  // Copies a piece that is large, or is not after the collected ones, or does not fit after them.
  void CopyAcross(std::uint64_t at, const ByteSource& source, std::uint64_t from,
                  std::uint64_t length);
  // Makes `at` the place of the next piece.
  void MoveTo(std::uint64_t at);
  // Collects a piece that fits.
  void Read(const ByteSource& source, std::uint64_t from, std::uint64_t length);

  Disk& disk_;
  BlockCache cache_;
  Bytes block_ = Bytes(kCopyBlock);
  std::uint64_t start_ = 0;  // where the block goes on the disk
  std::size_t filled_ = 0;  // bytes of the block
};

}  // namespace toolbox
