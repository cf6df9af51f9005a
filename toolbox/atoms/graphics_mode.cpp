#include "toolbox/atoms/graphics_mode.h"

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/framing.h"

namespace toolbox {

void SetGraphicsMode(Siblings& mediaInformation, std::uint16_t mode,
                     const std::array<std::uint16_t, 3>& opColor) {
  // Both atoms start with the same fields: size, type, version and flags, mode, colour.
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
