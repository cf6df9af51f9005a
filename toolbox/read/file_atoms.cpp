#include "toolbox/read/file_atoms.h"

#include <algorithm>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kMeta{"meta"};
// A limit on the memory that a broken size can claim.
constexpr std::uint64_t kLargestMeta = 64 << 20;

// Whether the writer makes atoms of this type itself, so that none is copied: file type, movie,
// media data and preview.
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

// The content of `meta`, without size and type. Throws Refused: featureUnsupported (too large).
HeldBytes ContentOf(const ByteSource& source, const FileAtom& meta) {
  Bytes head(std::min<std::uint64_t>(meta.size, 16));
  source.Read(meta.at, head);
  const std::uint64_t headSize = ReadFrame(head, meta.size).value().headerSize;
  if (meta.size > kLargestMeta) throw Refused{featureUnsupported};
  return source.Load(meta.at + headSize, meta.size - headSize);
}

// The item locations in the content of a 'meta'; nothing if none of them is a file offset. Throws
// Refused: featureUnsupported (they cannot be decoded).
std::optional<ItemLocations> LocationsIn(ByteSpan meta) try {
  auto locations = ItemLocations::In(meta);
  if (!locations || std::ranges::none_of(locations->items, &ItemLocations::Item::IsInFile)) {
    return std::nullopt;
  }
  return locations;
} catch (const Malformed&) {
  throw Refused{featureUnsupported};
}

}  // namespace

Room RoomIn(const ByteSource& source, const TopLevelAtom& atom) {
  // Padding of zeros reads as an atom without a type.
  static constexpr FourCC kRoom[] = {FourCC{"free"}, FourCC{"skip"}, FourCC{}};
  static constexpr FourCC kOfHeaders[] = {"mvhd", "cmov", "trak", "udta", "meta", "ilst", "hdlr"};
  if (std::ranges::find(kRoom, atom.atom.type) == std::end(kRoom)) return Room::kNone;
  const std::uint64_t at = atom.at + atom.atom.headerSize;
  const std::uint64_t size = atom.atom.size - atom.atom.headerSize;
  Bytes head(std::min<std::uint64_t>(size, 16));
  source.Read(at, head);
  // A child of a movie header has its type at byte 4, or at byte 0 if its size was overwritten.
  const auto isIn = [&head](FourCC type) {
    return FourCCAt(head, 0) == type || FourCCAt(head, 4) == type;
  };
  if (std::ranges::any_of(kOfHeaders, isIn)) return Room::kOldHeader;
  return source.IsZero(at, size) ? Room::kZeros : Room::kNone;
}

std::vector<FileAtom> FindFileAtoms(const ByteSource& source) {
  std::vector<FileAtom> found;
  TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    if (IsMadeForFile(atom->atom.type) || RoomIn(source, *atom) != Room::kNone) continue;
    found.push_back({atom->atom.type, atom->at, atom->atom.size});
  }
  const std::uint64_t rest = source.Size() - walk.End();
  if (rest != 0 && !StartsAtom(walk.Following()) && !source.IsZero(walk.End(), rest)) {
    found.push_back({FileAtom::kTrailer, walk.End(), rest});
  }
  return found;
}

bool LocatesItems(const ByteSource& source, const TopLevelAtom& atom) try {
  if (atom.atom.type != kMeta) return false;
  const HeldBytes content = ContentOf(source, {kMeta, atom.at, atom.atom.size});
  return LocationsIn(content.Span()).has_value();
} catch (const Refused&) {
  return true;
}

std::vector<AtomToCopy> LoadFileAtoms(const std::vector<FileAtom>& atoms,
                                      const ByteSource& source) {
  std::vector<AtomToCopy> loaded;
  for (const FileAtom& atom : atoms) {
    AtomToCopy& copy = loaded.emplace_back(AtomToCopy{atom, {}, std::nullopt});
    // No other atom has file offsets that the toolbox knows.
    if (atom.type != kMeta) continue;
    copy.content = ContentOf(source, atom);
    copy.items = LocationsIn(copy.content.Span());
  }
  return loaded;
}

}  // namespace toolbox
