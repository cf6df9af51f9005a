// Where the items of a 'meta' lie: still pictures and the like beside the tracks of a movie.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// 'iloc', ISO/IEC 14496-12 8.11.3.
struct ItemLocations {
  struct Extent {
    std::uint64_t index = 0, offset = 0, length = 0;
  };
  struct Item {
    std::uint32_t id = 0;
    std::uint16_t method = 0;  // version 0 of the atom has none but 0
    std::uint16_t dataReference = 0;  // number; 0: this file
    std::uint64_t base = 0;
    std::vector<Extent> extents;

    // Whether its offsets count from the start of the file that the atom is in.
    bool IsInFile() const { return (method & 0xF) == 0 && dataReference == 0; }
  };

  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  bool hasIndexes = false;
  std::vector<Item> items;

  // The locations that `meta`, the content of an atom of that name, states; nothing when it states
  // none. Throws Malformed.
  static std::optional<ItemLocations> In(ByteSpan meta);
  // The same content with these locations in place of its own.
  Bytes PutInto(ByteSpan meta) const;
};

}  // namespace toolbox
