// The plan of an output file: its contents and their places, before anything is written.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "toolbox/movie/movie.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {

// The samples of a track are not copied. They stay in their files.
struct StaysInPlace {};

// A chunk of the output: consecutive samples without a gap.
struct PackedChunk {
  std::uint64_t sample = 0;  // the first, as the source's table counts
  std::uint32_t count = 0;  // of samples
  std::uint32_t description = 0;  // index in the output
  std::uint64_t size = 0;  // bytes
  std::uint64_t destination = 0;  // bytes from the start of the media data
};
using PackedChunks = std::vector<PackedChunk>;

// Consecutive samples that keep their order and distances in the file, so samples of other tracks
// can be between them. The output has the same chunks as the source.
struct KeptStretch {
  std::uint64_t sample = 0;  // the first, as the source's table counts
  std::uint32_t count = 0;  // of samples
  std::uint64_t size = 0;  // bytes from the first sample to the end of the last
  std::uint64_t destination = 0;  // bytes from the start of the media data
  std::uint64_t source = 0;  // byte in the source file where the first sample starts
};
using KeptStretches = std::vector<KeptStretch>;

// The places of the samples of a track in the output, in the order of the samples.
using SamplePlaces = std::variant<StaysInPlace, PackedChunks, KeptStretches>;

// The place in the output of the auxiliary information that one 'saio' points to.
struct AuxiliaryPlace {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of the source's rows
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

// The plan of one track. It owns no samples; `source` must outlive it.
struct TrackPlan {
  const TrackRecord* source = nullptr;  // the track that has the samples
  SamplePlaces places = StaysInPlace{};
  // The index of a description in the output, for each index in the source.
  std::vector<std::uint32_t> descriptions;
  // The auxiliary information that is copied with the samples. Nothing: it stays in its file.
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

// Names one packed chunk of the plan.
struct ChunkReference {
  std::uint32_t track = 0, chunk = 0;  // indexes
};

// Bytes of a source that are copied into the media data of the output.
struct CopyRange {
  const DataReference* from = nullptr;
  std::uint64_t at = 0, length = 0;  // bytes
  std::uint64_t destination = 0;  // bytes from the start of the media data
};

// A part of the media data of the output: the bytes [from, to) from its start.
struct DataWindow {
  std::uint64_t from = 0, to = UINT64_MAX;

  // The part of `range` that goes into the window. Its length is 0 if there is none.
  CopyRange PartOf(CopyRange range) const {
    const std::uint64_t end = std::min(to, range.destination + range.length);
    const std::uint64_t skipped = std::max(from, range.destination) - range.destination;
    const std::uint64_t start = range.destination + skipped;
    return {range.from, range.at + skipped, start < end ? end - start : 0, start};
  }
};

// The bytes of the movie's own file from byte `from` up to the next shift move by `by` bytes.
struct OffsetShift {
  std::uint64_t from = 0;
  std::int64_t by = 0;
  friend bool operator==(const OffsetShift&, const OffsetShift&) = default;
};

// The format of the output file.
enum class FileKind {
  kQuickTime,
  kUnchanged,  // the file is updated and keeps its format
  kMpeg4,  // ISO/IEC 14496-14
};

struct FilePlan;

// The end of a source of media data, so that no plan reads beyond it.
struct SourceEnd {
  std::uint64_t size = 0;  // bytes
  std::string file;  // its path; empty for a block of memory

