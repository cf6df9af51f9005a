#include "toolbox/read/top_level.h"

#include <algorithm>

namespace toolbox {

std::optional<FileAtom> TopLevelWalk::Next() {
  const auto frame = ReadFrame(Following(), source_.Size() - at_);
  if (!frame) return std::nullopt;
  const FileAtom atom{*frame, at_};
  at_ += atom.size;
  return atom;
}

bool BelongsToFragments(FourCC type) {
  static constexpr FourCC kTypes[] = {"moof", "mfra", "sidx", "ssix", "styp", "emsg", "prft"};
  return std::ranges::find(kTypes, type) != std::end(kTypes);
}

}  // namespace toolbox
