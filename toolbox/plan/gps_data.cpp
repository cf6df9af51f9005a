#include "toolbox/plan/gps_data.h"

#include <algorithm>
#include <optional>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/gps_locations.h"
#include "toolbox/atoms/malformed.h"

namespace toolbox {
namespace {

using Block = GpsLocations::Block;

const DataReference kOwnFile = ThisFile{};

// The blocks in use that the atom states.
std::vector<Block> BlocksIn(const Sibling& atom) try {
  const auto content = ContentOf(atom, GpsLocations::kType);
  if (!content) return {};
  auto blocks = Decode<GpsLocations>(*content).Blocks();
  if (!blocks) return {};
  std::erase_if(*blocks, [](const Block& block) { return block.size == 0; });
  return *blocks;
} catch (const Malformed&) {
  return {};
}

// Whether all blocks are in a file of that size, none overlaps another, and together they are so
// small that all of them can be in the first 4 GiB of a new file.
bool AreUsable(std::vector<Block> blocks, std::uint64_t fileSize) {
  constexpr std::uint64_t kLargest = 1 << 30;
  std::ranges::sort(blocks, {}, &Block::offset);
  std::uint64_t end = 0, sum = 0;
  for (const Block& block : blocks) {
    if (block.offset < end) return false;
    end = std::uint64_t{block.offset} + block.size;
    sum += block.size;
  }
  return end <= fileSize && sum <= kLargest;
}

}  // namespace

std::vector<CopyRange> FindGpsData(const MovieRecord& movie, std::uint64_t fileSize) {
  const Sibling* atom = FindSibling(movie.siblings, GpsLocations::kType);
  if (atom == nullptr) return {};
  const std::vector<Block> blocks = BlocksIn(*atom);
  std::vector<CopyRange> found;
  if (!AreUsable(blocks, fileSize)) return found;
  for (const Block& block : blocks) found.push_back({&kOwnFile, block.offset, block.size, 0});
  return found;
}

bool SetGpsOffsets(Siblings& siblings, std::span<const std::uint64_t> offsets) {
  if (std::ranges::any_of(offsets, [](std::uint64_t offset) { return offset > UINT32_MAX; })) {
    return false;
  }
  const Sibling* found = FindSibling(siblings, GpsLocations::kType);
  auto locations = Decode<GpsLocations>(ContentOf(*found, GpsLocations::kType).value());
  std::vector<Block> blocks = locations.Blocks().value();
  auto offset = offsets.begin();
  for (Block& block : blocks) {
    if (block.size != 0) block.offset = static_cast<std::uint32_t>(*offset++);
  }
  locations.SetBlocks(blocks);
  siblings[static_cast<std::size_t>(found - siblings.data())] = SiblingOf(locations);
  return true;
}

}  // namespace toolbox
