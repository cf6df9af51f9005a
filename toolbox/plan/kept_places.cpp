#include "toolbox/plan/kept_places.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <iterator>
#include <queue>
#include <set>
#include <tuple>
#include <utility>

#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// Visits the pieces of samples one after the other, when it is asked for the next one.
class PieceWalk {
 public:
  PieceWalk(const SampleTable& samples, SampleRange range) : samples_(samples), left_(range) {
    Next();
  }
  // The current piece; null after the last one.
  const SamplePiece* Piece() const { return at_ < pieces_.size() ? &pieces_[at_] : nullptr; }
  void Next() {
    constexpr std::uint64_t kSamplesAtOnce = 4096;
    if (++at_ < pieces_.size() || left_.IsEmpty()) return;
    SampleRange next{left_.from, std::min(left_.to, left_.from + kSamplesAtOnce)};
    next.to = std::min(left_.to, WholePackets(samples_, next).to);
    left_.from = next.to;
    pieces_.clear();
    at_ = 0;
    ForEachPiece(samples_, next, [this](const SamplePiece& piece) { pieces_.push_back(piece); });
  }

 private:
  const SampleTable& samples_;
  SampleRange left_;  // samples that are not in `pieces_` yet
  std::vector<SamplePiece> pieces_;
  std::size_t at_ = 0;
};

}  // namespace

std::string KeptPlaces::FileOf(const DataReference& reference) const {
  if (const auto* other = std::get_if<OtherFile>(&reference)) return other->path.native();
  if (std::holds_alternative<ThisFile>(reference) && plan_.ownFile) {
    return plan_.ownFile->path.native();
  }
  return {};
}

bool KeptPlaces::Add(std::size_t track, const UsedSamples& part, std::span<const SourceEnd> ends) {
  const TrackRecord& source = *plan_.tracks[track].source;
  const MediaRecord& media = *source.media;
  if (part.samples.Count() > UINT32_MAX) return false;  // a KeptStretch counts in 32 bits
  bool isInOrder = true;
  // These are not members of the extent, because the loop over millions of pieces is faster if they
  // are in registers.
  std::uint64_t filled = 0, end = 0;
  std::uint32_t samples = 0;
  const auto close = [&] {
    if (samples == 0) return;
    Extent& open = extents_.back();
    open.end = end;
    open.filled = std::exchange(filled, 0);
    open.stretch.count = std::exchange(samples, 0);
  };
  const SourceEnd* fileEnd = nullptr;
  bool isInMemory = false;
  std::uint32_t description = UINT32_MAX;
  ForEachPiece(media.samples, part.samples, [&](const SamplePiece& piece) {
    if (piece.description != description || (isInMemory && piece.offset != end)) {
      description = piece.description;
      fileEnd = &ends[description];
      const DataReference& from = media.ReferenceOf(description);
      isInMemory = std::holds_alternative<InMemory>(from);
      if (samples == 0 || extents_.back().from != &from || isInMemory) {
        close();
        Extent& open = extents_.emplace_back();
        // The same bytes of memory can be used many times, for example for silence. So each use
        // counts as a file of its own. No path contains a null character.
        open.file = isInMemory ? '\0' + std::to_string(extents_.size()) : FileOf(from);
        open.from = &from;
        open.track = track;
        open.shown = FirstShown(source, part, piece.sample);
        open.begin = end = open.stretch.source = piece.offset;
        open.stretch.sample = piece.sample;
        isInOrder = isInOrder && !open.file.empty();
      }
    }
    fileEnd->Check(piece.offset, piece.size);
    isInOrder = isInOrder && piece.offset >= end;
    end = piece.offset + piece.size;
    filled += piece.size;
    samples += piece.count;
  });
  close();
  return isInOrder;
}

std::uint64_t KeptPlaces::Bytes() const {
  std::uint64_t bytes = 0;
  for (const Extent& extent : extents_) bytes += extent.filled;
  return bytes;
}

