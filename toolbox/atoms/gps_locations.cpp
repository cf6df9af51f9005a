#include "toolbox/atoms/gps_locations.h"

namespace toolbox {

std::optional<std::vector<GpsLocations::Block>> GpsLocations::Blocks() const {
  if (table.size() % Block::kSize != 0) return std::nullopt;
  std::vector<Block> blocks;
  Rows<Block>(table).ForEach([&blocks](const Block& block) { blocks.push_back(block); });
  return blocks;
}

void GpsLocations::SetBlocks(std::span<const Block> blocks) {
  table.clear();
  for (const Block& block : blocks) AppendRow(table, block);
}

}  // namespace toolbox
