#include "toolbox/atoms/header_atoms.h"

#include <algorithm>

namespace toolbox {

Handler NewHandler(FourCC componentType, FourCC subtype, std::string_view name) {
  Handler handler;
  handler.componentType = componentType;
  handler.subtype = subtype;
  handler.name.assign(name.begin(), name.end());
  if (componentType == FourCC()) {
    handler.name.push_back(0);
  } else {
    handler.name.insert(handler.name.begin(), static_cast<std::uint8_t>(name.size()));
  }
  return handler;
}

Handler QuickTimeHandler(Handler handler) {
  if (handler.componentType != FourCC()) return handler;
  handler.componentType = FourCC{"mhlr"};
  Bytes& name = handler.name;
  name.erase(std::ranges::find(name, std::uint8_t{0}), name.end());
  if (name.size() > 255) name.resize(255);
  name.insert(name.begin(), static_cast<std::uint8_t>(name.size()));
  return handler;
}

Handler IsoHandler(const Handler& handler) {
  Handler iso;
  iso.subtype = handler.subtype;
  iso.name = handler.name;
  // Some ISO files have a name in the QuickTime form, so the first byte is checked too, not only
  // the component type.
  const bool isCounted = !iso.name.empty() && iso.name[0] == iso.name.size() - 1;
  if (isCounted || (handler.componentType != FourCC() && !iso.name.empty())) {
    iso.name.erase(iso.name.begin());
  }
  iso.name.erase(std::ranges::find(iso.name, std::uint8_t{0}), iso.name.end());
  if (std::ranges::any_of(iso.name, [](std::uint8_t byte) { return byte < 0x20 || byte > 0x7E; })) {
    iso.name.clear();
  }
  iso.name.push_back(0);
  return iso;
}

DataReferenceEntry DataReferenceEntry::Decoded(ByteSpan atom) {
  DataReferenceEntry entry;
  FieldReader io(atom.subspan(4));
  io("kind", entry.kind);
  io("flags", entry.versionAndFlags);
  io.Rest("data", entry.data);
  return entry;
}

Bytes DataReferenceEntry::Encoded() const {
  return toolbox::Encoded([this](auto& io) {
    io.Atom(kind, [&] {
      io("flags", versionAndFlags);
      io.Append(data);
    });
  });
}

std::optional<Bytes> InitialData(ByteSpan handle) {
  if (handle.size() < 5) return {};
  const std::size_t atoms = std::size_t{5} + handle[4];
  for (handle = handle.subspan(std::min(atoms, handle.size())); handle.size() >= 8;) {
    const std::size_t size = FromBigEndian<std::uint32_t>(handle.data());
    if (size < 8 || size > handle.size()) return {};
    if (FourCC(FromBigEndian<std::uint32_t>(&handle[4])) == FourCC{"data"}) {
      return Bytes(handle.begin() + 8, handle.begin() + static_cast<std::ptrdiff_t>(size));
    }
    handle = handle.subspan(size);
  }
  return {};
}

void SetGraphicsMode(Siblings& mediaInformation, std::uint16_t mode,
                     const std::array<std::uint16_t, 3>& opColor) {
  // Both atoms start with the same fields: size, type, version and flags, mode, color.
  const auto set = [&](std::uint8_t* atom, std::size_t size) {
    if (size < 20) return;
    ToBigEndian(mode, atom + 12);
    for (std::size_t i = 0; i < opColor.size(); ++i) ToBigEndian(opColor[i], atom + 14 + 2 * i);
  };
  for (Sibling& sibling : mediaInformation) {
    if (sibling.type == FourCC{"vmhd"}) set(sibling.bytes.data(), sibling.bytes.size());
    if (sibling.type != FourCC{"gmhd"} || sibling.bytes.size() < 8) continue;
    ByteSpan tail;
    for (const AtomView& child : SplitAtoms(ByteSpan(sibling.bytes).subspan(8), &tail)) {
      const std::ptrdiff_t at = child.whole.data() - sibling.bytes.data();
      if (child.type == FourCC{"gmin"}) set(sibling.bytes.data() + at, child.whole.size());
    }
  }
}

}  // namespace toolbox
