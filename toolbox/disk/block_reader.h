// Reads small pieces of a source without a system call for each piece.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>

#include "toolbox/bytes.h"
#include "toolbox/disk/byte_source.h"

namespace toolbox {

// Keeps one block in memory: the one that was read last.
class BlockReader {
 public:
  // Each read from the source has `blockSize` bytes, or more if the caller asks for more.
  explicit BlockReader(std::uint64_t blockSize) : blockSize_(blockSize) {}

  // Returns the bytes [at, at + size) of `source`, or fewer if the source ends first. They are
  // valid until the next call. Throws as ByteSource::Read does.
  ByteSpan At(const ByteSource& source, std::uint64_t at, std::uint64_t size) {
    // A long movie has millions of pieces, and most of them are in the block.
    if (!Holds(source, at, size)) size = Load(source, at, size);
    return size == 0 ? ByteSpan() : ByteSpan(block_).subspan(at - start_, size);
  }
  // Drops the block. Call this before a source is destroyed: a new one may get its address.
  void Forget() { source_ = nullptr; }

 private:
  // Whether the block has all of [at, at + size) of `source`.
  bool Holds(const ByteSource& source, std::uint64_t at, std::uint64_t size) const {
    return &source == source_ && at >= start_ && size <= block_.size() &&
           at - start_ <= block_.size() - size;
  }

  // Brings the bytes into the block. Returns `size`, or less if the source ends first.
  std::uint64_t Load(const ByteSource& source, std::uint64_t at, std::uint64_t size);

  std::uint64_t blockSize_;
  const ByteSource* source_ = nullptr;
  std::uint64_t start_ = 0;
  Bytes block_;
};

// Keeps the most recently used blocks of any number of sources. A block is loaded only after
// several requests; until then each piece is read alone. Otherwise reading a few samples that are
// spread over a file would read the whole file.
class BlockCache {
 public:
  // Does what source.Read does, and throws the same. `source` must live until Forget.
  void Read(const ByteSource& source, std::uint64_t at, std::span<std::uint8_t> into);
  // Drops every block.
  void Forget();

 private:
  static constexpr std::size_t kBlocks = 16;
  static constexpr std::uint64_t kBlockSize = 128 << 10;
  // Requests before a block is loaded. Loading it costs as much as reading some dozens of pieces. A
  // run of small samples has hundreds of pieces in a block, so loading pays.
  static constexpr int kOften = 8;

  struct Block {
    const ByteSource* source = nullptr;
    std::uint64_t index = 0;  // the block starts at byte index * kBlockSize
    int asked = 0;  // requests so far, at most kOften
    BlockReader reader{kBlockSize};  // empty until `asked` is kOften
  };

  // The block in the list, or the oldest one emptied for it. It becomes the first.
  Block& Find(const ByteSource& source, std::uint64_t index);

  std::list<Block> blocks_ = std::list<Block>(kBlocks);  // most recently used first
};

}  // namespace toolbox