std::vector<KeptPlaces::Block> KeptPlaces::MakeBlocks() {
  // Extents of one file that touch or overlap become one block.
  std::vector<Extent*> sorted;
  for (Extent& extent : extents_) sorted.push_back(&extent);
  std::ranges::sort(sorted, {},
                    [](const Extent* extent) { return std::tie(extent->file, extent->begin); });
  std::vector<Block> blocks;
  const std::string* file = nullptr;
  for (Extent* extent : sorted) {
    const bool continues = file != nullptr && *file == extent->file &&
                           extent->begin <= blocks.back().range.at + blocks.back().range.length;
    if (!continues) blocks.push_back({{extent->from, extent->begin, 0, 0}, extent->shown});
    file = &extent->file;
    Block& block = blocks.back();
    block.range.length = std::max(block.range.length, extent->end - block.range.at);
    block.shown = std::min(block.shown, extent->shown);
    block.filled += extent->filled;
    block.extents.push_back(extent);
  }
  return blocks;
}

bool KeptPlaces::IsFull(const Block& block) const {
  if (block.filled != block.range.length) return false;
  // Two tracks of one kind can use the same samples. Then as many other bytes can be unused.
  std::set<std::pair<FourCC, std::size_t>> tracks;  // with the kind of their media
  for (const Extent* extent : block.extents) {
    tracks.emplace(plan_.tracks[extent->track].source->media->Type(), extent->track);
  }
  const auto sameKind = [](const auto& a, const auto& b) { return a.first == b.first; };
  return std::ranges::adjacent_find(tracks, sameKind) == tracks.end();
}

bool KeptPlaces::SplitBlock(const Block& block, std::vector<Extent>& parts) const {
  // With more gaps than this, the parts are so small that new chunks are copied faster.
  constexpr std::uint64_t kFreeGaps = 8, kBytesForEachGap = 1 << 20;
  std::uint64_t gapsLeft = kFreeGaps + block.range.length / kBytesForEachGap;
  constexpr std::size_t kNone = SIZE_MAX;
  struct Walk {
    const Extent* whole;
    PieceWalk pieces;
    std::size_t open = kNone;  // the part that the next piece continues, as an index of `parts`
  };
  std::vector<Walk> walks;
  using Next = std::pair<std::uint64_t, std::size_t>;  // offset of its next piece, index of a walk
  std::priority_queue<Next, std::vector<Next>, std::greater<>> order;
  for (const Extent* extent : block.extents) {
    const std::uint64_t first = extent->stretch.sample;
    walks.push_back({extent, PieceWalk(plan_.tracks[extent->track].source->media->samples,
                                       {first, first + extent->stretch.count})});
    order.emplace(extent->begin, walks.size() - 1);
  }
  // The pieces of all walks in the order of the file.
  std::uint64_t end = block.range.at;
  while (!order.empty()) {
    const std::size_t index = order.top().second;
    order.pop();
    Walk& walk = walks[index];
    const SamplePiece* piece = walk.pieces.Piece();
    if (piece->offset < end) return false;
    if (piece->offset > end) {
      if (gapsLeft-- == 0) return false;
      for (Walk& other : walks) other.open = kNone;
    }
    if (walk.open == kNone) {
      walk.open = parts.size();
      Extent& part = parts.emplace_back(*walk.whole);
      part.begin = piece->offset;
      part.filled = 0;
      part.stretch = {.sample = piece->sample, .source = piece->offset};
    }
    Extent& part = parts[walk.open];
    part.filled += piece->size;
    part.stretch.count += piece->count;
    part.end = end = piece->offset + piece->size;
    walk.pieces.Next();
    if (walk.pieces.Piece() != nullptr) order.emplace(walk.pieces.Piece()->offset, index);
  }
  return true;
}

bool KeptPlaces::SplitAtGaps(const std::vector<Block>& blocks) {
  std::vector<Extent> parts;
  for (const Block& block : blocks) {
    if (IsFull(block)) {
      for (const Extent* extent : block.extents) parts.push_back(*extent);
    } else if (!SplitBlock(block, parts)) {
      return false;
    }
  }
  std::ranges::sort(parts, {},
                    [](const Extent& part) { return std::pair(part.track, part.stretch.sample); });
  extents_ = std::move(parts);
  return true;
}

