#include "toolbox/atoms/item_locations.h"

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/framing.h"

namespace toolbox {
namespace {

constexpr FourCC kLocations{"iloc"};

// The number of bytes before the children. ISO has version and flags there, QuickTime has nothing.
std::size_t HeadSize(ByteSpan meta) {
  const auto frame = ReadFrame(meta, meta.size());
  return frame && frame->type == FourCC{"hdlr"} ? 0 : 4;
}

// Reads a number of 0, 4 or 8 bytes; without bytes it is 0.
std::uint64_t TakeNumber(FieldReader& io, unsigned size) {
  std::uint64_t wide = 0;
  std::uint32_t narrow = 0;
  if (size == 8) {
    io("number", wide);
  } else if (size == 4) {
    io("number", narrow);
  } else if (size != 0) {
    throw Malformed("'iloc' has numbers of an unknown width");
  }
  return wide + narrow;
}

ItemLocations Read(ByteSpan content) {
  FieldReader io(content);
  ItemLocations locations;
  std::uint16_t sizes = 0, narrow = 0;
  std::uint32_t count = 0;
  io("version", locations.flags);
  locations.version = static_cast<std::uint8_t>(locations.flags >> 24);
  locations.flags &= 0xFFFFFF;
  if (locations.version > 2) throw Malformed("'iloc' has an unknown version");
  io("sizes", sizes);
  const unsigned offsetSize = sizes >> 12, lengthSize = sizes >> 8 & 15, baseSize = sizes >> 4 & 15;
  const unsigned indexSize = locations.version == 0 ? 0 : sizes & 15;
  locations.hasIndexes = indexSize != 0;
  const auto number = [&](bool isWide) {
    if (isWide) {
      io("number", count);
      return count;
    }
    io("number", narrow);
    return std::uint32_t{narrow};
  };
  for (std::uint32_t items = number(locations.version == 2); items != 0; --items) {
    ItemLocations::Item& item = locations.items.emplace_back();
    item.id = number(locations.version == 2);
    if (locations.version != 0) io("method", item.method);
    io("dataReference", item.dataReference);
    item.base = TakeNumber(io, baseSize);
    std::uint16_t extents = 0;
    io("extents", extents);
    // Extents without bytes would allow a small atom to claim any number of them.
    if (offsetSize + lengthSize + indexSize == 0 && extents > 1) {
      throw Malformed("'iloc' has extents without bytes");
    }
    for (; extents != 0; --extents) {
      ItemLocations::Extent& extent = item.extents.emplace_back();
      extent.index = TakeNumber(io, indexSize);
      extent.offset = TakeNumber(io, offsetSize);
      extent.length = TakeNumber(io, lengthSize);
    }
  }
  return locations;
}

// Writes the whole 'iloc'. Offsets and lengths have 64 bits, so the size of the atom is known
// before they are.
void Put(auto& io, const ItemLocations& locations) {
  io.Atom(kLocations, [&] {
    io("version", std::uint32_t{locations.version} << 24 | locations.flags);
    io("sizes", static_cast<std::uint16_t>(locations.hasIndexes ? 0x8888 : 0x8880));
    const auto number = [&](std::size_t value) {
      if (locations.version == 2) {
        io("number", static_cast<std::uint32_t>(value));
      } else {
        io("number", static_cast<std::uint16_t>(value));
      }
    };
    number(locations.items.size());
    for (const ItemLocations::Item& item : locations.items) {
      number(item.id);
      if (locations.version != 0) io("method", item.method);
      io("dataReference", item.dataReference);
      io("base", item.base);
      io("extents", static_cast<std::uint16_t>(item.extents.size()));
      for (const ItemLocations::Extent& extent : item.extents) {
        if (locations.hasIndexes) io("index", extent.index);
        io("offset", extent.offset);
        io("length", extent.length);
      }
    }
  });
}

}  // namespace

std::optional<ItemLocations> ItemLocations::In(ByteSpan meta) {
  if (meta.size() < HeadSize(meta)) return std::nullopt;
  ByteSpan tail;
  for (const AtomView& atom : SplitAtoms(meta.subspan(HeadSize(meta)), &tail)) {
    if (atom.type == kLocations) return InAtom(kLocations, [&] { return Read(atom.content); });
  }
  return std::nullopt;
}

Bytes ItemLocations::PutInto(ByteSpan meta) const {
  return Encoded([&](auto& io) {
    io.Append(meta.first(HeadSize(meta)));
    ByteSpan tail;
    bool isPut = false;
    for (const AtomView& atom : SplitAtoms(meta.subspan(HeadSize(meta)), &tail)) {
      if (atom.type == kLocations && !isPut) {
        Put(io, *this);
        isPut = true;
      } else {
        io.Append(atom.whole);
      }
    }
    io.Append(tail);
  });
}

}  // namespace toolbox
