// The locations of the items of a 'meta' in the file. Items are data that belongs to no track, such
// as still pictures.
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
    std::uint16_t method = 0;  // 0: offsets are in the file; always 0 in version 0
    std::uint16_t dataReference = 0;  // number; 0: this file
    std::uint64_t base = 0;
    std::vector<Extent> extents;

    // True if the offsets are relative to the start of the file that contains the atom. They change
    // when the data of the file moves.
    bool IsInFile() const { return (method & 0xF) == 0 && dataReference == 0; }
  };

  std::uint32_t versionAndFlags = 0;
  std::uint16_t sizes = 0;  // of the numbers in bytes, 4 bits each: offset, length, base, index
  std::vector<Item> items;

  // Reads the locations from `meta`, the content of a 'meta'. Returns nothing if it has no 'iloc'.
  // Throws Malformed.
  static std::optional<ItemLocations> In(ByteSpan meta);
  // Returns a copy of `meta`, the content of a 'meta', with these locations in place of its first
  // 'iloc'. Offsets and lengths get 64 bits, so the size of the atom is known before they are.
  Bytes PutInto(ByteSpan meta) const;
};

}  // namespace toolbox
