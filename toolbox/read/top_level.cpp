#include "toolbox/read/top_level.h"

#include <algorithm>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/malformed.h"

namespace toolbox {

std::optional<TopLevelAtom> TopLevelWalk::Next() {
  const auto frame = ReadFrame(Following(), source_.Size() - at_);
  if (!frame) return std::nullopt;
  const TopLevelAtom atom{at_, *frame};
  at_ += atom.atom.size;
  return atom;
}

ByteSpan TopLevelWalk::Content(const TopLevelAtom& atom) {
  return block_.At(source_, atom.at + atom.atom.headerSize, atom.atom.size - atom.atom.headerSize);
}

bool BelongsToFragments(FourCC type) {
  static constexpr FourCC kTypes[] = {"moof", "mfra", "sidx", "ssix", "styp", "emsg", "prft"};
  return std::ranges::find(kTypes, type) != std::end(kTypes);
}

std::optional<TopLevelAtom> FindTopLevel(const ByteSource& source, FourCC type) {
  TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    if (atom->atom.type == type) return atom;
  }
  if (FourCCAt(walk.Following(), 4) == type) {
    throw Malformed("the file ends inside '" + type.Text() + "'");
  }
  return std::nullopt;
}

}  // namespace toolbox
