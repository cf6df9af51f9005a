#include "toolbox/read/file_atoms.h"

#include <algorithm>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kMeta{"meta"};
// Limits the memory that a damaged size can claim.
constexpr std::uint64_t kLargestMeta = 64 << 20;

// Whether atoms of this type are not copied: the writer makes its own file type, movie and media
// data, a preview is dropped, and tables replace fragments.
bool IsMadeForFile(FourCC type) {
  static constexpr FourCC kMade[] = {"ftyp", "moov", "mdat", "wide", "pnot"};
  return BelongsToFragments(type) || std::ranges::find(kMade, type) != std::end(kMade);
}

// Whether `bytes` look like the start of an incomplete atom.
bool StartsAtom(ByteSpan bytes) {
  static constexpr FourCC kTypes[] = {"ftyp", "moov", "mdat", "free", "skip", "wide", "uuid"};
  const FourCC type = FourCCAt(bytes, 4);
  return BelongsToFragments(type) || std::ranges::find(kTypes, type) != std::end(kTypes);
}

}  // namespace

Room RoomIn(const ByteSource& source, const FileAtom& atom) {
  // Padding of zeros reads as an atom without a type.
  static constexpr FourCC kRoom[] = {FourCC{"free"}, FourCC{"skip"}, FourCC{}};
  static constexpr FourCC kOfHeaders[] = {"mvhd", "cmov", "trak", "udta", "meta", "ilst", "hdlr"};
  if (std::ranges::find(kRoom, atom.type) == std::end(kRoom)) return Room::kNone;
  Bytes head(std::min<std::uint64_t>(atom.ContentSize(), 16));
  source.Read(atom.ContentAt(), head);
  // A child of a movie header has its type at byte 4, or at byte 0 if its size was overwritten.
  const auto isIn = [&head](FourCC type) {
    return FourCCAt(head, 0) == type || FourCCAt(head, 4) == type;
  };
  if (std::ranges::any_of(kOfHeaders, isIn)) return Room::kOldHeader;
  return source.IsZero(atom.ContentAt(), atom.ContentSize()) ? Room::kZeros : Room::kNone;
}

std::vector<FileAtom> FindFileAtoms(const ByteSource& source) {
  std::vector<FileAtom> found;
  TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    if (IsMadeForFile(atom->type) || RoomIn(source, *atom) != Room::kNone) continue;
    found.push_back(*atom);
  }
  const std::uint64_t rest = source.Size() - walk.End();
  if (rest != 0 && !StartsAtom(walk.Following()) && !source.IsZero(walk.End(), rest)) {
    found.push_back({{FileAtom::kTrailer, 0, rest}, walk.End()});
  }
  return found;
}

AtomToCopy LoadFileAtom(const FileAtom& atom, const ByteSource& source) try {
  AtomToCopy loaded{atom, {}, std::nullopt};
  if (atom.type != kMeta) return loaded;
  if (atom.size > kLargestMeta) {
    throw Refused{featureUnsupported, "'meta' is too large", source.Path()};
  }
  loaded.content = source.Load(atom.ContentAt(), atom.ContentSize());
  auto items = ItemLocations::In(loaded.content.Span());
  if (items && std::ranges::any_of(items->items, &ItemLocations::Item::IsInFile)) {
    loaded.items = std::move(items);
  }
  return loaded;
} catch (const Malformed& fault) {
  throw Refused{featureUnsupported, fault.reason, source.Path()};
}

}  // namespace toolbox
