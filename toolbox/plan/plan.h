// What an output file will hold and where, before a byte of it is written.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "toolbox/movie/movie.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {

// Consecutive samples of the output: packed one behind the other, or, with `keepsPlaces`, among the
// samples of other tracks as they lie in their file.
struct OutputChunk {
  std::uint64_t sample = 0;  // the first, as the source's table counts
  std::uint32_t count = 0;  // of samples
  std::uint32_t description = 0;  // index in the output; with keepsPlaces each piece has its own
  std::uint64_t size = 0;  // bytes; with keepsPlaces of all from the first sample to the last
  std::uint64_t destination = 0;  // bytes from the start of the media data
  bool keepsPlaces = false;
  std::uint64_t source = 0;  // with keepsPlaces: where the first sample lies in its file
};

// Where what one 'saio' leads to goes.
struct AuxiliaryPlace {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of the source's rows
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

struct TrackPlan {
  const TrackRecord* source = nullptr;  // whose samples these are
  // Chunks to copy, in the order of the samples. Empty: the samples stay in the files they are in.
  std::vector<OutputChunk> chunks;
  // By the source's index of a description: that in the output.
  std::vector<std::uint32_t> descriptions;
  // What lies beside the samples and is copied with them; nothing: it stays where it is.
  std::optional<std::vector<AuxiliaryPlace>> auxiliary;
};

struct ChunkReference {
  std::uint32_t track = 0, chunk = 0;  // indexes
};

// Where a stretch of the output's media data comes from.
struct CopyRange {
  const DataReference* from = nullptr;
  std::uint64_t at = 0, length = 0;  // bytes
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

// From byte `from` of the movie's own file on, everything will stand `by` bytes further on.
struct OffsetShift {
  std::uint64_t from = 0;
  std::int64_t by = 0;
};

enum class FileKind {
  kQuickTime,
  kUnchanged,  // whatever the file is
  kMpeg4,  // ISO/IEC 14496-14
};

struct FilePlan;

// Media data that no file holds: made while it is written, and never held as a whole.
struct MadeData {
  std::uint64_t size = 0;  // bytes
  // Hands all of them to `append`, piece by piece, each time it is asked.
  std::function<void(const FilePlan& plan, const std::function<void(ByteSpan)>& append)> make;
};

// The source movie must outlive its plan.
struct FilePlan {
  std::unique_ptr<MovieRecord> movie;  // as the output will state it
  std::unique_ptr<const MovieRecord> ownSource;  // the source movie where nobody else keeps it
  std::optional<OtherFile> ownFile;  // what ThisFile means in a range
  std::vector<TrackPlan> tracks;  // one for each track of `movie`
  std::vector<CopyRange> blocks;  // all media data, where chunks keep their places
  std::vector<ChunkReference> order;  // of the chunks in the media data, front to back
  std::vector<CopyRange> auxiliary;  // what lies beside the samples, behind all chunks
  std::vector<MadeData> made;  // media data behind all that is copied
  std::uint64_t dataSize = 0;  // bytes of media data

  // Where the movie's own file goes, for samples that stay in it; sorted. Empty: nowhere.
  std::vector<OffsetShift> shifts;
  FileKind kind = FileKind::kQuickTime;

  // Calls visit(CopyRange) front to back; ranges that continue one another come as one.
  template <class Visit>
  void ForEachRange(Visit&& visit) const;
};

struct FlattenOptions {
  bool onlyEnabled = false;  // leave disabled tracks out
  bool interleave = true;  // else one track behind the other
  // Files that are interleaved already, and in use from end to end, are copied as they lie if they
  // have no more chunks than this: a copy inside the kernel, but all the chunks of the source in
  // the header.
  std::uint64_t mostChunksKept = 0;
};

// A self-contained file: every sample that is shown, and what it needs to be decoded, is copied.
// Throws Refused: couldNotResolveDataRef (media that is not there), eofErr (a file that is shorter
// than its movie says), invalidSampleTable (samples that lie nowhere), featureUnsupported (a part
// of encrypted samples), and what opening a file throws.
FilePlan PlanFlattened(const MovieRecord& movie, FlattenOptions options);

// A reference movie: samples stay where they are, but those held in memory are copied.
// Throws Refused: couldNotResolveDataRef when the movie's own file is unknown.
FilePlan PlanReference(const MovieRecord& movie);

// The movie saved into its own file: samples stay where they are, but those held in memory are
// copied.
FilePlan PlanUpdate(const MovieRecord& movie);

template <class Visit>
void FilePlan::ForEachRange(Visit&& visit) const {
  for (const CopyRange& block : blocks) visit(block);
  CopyRange open;
  for (const ChunkReference& reference : order) {
    const TrackPlan& track = tracks[reference.track];
    const OutputChunk& chunk = track.chunks[reference.chunk];
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
