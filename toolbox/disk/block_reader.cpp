#include "toolbox/disk/block_reader.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

namespace toolbox {

std::uint64_t BlockReader::Load(const ByteSource& source, std::uint64_t at, std::uint64_t size) {
  if (at >= source.Size()) return 0;
  size = std::min(size, source.Size() - at);
  if (Holds(source, at, size)) return size;
  source_ = nullptr;  // the block is not valid if Read throws
  block_.resize(std::min(std::max(blockSize_, size), source.Size() - at));
  source.Read(at, block_);
  start_ = at;
  source_ = &source;
  return size;
}

void BlockCache::Read(const ByteSource& source, std::uint64_t at, std::span<std::uint8_t> into) {
  if (into.empty()) return;
  const std::uint64_t index = at / kBlockSize, start = index * kBlockSize;
  Block& block = Find(source, index);
  // A piece that crosses the end of its block is read directly below.
  if (block.asked < kOften) {
    ++block.asked;
    if (block.asked == kOften) block.reader.At(source, start, kBlockSize);
  }

  if (block.asked == kOften && at + into.size() <= start + kBlockSize) {
    const ByteSpan piece = block.reader.At(source, at, into.size());
    if (piece.size() == into.size()) {
      // std::ranges::copy would be slower: GCC makes a loop of it here, which took a tenth of the
      // time of a long join.
      std::memcpy(into.data(), piece.data(), piece.size());
      return;
    }
  }
  source.Read(at, into);
}

void BlockCache::Forget() {
  for (Block& block : blocks_) {
    block.source = nullptr;
    block.reader.Forget();
  }
}

BlockCache::Block& BlockCache::Find(const ByteSource& source, std::uint64_t index) {
  const auto isWanted = [&](const Block& candidate) {
    return candidate.index == index && candidate.source == &source;
  };
  if (isWanted(blocks_.front())) return blocks_.front();
  auto block = std::ranges::find_if(blocks_, isWanted);
  if (block == blocks_.end()) {
    // Reuse the block that was used longest ago, and the memory of its reader.
    block = std::prev(block);
    *block = {.source = &source, .index = index, .reader = std::move(block->reader)};
  }
  blocks_.splice(blocks_.begin(), blocks_, block);
  return *block;
}

}  // namespace toolbox
