#include "toolbox/read/file_outline.h"

#include <algorithm>
#include <functional>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kMovie{"moov"}, kFree{"free"};

// Whether the atom at `at` has size 0. Frames do not keep this, so the four bytes are read again.
bool HasNoSize(const ByteSource& source, std::uint64_t at) {
  Bytes size(4);
  source.Read(at, size);
  return std::ranges::none_of(size, std::identity());
}

// Whether the file continues after its last complete atom with a part of a fragment: a recording
// that was cut off, or one that still goes on.
bool EndsInsideFragment(const ByteSource& source, std::uint64_t end) {
  if (source.Size() - end < 8) return false;
  Bytes head(8);
  source.Read(end, head);
  const FourCC cut = FourCCAt(head, 4);
  return cut == FourCC{"mdat"} || BelongsToFragments(cut);
}

// As LocatesItems, but true also if the item locations cannot be decoded: they could be file
// offsets.
bool MayLocateItems(const ByteSource& source) try {
  return LocatesItems(source);
} catch (const Refused&) {
  return true;
}

}  // namespace

FileOutline ReadOutline(const ByteSource& source) {
  FileOutline outline{.source = &source, .size = source.Size()};
  const TopLevelLayout layout = TopLevelAtoms(source);
  bool hasMovie = false;
  for (const TopLevelAtom& atom : layout.atoms) {
    TopLevelAtom asRoom = atom;
    if (atom.atom.type == kMovie && !hasMovie) {
      hasMovie = true;
      outline.movie = outline.atoms.size();
    } else if (atom.atom.type == kMovie) {
      asRoom.atom.type = kFree;
    }
    outline.atoms.push_back({atom, IsMereRoom(source, asRoom)});
  }
  if (!hasMovie) throw Refused{featureUnsupported};
  outline.end = layout.end;
  outline.lastHasNoSize = HasNoSize(source, outline.atoms.back().at);
  outline.isFragmented = std::ranges::any_of(outline.atoms, [](const FileOutline::Part& part) {
    return part.atom.type == FourCC{"moof"};
  });
  outline.endsInsideFragment = EndsInsideFragment(source, layout.end);
  outline.locatesItems = MayLocateItems(source);
  return outline;
}

}  // namespace toolbox
