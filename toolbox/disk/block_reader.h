// Small pieces of a source without a system call for each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <span>

#include "toolbox/bytes.h"
#include "toolbox/disk/byte_source.h"

namespace toolbox {

// Keeps the block of a source that was read last.
class BlockReader {
 public:
  // Reads `blockSize` bytes at once, or more when more are asked for.
  explicit BlockReader(std::uint64_t blockSize) : blockSize_(blockSize) {}

  // The bytes [at, at + size) of `source`, fewer where it ends before. They are valid until the
  // next call. Throws as ByteSource::Read.
  ByteSpan At(const ByteSource& source, std::uint64_t at, std::uint64_t size);
  // Drops the block. A new source may have the address of an old one.
  void Forget() { source_ = nullptr; }

 private:
  std::uint64_t blockSize_;
  const ByteSource* source_ = nullptr;
  std::uint64_t start_ = 0;
  Bytes block_;
};

// Keeps several blocks of several sources: those that were asked for last and often. A piece of a
// block that was asked for only a few times is read alone. Otherwise samples that are spread over a
// file would cost the whole file.
class BlockCache {
 public:
  // As source.Read. `source` must live until Forget.
  void Read(const ByteSource& source, std::uint64_t at, std::span<std::uint8_t> into);
  // Drops every block.
  void Forget();

 private:
  static constexpr std::size_t kBlocks = 16;
  static constexpr std::uint64_t kBlockSize = 256 << 10;
  // Reading a block costs as much as some dozens of pieces alone; a run of small samples has
  // hundreds.
  static constexpr int kOften = 8;

  struct Block {
    const ByteSource* source = nullptr;
    std::uint64_t index = 0;
    int asked = 0;
    BlockReader reader{kBlockSize};  // reads nothing until the block is asked for often
  };

  Block& Find(const ByteSource& source, std::uint64_t index);

  std::list<Block> blocks_ = std::list<Block>(kBlocks);  // the one used last is first
};

}  // namespace toolbox
