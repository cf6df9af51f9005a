// Reads the samples of a stretch from the tables of its media, block by block.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "clipinfo/hashes.h"
#include "clipinfo/presented.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/movie/sample_table.h"
#include "toolbox/refused.h"

namespace clipinfo {

// The times of one stretch on both time lines.
class StretchTimes {
 public:
  explicit StretchTimes(const Stretch& stretch);

  // The media that is shown.
  toolbox::MediaTime From() const { return edit_.mediaTime; }
  toolbox::MediaTime Until() const { return until_; }
  Nanoseconds Start() const { return start_; }
  Nanoseconds End() const { return end_; }
  bool IsPlain() const { return edit_.rate == 1.0; }
  // When a media time is shown, limited to the stretch.
  Nanoseconds At(toolbox::MediaTime time) const;

 private:
  toolbox::Edit edit_;
  std::int32_t scale_;
  Nanoseconds start_, end_;
  toolbox::MediaTime until_;
};

// Reads everything that a row has, except its times in the movie. Samples that a packet joins are
// one row.
class SampleReader {
 public:
  struct Entry {
    toolbox::MediaTime shown;
    Shown row;
  };

  // The track of the stretch, and `files`, must outlive this object.
  SampleReader(const Stretch& stretch, Files& files);

  // The entries for `range`, which has whole packets, in the order of the media. They are valid
  // until the next call. Throws as ReadPieces.
  std::vector<Entry>& Read(toolbox::SampleRange range);
  // Calls take(SamplePiece) as toolbox::ForEachPiece does. Throws Refused: invalidSampleTable (a
  // sample is in no chunk).
  template <class Take>
  void ReadPieces(toolbox::SampleRange range, Take&& take) const try {
    CheckLocated(Samples(), range);
    ForEachPiece(Samples(), range, take);
  } catch (toolbox::Refused& fault) {
    if (track_.movie->file) fault.NameFile(track_.movie->file->path.native());
    throw;
  }
  // A row for `piece`.
  Shown RowOf(const toolbox::SamplePiece& piece) const;
  const toolbox::SampleTable& Samples() const { return track_.media->samples; }

 private:
  void AddEntries(toolbox::SamplePiece piece);
  // The entries of the samples [from, to).
  std::span<Entry> EntriesOf(std::uint64_t from, std::uint64_t to);
  // These add to the entries what other columns have for the part of a slice.
  void AddOffsets(const toolbox::SampleSlice& part);
  void AddSync(const toolbox::SampleSlice& part);
  void AddDependencies(const toolbox::SampleSlice& part);

  const toolbox::TrackRecord& track_;
  std::size_t input_;
  toolbox::TimeCursor times_;
  bool hasPackets_;
  std::vector<std::uint32_t> fileNumbers_;  // by description
  std::vector<Entry> entries_;
};

}  // namespace clipinfo
