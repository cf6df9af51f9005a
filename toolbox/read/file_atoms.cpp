#include "toolbox/read/file_atoms.h"

#include <algorithm>
#include <functional>
#include <map>
#include <utility>

#include "toolbox/atoms/item_locations.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"
#include "toolbox/write/write_file.h"

namespace toolbox {
namespace {

constexpr FourCC kMeta{"meta"};
constexpr std::uint64_t kLargestMeta = 64 << 20;

// What belongs to this one file: its kind, its movie and media, and what is made anew with them.
bool IsOwn(FourCC type) {
  static constexpr FourCC kOwn[] = {"ftyp", "moov", "mdat", "wide", "pnot"};
  return BelongsToFragments(type) || std::ranges::find(kOwn, type) != std::end(kOwn);
}

// Whether the first of these bytes are zero, as many as are worth a look.
bool IsZero(const ByteSource& source, std::uint64_t at, std::uint64_t size) {
  constexpr std::uint64_t kLookedAt = 1 << 20;
  Bytes bytes(std::min(size, kLookedAt));
  source.Read(at, bytes);
  return std::ranges::none_of(bytes, std::identity());
}

// Whether `bytes` look like the start of an atom of which the rest is missing.
bool StartsAtom(ByteSpan bytes) {
  static constexpr FourCC kTypes[] = {"ftyp", "moov", "mdat", "free", "skip", "wide", "uuid"};
  if (bytes.size() < 8) return false;
  const FourCC type(FromBigEndian<std::uint32_t>(&bytes[4]));
  return BelongsToFragments(type) || std::ranges::find(kTypes, type) != std::end(kTypes);
}

HeldBytes ContentOf(const ByteSource& source, const FileAtom& meta) {
  Bytes head(std::min<std::uint64_t>(meta.size, 16));
  source.Read(meta.at, head);
  const std::uint64_t headSize = ReadFrame(head, meta.size).value().headerSize;
  if (meta.size > kLargestMeta) throw Refused{featureUnsupported};
  return source.Load(meta.at + headSize, meta.size - headSize);
}

// The locations that count from the start of the file; nothing when there are none.
std::optional<ItemLocations> LocationsIn(ByteSpan meta) try {
  auto locations = ItemLocations::In(meta);
  if (!locations || std::ranges::none_of(locations->items, &ItemLocations::Item::IsInFile)) {
    return std::nullopt;
  }
  return locations;
} catch (const Malformed&) {
  throw Refused{featureUnsupported};
}

// Appends the items that `locations` finds in `source`, and makes it find them there.
void CopyItems(ItemLocations& locations, const ByteSource& source, OutputFile& output) {
  using Range = std::pair<std::uint64_t, std::uint64_t>;  // offset and length
  std::map<Range, std::uint64_t> places;  // in the media data
  std::uint64_t size = 0;
  const auto forEachExtent = [&locations](auto&& visit) {
    for (ItemLocations::Item& item : locations.items) {
      if (!item.IsInFile()) continue;
      for (ItemLocations::Extent& extent : item.extents) visit(item, extent);
    }
  };
  forEachExtent([&](const ItemLocations::Item& item, const ItemLocations::Extent& extent) {
    // Without a length it is all of the file.
    if (extent.length == 0) throw Refused{featureUnsupported};
    if (item.base > source.Size() || extent.offset > source.Size() - item.base ||
        extent.length > source.Size() - item.base - extent.offset) {
      throw Refused{eofErr};
    }
    const Range range(item.base + extent.offset, extent.length);
    if (places.try_emplace(range, size).second) size += extent.length;
  });
  output.Append(DataHead(size));
  const std::uint64_t start = output.Position();
  std::map<std::uint64_t, Range> inOrder;
  for (const auto& [range, place] : places) inOrder.emplace(place, range);
  for (const auto& [place, range] : inOrder) output.Copy(source, range.first, range.second);
  forEachExtent([&](const ItemLocations::Item& item, ItemLocations::Extent& extent) {
    extent.offset = start + places.at({item.base + extent.offset, extent.length});
  });
  for (ItemLocations::Item& item : locations.items) {
    if (item.IsInFile()) item.base = 0;
  }
}

void CopyMeta(const FileAtom& meta, const ByteSource& source, OutputFile& output) {
  const HeldBytes content = ContentOf(source, meta);
  auto locations = LocationsIn(content.Span());
  if (!locations) return output.Copy(source, meta.at, meta.size);
  CopyItems(*locations, source, output);
  const Bytes located = locations->PutInto(content.Span());
  output.Append(Encoded([&](auto& io) { io.Atom(kMeta, [&] { io.Append(located); }); }));
}

}  // namespace

bool IsMereRoom(const ByteSource& source, const TopLevelAtom& atom) {
  // Padding of zeros reads as an atom without a type.
  static constexpr FourCC kRoom[] = {FourCC{"free"}, FourCC{"skip"}, FourCC{}};
  static constexpr FourCC kOfHeaders[] = {"mvhd", "cmov", "trak", "udta", "meta", "ilst", "hdlr"};
  if (std::ranges::find(kRoom, atom.atom.type) == std::end(kRoom)) return false;
  const std::uint64_t at = atom.at + atom.atom.headerSize;
  const std::uint64_t size = atom.atom.size - atom.atom.headerSize;
  Bytes head(std::min<std::uint64_t>(size, 16));
  source.Read(at, head);
  // An atom, or one whose size has been written over.
  return std::ranges::any_of(kOfHeaders,
                             [&head](FourCC type) {
                               const auto isAt = [&](std::size_t place) {
                                 return place + 4 <= head.size() &&
                                        FromBigEndian<std::uint32_t>(&head[place]) == type.value;
                               };
                               return isAt(0) || isAt(4);
                             }) ||
         IsZero(source, at, size);
}

std::vector<FileAtom> FindFileAtoms(const ByteSource& source) {
  std::vector<FileAtom> found;
  TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    if (IsOwn(atom->atom.type) || IsMereRoom(source, *atom)) continue;
    found.push_back({atom->atom.type, atom->at, atom->atom.size});
  }
  const std::uint64_t rest = source.Size() - walk.End();
  if (rest != 0 && !StartsAtom(walk.Following()) && !IsZero(source, walk.End(), rest)) {
    found.push_back({FileAtom::kTrailer, walk.End(), rest});
  }
  return found;
}

bool LocatesItems(const ByteSource& source) {
  return std::ranges::any_of(TopLevelAtoms(source).atoms, [&](const TopLevelAtom& atom) {
    if (atom.atom.type != kMeta) return false;
    const HeldBytes content = ContentOf(source, {kMeta, atom.at, atom.atom.size});
    return LocationsIn(content.Span()).has_value();
  });
}

void CopyFileAtoms(const MovieRecord& movie, OutputFile& output) {
  if (movie.fileAtoms.empty()) return;
  const FileSource source(movie.file.value().path);
  for (const FileAtom& atom : movie.fileAtoms) {
    if (atom.type == kMeta) {
      CopyMeta(atom, source, output);
    } else {
      output.Copy(source, atom.at, atom.size);
    }
  }
  output.Flush();  // while the source is open
}

}  // namespace toolbox
