// Small pieces of files without a system call for each.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <span>

#include "toolbox/disk/byte_source.h"

namespace toolbox {

// Keeps the blocks of its sources that were asked for last and often. A piece in a block asked for
// only a few times is read alone: samples strewn over a file must not cost the file.
class BlockCache {
 public:
  // As source.Read. `source` must live until Forget.
  void Read(const ByteSource& source, std::uint64_t at, std::span<std::uint8_t> into);
  // Drops every block. A new source may stand where an old one stood.
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
    std::size_t length = 0;  // of what `bytes` holds: nothing until asked for often
    std::unique_ptr<std::uint8_t[]> bytes;
  };

  Block& Find(const ByteSource& source, std::uint64_t index);
  static void Load(Block& block);

  std::list<Block> blocks_ = std::list<Block>(kBlocks);  // the one used last stands first
};

}  // namespace toolbox
