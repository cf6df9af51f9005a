#include "toolbox/disk/block_cache.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace toolbox {

void BlockCache::Read(const ByteSource& source, std::uint64_t at, std::span<std::uint8_t> into) {
  Block& block = Find(source, at / kBlockSize);
  if (block.asked < kOften && ++block.asked == kOften) Load(block);

  const std::uint64_t offset = at % kBlockSize;
  if (offset + into.size() <= block.length) {
    std::memcpy(into.data(), block.bytes.get() + offset, into.size());
  } else {
    source.Read(at, into);
  }
}

void BlockCache::Forget() {
  for (Block& block : blocks_) block.source = nullptr;
}

BlockCache::Block& BlockCache::Find(const ByteSource& source, std::uint64_t index) {
  auto block = std::ranges::find_if(blocks_, [&](const Block& candidate) {
    return candidate.index == index && candidate.source == &source;
  });
  if (block == blocks_.end()) {
    block = std::prev(block);
    *block = {.source = &source, .index = index, .bytes = std::move(block->bytes)};
  }
  blocks_.splice(blocks_.begin(), blocks_, block);
  return *block;
}

void BlockCache::Load(Block& block) {
  const std::uint64_t start = block.index * kBlockSize;
  if (start >= block.source->Size()) return;
  const std::uint64_t length = std::min(kBlockSize, block.source->Size() - start);
  if (!block.bytes) block.bytes = std::make_unique_for_overwrite<std::uint8_t[]>(kBlockSize);
  block.source->Read(start, {block.bytes.get(), length});
  block.length = length;
}

}  // namespace toolbox