  // Throws Refused (eofErr) if the bytes [at, at + length) are not all before the end.
  void Check(std::uint64_t at, std::uint64_t length) const { CheckEnd(at, length, size, file); }
};

// Media data that is in no file. It is made while it is written and is never in memory as a whole.
struct MadeData {
  std::uint64_t size = 0;  // bytes
  // Passes all bytes in order to `append`, piece by piece. Throws Refused.
  std::function<void(const FilePlan& plan, const std::function<void(ByteSpan)>& append)> make;
};

// The plan of a whole file. The source movie must outlive it. The media data has five parts, and
// all destinations count from its start. Its start in the file is a multiple of `unit`:
//
//   | gps | blocks | packed chunks | auxiliary | made |
//   0                                                 dataSize
struct FilePlan {
  std::unique_ptr<MovieRecord> movie;  // the movie header of the output
  std::unique_ptr<const MovieRecord> ownSource;  // owns the source movie if nobody else does
  std::optional<OtherFile> ownFile;  // the file that ThisFile means in a range
  std::vector<TrackPlan> tracks;  // one for each track of `movie`
  // The media data, in this order:
  std::vector<CopyRange> gps;  // what 'gps ' locates; first, because its offsets have 32 bits
  std::vector<CopyRange> blocks;  // the files, or parts of them, that have kept stretches
  std::vector<ChunkReference> order;  // packed chunks
  std::vector<CopyRange> auxiliary;  // auxiliary information of samples
  std::vector<MadeData> made;
  std::uint64_t dataSize = 0;  // bytes of all of them, and of unused bytes between them
  // The size in bytes of the blocks that the file system can share with the sources. The positions
  // of a large part in source and output differ by a multiple of this. 1: it can share none.
  std::uint64_t unit = 1;
  std::map<std::string, std::uint64_t> files;  // paths of the files with its sources, and sizes

  // The moves of parts of the movie's own file, for samples that stay in it. Sorted by `from`.
  std::vector<OffsetShift> shifts;
  FileKind kind = FileKind::kQuickTime;

  // The number of unused bytes before a copy of the bytes [from, to) of a source that would go to
  // position `at`, so that its blocks can be shared. 0 if that is not worthwhile.
  std::uint64_t UnusedBefore(std::uint64_t at, std::uint64_t from, std::uint64_t to) const {
    constexpr std::uint64_t kMinBytes = 1 << 20, kMinBlocks = 16;
    if (to - from < std::max(kMinBytes, kMinBlocks * unit)) return 0;
    // The difference may wrap below zero, because `unit` is a power of two.
    return (from - at) % unit;
  }

  // Calls visit(CopyRange) for all media data that is copied and whose destination is in `window`,
  // in order of destination. Packed samples that are adjacent in source and output come as one
  // range.
  template <class Visit>
  void ForEachRange(DataWindow window, Visit&& visit) const;

 private:
  const PackedChunk& ChunkOf(const ChunkReference& reference) const {
    return std::get<PackedChunks>(tracks[reference.track].places)[reference.chunk];
  }
};

template <class Visit>
void FilePlan::ForEachRange(DataWindow window, Visit&& visit) const {
  const auto visitAll = [&](const std::vector<CopyRange>& ranges) {
    const auto endsBefore = [&](const CopyRange& range) {
      return range.destination + range.length <= window.from;
    };
    for (auto range = std::ranges::partition_point(ranges, endsBefore);
         range != ranges.end() && range->destination < window.to; ++range) {
      visit(window.PartOf(*range));
    }
  };
  visitAll(gps);
  visitAll(blocks);
  CopyRange open;
  const auto close = [&] {
    const CopyRange part = window.PartOf(open);
    if (part.length != 0) visit(part);
  };
  const auto endsBefore = [&](const ChunkReference& reference) {
    const PackedChunk& chunk = ChunkOf(reference);
    return chunk.destination + chunk.size <= window.from;
  };
  for (auto reference = std::ranges::partition_point(order, endsBefore); reference != order.end();
       ++reference) {
    const PackedChunk& chunk = ChunkOf(*reference);
    if (chunk.destination >= window.to) break;
    const MediaRecord& media = *tracks[reference->track].source->media;
    std::uint64_t destination = chunk.destination;
    ForEachPiece(media.samples, {chunk.sample, chunk.sample + chunk.count},
                 [&](const SamplePiece& piece) {
                   const DataReference& from = media.ReferenceOf(piece.description);
                   if (open.from == &from && open.at + open.length == piece.offset &&
                       open.destination + open.length == destination) {
                     open.length += piece.size;
                   } else {
                     close();
                     open = {&from, piece.offset, piece.size, destination};
                   }
                   destination += piece.size;
                 });
  }
  close();
  visitAll(auxiliary);
}

}  // namespace toolbox