std::optional<std::uint64_t> KeptPlaces::PlaceAt(const TrackPlan& track, MovieTime time) const {
  const std::vector<Edit>& edits = track.source->edits.Edits();
  const SampleTable& samples = track.source->media->samples;
  const auto after = std::ranges::upper_bound(edits, time, {}, &Edit::start);
  if (after == edits.begin()) return std::nullopt;
  const Edit& edit = *std::prev(after);
  if (edit.IsEmpty() || edit.End() <= time) return std::nullopt;
  const MediaTime into = track.source->TimeClock().Shown(time - edit.start, edit.rate);
  const std::uint64_t sample = samples.SampleAt(edit.mediaTime + into);
  const auto* stretches = std::get_if<KeptStretches>(&track.places);
  if (stretches == nullptr) return std::nullopt;
  const auto next = std::ranges::upper_bound(*stretches, sample, {}, &KeptStretch::sample);
  if (next == stretches->begin()) return std::nullopt;
  const KeptStretch& holder = *std::prev(next);
  if (sample >= holder.sample + holder.count) return std::nullopt;
  std::uint64_t place = 0;
  ForEachPiece(samples, {sample, sample + 1}, [&](const SamplePiece& piece) {
    place = holder.destination + (piece.offset - holder.source);
  });
  return place;
}

bool KeptPlaces::IsInterleaved() const {
  // Everything shown at one time must be before everything shown two seconds later. A long movie is
  // checked only at some times.
  constexpr std::int64_t kSeconds = 2, kMaxLooks = 2000;
  const MovieTime apart{kSeconds * plan_.movie->header.scale};
  const MovieTime length = plan_.movie->Duration();
  const MovieTime step = std::max(apart, MovieTime{length.units / kMaxLooks});
  std::uint64_t farthest = 0;
  // Whether everything shown at `time` is after all places that were checked before.
  const auto isAfter = [&](MovieTime time) {
    std::uint64_t next = farthest;
    for (const TrackPlan& track : plan_.tracks) {
      if (!track.source->media) continue;
      const FourCC type = track.source->media->Type();
      if (type != FourCC{"vide"} && type != FourCC{"soun"}) continue;
      const auto place = PlaceAt(track, time);
      if (!place) continue;
      if (*place < farthest) return false;
      next = std::max(next, *place);
    }
    farthest = next;
    return true;
  };
  for (MovieTime time; time < length; time = time + step) {
    if (!isAfter(time)) return false;
    if (step != apart && !isAfter(time + apart)) return false;
  }
  return true;
}

bool KeptPlaces::Take() {
  std::vector<Block> blocks = MakeBlocks();
  // Unused bytes are not copied: they may be what the user has cut off.
  if (!std::ranges::all_of(blocks, [this](const Block& block) { return IsFull(block); })) {
    if (!SplitAtGaps(blocks)) return false;
    blocks = MakeBlocks();
  }
  std::ranges::stable_sort(blocks, {}, &Block::shown);
  std::uint64_t size = plan_.dataSize;
  for (Block& block : blocks) {
    size += plan_.UnusedBefore(size, block.range.at, block.range.at + block.range.length);
    block.range.destination = size;
    for (Extent* extent : block.extents) {
      extent->stretch.destination = size + (extent->begin - block.range.at);
      extent->stretch.size = extent->end - extent->begin;
    }
    size += block.range.length;
  }
  for (const Extent& extent : extents_) {
    SamplePlaces& places = plan_.tracks[extent.track].places;
    if (std::holds_alternative<StaysInPlace>(places)) places = KeptStretches{};
    std::get<KeptStretches>(places).push_back(extent.stretch);
  }
  // PlaceAt needs the stretches in the plan, so this check comes last.
  if (!IsInterleaved()) {
    for (TrackPlan& track : plan_.tracks) track.places = StaysInPlace{};
    return false;
  }
  for (const Block& block : blocks) plan_.blocks.push_back(block.range);
  plan_.dataSize = size;
  return true;
}

}  // namespace toolbox
