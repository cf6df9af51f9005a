// Where the items of a 'meta' are in the file. Items are still pictures and other data that is in
// no track.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/bytes.h"

namespace toolbox {

// 'iloc', ISO/IEC 14496-12 8.11.3. Offsets and lengths are in bytes.
struct ItemLocations {
  // A part of an item. Its offset counts from the base of the item.
  struct Extent {
    std::uint64_t index = 0, offset = 0, length = 0;
  };
  struct Item {
    std::uint32_t id = 0;
    std::uint16_t method = 0;  // always 0 in version 0
    std::uint16_t dataReference = 0;  // number; 0: this file
    std::uint64_t base = 0;
    std::vector<Extent> extents;

    // Whether the base counts from the start of the file that the atom is in.
    bool IsInFile() const { return (method & 0xF) == 0 && dataReference == 0; }
  };

  std::uint8_t version = 0;
  std::uint32_t flags = 0;
  bool hasIndexes = false;  // whether extents have an index
  std::vector<Item> items;

  // The locations in `meta`, which is the content of a 'meta'. Nothing if it has none. Throws
  // Malformed.
  static std::optional<ItemLocations> In(ByteSpan meta);
  // The content `meta` with these locations instead of its first 'iloc'.
  Bytes PutInto(ByteSpan meta) const;
};

}  // namespace toolbox
