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

// Reads or writes `value` as a number of type T.
template <class T>
void Number(auto& io, auto& value) {
  auto number = static_cast<T>(value);
  io("number", number);
  value = number;
}

// The same with a type of 0, 4 or 8 bytes. A number without bytes is 0.
void SizedNumber(auto& io, unsigned size, std::uint64_t& value) {
  if (size == 8) {
    Number<std::uint64_t>(io, value);
  } else if (size == 4) {
    Number<std::uint32_t>(io, value);
  } else if (size != 0) {
    throw Malformed("'iloc' has numbers of an unknown width");
  }
}

// The content of an 'iloc'. A reader adds items and extents as it finds them, because a count can
// be damaged; a writer finds them all there.
void Fields(auto& io, ItemLocations& locations) {
  io("version", locations.versionAndFlags);
  const std::uint32_t version = locations.versionAndFlags >> 24;
  if (version > 2) throw Malformed("'iloc' has an unknown version");
  io("sizes", locations.sizes);
  const unsigned sizes = locations.sizes, indexSize = version == 0 ? 0 : sizes & 15;
  const unsigned offsetSize = sizes >> 12, lengthSize = sizes >> 8 & 15, baseSize = sizes >> 4 & 15;
  const auto number = [&](std::uint32_t& value) {
    version == 2 ? Number<std::uint32_t>(io, value) : Number<std::uint16_t>(io, value);
  };
  auto items = static_cast<std::uint32_t>(locations.items.size());
  number(items);
  for (std::uint32_t i = 0; i < items; ++i) {
    if (i == locations.items.size()) locations.items.emplace_back();
    ItemLocations::Item& item = locations.items[i];
    number(item.id);
    if (version != 0) io("method", item.method);
    io("dataReference", item.dataReference);
    SizedNumber(io, baseSize, item.base);
    auto extents = static_cast<std::uint16_t>(item.extents.size());
    io("extents", extents);
    // Extents without bytes would allow a small atom to claim any number of them.
    if (offsetSize + lengthSize + indexSize == 0 && extents > 1) {
      throw Malformed("'iloc' has extents without bytes");
    }
    for (std::uint16_t j = 0; j < extents; ++j) {
      if (j == item.extents.size()) item.extents.emplace_back();
      ItemLocations::Extent& extent = item.extents[j];
      SizedNumber(io, indexSize, extent.index);
      SizedNumber(io, offsetSize, extent.offset);
      SizedNumber(io, lengthSize, extent.length);
    }
  }
}

}  // namespace

std::optional<ItemLocations> ItemLocations::In(ByteSpan meta) {
  if (meta.size() < HeadSize(meta)) return std::nullopt;
  ByteSpan tail;
  for (const AtomView& atom : SplitAtoms(meta.subspan(HeadSize(meta)), &tail)) {
    if (atom.type != kLocations) continue;
    ItemLocations locations;
    FieldReader reader(atom.content);
    InAtom(kLocations, [&] { Fields(reader, locations); });
    return locations;
  }
  return std::nullopt;
}

Bytes ItemLocations::PutInto(ByteSpan meta) const {
  ItemLocations wide = *this;
  const bool hasIndexes = versionAndFlags >> 24 != 0 && (sizes & 15) != 0;
  wide.sizes = hasIndexes ? 0x8888 : 0x8880;
  return Encoded([&](auto& io) {
    io.Append(meta.first(HeadSize(meta)));
    ByteSpan tail;
    bool isPut = false;
    for (const AtomView& atom : SplitAtoms(meta.subspan(HeadSize(meta)), &tail)) {
      if (atom.type == kLocations && !isPut) {
        io.Atom(kLocations, [&] { Fields(io, wide); });
        isPut = true;
      } else {
        io.Append(atom.whole);
      }
    }
    io.Append(tail);
  });
}

}  // namespace toolbox
