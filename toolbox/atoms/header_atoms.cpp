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
  // Some ISO files have a name in the QuickTime form, so the bytes decide, not the component type.
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

}  // namespace toolbox
