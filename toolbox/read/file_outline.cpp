#include "toolbox/read/file_outline.h"

#include <algorithm>
#include <functional>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kMovie{"moov"}, kFree{"free"};

// Whether the atom at `at` has size 0. An AtomFrame has the real size instead, so the four bytes
// are read again.
bool HasNoSize(const ByteSource& source, std::uint64_t at) {
  Bytes size(4);
  source.Read(at, size);
  return std::ranges::none_of(size, std::identity());
}

// Whether the atom is a 'meta' with file offsets. True also if it cannot be read, because it may
// have some.
bool LocatesItems(const ByteSource& source, const FileAtom& atom) try {
  return LoadFileAtom(atom, source).items.has_value();
} catch (const Refused&) {
  return true;
}

}  // namespace

FileOutline ReadOutline(const ByteSource& source) {
  FileOutline outline{.source = &source, .size = source.Size()};
  TopLevelWalk walk(source);
  bool hasMovie = false;
  while (const auto atom = walk.Next()) {
    const FourCC type = atom->type;
    FileAtom asRoom = *atom;
    if (type == kMovie && !hasMovie) {
      hasMovie = true;
      outline.movie = outline.atoms.size();
    } else if (type == kMovie) {  // see Part
      asRoom.type = kFree;
    }
    outline.isFragmented = outline.isFragmented || type == FourCC{"moof"};
    outline.locatesItems = outline.locatesItems || LocatesItems(source, *atom);
    outline.atoms.push_back({*atom, RoomIn(source, asRoom)});
  }
  if (!hasMovie) throw Refused{featureUnsupported, "it has no movie header"};
  outline.end = walk.End();
  outline.lastHasNoSize = HasNoSize(source, outline.atoms.back().at);
  const FourCC cut = FourCCAt(walk.Following(), 4);
  outline.endsInsideFragment = cut == FourCC{"mdat"} || BelongsToFragments(cut);
  outline.endsInsideSave = cut == FourCC{"mdat"} || cut == kMovie;
  return outline;
}

}  // namespace toolbox
