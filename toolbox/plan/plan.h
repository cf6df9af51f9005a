// What an output file will have and where, before a byte of it is written.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <variant>
#include <vector>

#include "toolbox/movie/movie.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {

// The samples of a track stay in the files that they are in.
struct StaysInPlace {};

// Consecutive samples of the output, one directly after the other.
struct PackedChunk {
  std::uint64_t sample = 0;  // the first, as the source's table counts
  std::uint32_t count = 0;  // of samples
  std::uint32_t description = 0;  // index in the output
  std::uint64_t size = 0;  // bytes
  std::uint64_t destination = 0;  // bytes from the start of the media data
};
using PackedChunks = std::vector<PackedChunk>;

// Consecutive samples that are copied as they are in their file, among the samples of other tracks.
// The output has all the chunks that they have in the source.
struct KeptStretch {
  std::uint64_t sample = 0;  // the first, as the source's table counts
  std::uint32_t count = 0;  // of samples
  std::uint64_t size = 0;  // bytes from the first sample to the end of the last
  std::uint64_t destination = 0;  // bytes from the start of the media data
  std::uint64_t source = 0;  // where the first sample is in its file
};
using KeptStretches = std::vector<KeptStretch>;

// What becomes of the samples of a track, in their order.
using SamplePlaces = std::variant<StaysInPlace, PackedChunks, KeptStretches>;

// The destination of the data that one 'saio' points to.
struct AuxiliaryPlace {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of the source's rows
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

struct TrackPlan {
  const TrackRecord* source = nullptr;  // whose samples these are
  SamplePlaces places = StaysInPlace{};
  // By the source's index of a description: that in the output.
  std::vector<std::uint32_t> descriptions;
  // What lies beside the samples and is copied with them; nothing: it stays where it is.
  std::optional<std::vector<AuxiliaryPlace>> auxiliary;

  // Calls visit(first sample, count), as the source's table counts, for the samples that are
  // copied.
  template <class Visit>
  void ForEachCopied(Visit&& visit) const {
    const auto each = [&visit](const auto& stretches) {
      for (const auto& stretch : stretches) visit(stretch.sample, stretch.count);
    };
    if (const auto* packed = std::get_if<PackedChunks>(&places)) each(*packed);
    if (const auto* kept = std::get_if<KeptStretches>(&places)) each(*kept);
  }
};

// A packed chunk of the plan.
struct ChunkReference {
  std::uint32_t track = 0, chunk = 0;  // indexes
};

// Where a stretch of the output's media data comes from.
struct CopyRange {
  const DataReference* from = nullptr;
  std::uint64_t at = 0, length = 0;  // bytes
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

// From byte `from` of the movie's own file on, everything moves by `by` bytes.
struct OffsetShift {
  std::uint64_t from = 0;
  std::int64_t by = 0;
  friend bool operator==(const OffsetShift&, const OffsetShift&) = default;
};

enum class FileKind {
  kQuickTime,
  kUnchanged,  // whatever the file is
  kMpeg4,  // ISO/IEC 14496-14
};

struct FilePlan;

// Media data that no file has: made while it is written, and never in memory as a whole.
struct MadeData {
  std::uint64_t size = 0;  // bytes
  // Hands all of them to `append`, piece by piece.
  std::function<void(const FilePlan& plan, const std::function<void(ByteSpan)>& append)> make;
};

// The source movie must outlive its plan.
struct FilePlan {
  std::unique_ptr<MovieRecord> movie;  // as the output will state it
  std::unique_ptr<const MovieRecord> ownSource;  // the source movie, when nobody else keeps it
  std::optional<OtherFile> ownFile;  // what ThisFile means in a range
  std::vector<TrackPlan> tracks;  // one for each track of `movie`
  // The media data, front to back:
  std::vector<CopyRange> blocks;  // the files, or parts of them, that have kept stretches
  std::vector<ChunkReference> order;  // packed chunks
  std::vector<CopyRange> auxiliary;  // what lies beside the samples
  std::vector<MadeData> made;
  std::uint64_t dataSize = 0;  // bytes of all of them

  // How far parts of the movie's own file move, for samples that stay in it; sorted by `from`.
  std::vector<OffsetShift> shifts;
  FileKind kind = FileKind::kQuickTime;

  // Calls visit(CopyRange) for the media data that is copied, front to back. Ranges that continue
  // one another come as one.
  template <class Visit>
  void ForEachRange(Visit&& visit) const;
};

template <class Visit>
void FilePlan::ForEachRange(Visit&& visit) const {
  for (const CopyRange& block : blocks) visit(block);
  CopyRange open;
  for (const ChunkReference& reference : order) {
    const TrackPlan& track = tracks[reference.track];
    const PackedChunk& chunk = std::get<PackedChunks>(track.places)[reference.chunk];
    const MediaRecord& media = *track.source->media;
    std::uint64_t destination = chunk.destination;
    ForEachPiece(media.samples, {chunk.sample, chunk.sample + chunk.count},
                 [&](const SamplePiece& piece) {
                   const DataReference& from = media.ReferenceOf(piece.description);
                   if (open.from == &from && open.at + open.length == piece.offset &&
                       open.destination + open.length == destination) {
                     open.length += piece.size;
                   } else {
                     if (open.length != 0) visit(std::as_const(open));
                     open = {&from, piece.offset, piece.size, destination};
                   }
                   destination += piece.size;
                 });
  }
  if (open.length != 0) visit(std::as_const(open));
  for (const CopyRange& range : auxiliary) visit(range);
}

}  // namespace toolbox
