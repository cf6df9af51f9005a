// The places of the GPS data of a dashcam in its file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/fields.h"

namespace toolbox {

// 'gps ', a child of 'moov'. It locates blocks of data between the samples, one for each second. A
// block is usually a 'free' atom whose content starts with "GPS ". No standard describes the atom;
// this is how dashcams write it and how exiftool reads it.
struct GpsLocations {
  static constexpr FourCC kType{"gps "};
  struct Block {
    static constexpr std::size_t kSize = 8;
    // In bytes; the offset counts from the start of the file. Size 0: the entry is not in use.
    std::uint32_t offset = 0, size = 0;

    static void Fields(auto& io, auto& block) {
      io("offset", block.offset);
      io("size", block.size);
    }
    friend bool operator==(const Block&, const Block&) = default;
  };

  std::uint64_t head = 0;  // a version and a count or a date; makers differ
  Bytes table;  // encoded blocks

  static void Fields(auto& io, auto& locations) {
    io("head", locations.head);
    io.Rest("table", locations.table);
  }
  // The decoded blocks. Nothing if the table has an incomplete one.
  std::optional<std::vector<Block>> Blocks() const;
  void SetBlocks(std::span<const Block> blocks);
};

}  // namespace toolbox
