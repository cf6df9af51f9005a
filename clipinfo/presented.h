// What a track presents: its samples in the order and at the times at which a player shows them.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "clipinfo/hashes.h"
#include "toolbox/movie/track.h"

namespace clipinfo {

// Times of different movies are compared in nanoseconds from the start of the output.
using Nanoseconds = std::int64_t;
inline constexpr std::int64_t kSecond = 1'000'000'000;

Nanoseconds InNanoseconds(std::int64_t units, std::int32_t scale);

// A part of a track that is presented without a break: what one edit shows, or all samples of a
// timeless media (see SampleTable::IsTimeless). The track must outlive it.
struct Stretch {
  const toolbox::TrackRecord* track = nullptr;
  toolbox::Edit edit;  // of rate 1 and no duration if the samples are timeless
  Nanoseconds base = 0;  // where the time line of the edit starts in the output
  std::size_t input = 0;  // index of the movie

  Nanoseconds Start() const;
  Nanoseconds End() const;
};

// What a track shows in [from, from + length), in the units of its movie, moved to start at `base`.
// All timeless samples are included, because a cut keeps them.
std::vector<Stretch> StretchesOf(const toolbox::TrackRecord& track, toolbox::MovieTime from,
                                 toolbox::MovieTime length, Nanoseconds base);

// A sample that is shown, or a packet of sound. A row can also be many frames of uncompressed
// sound.
struct Shown {
  Nanoseconds from = 0, until = 0;
  Piece bytes;
  const toolbox::TrackRecord* track = nullptr;
  std::uint64_t sample = 0;  // the first, as an index in the media
  std::uint32_t frames = 1;  // of uncompressed sound; else 1
  std::uint32_t description = 0;  // index in the media
  std::size_t input = 0;
  bool isSync = true, isPartialSync = false;
  std::uint8_t dependencies = 0;  // ISO/IEC 14496-12 8.6.4
  bool isFirst = false, isLast = false;  // of its stretch
  bool isCut = false;  // the stretch starts inside it
  // Not shown, but an output can show it in a gap before or after the stretch: sound that only lets
  // the decoder start, and pictures after the end of a movie without an edit list. `from` and
  // `until` are the start or the end of the stretch.
  bool isExtra = false;
  bool isTimeless = false;
  bool isPlain = true;  // shown at the rate 1

  const toolbox::SampleDescription& Description() const {
    return track->media->descriptions[description];
  }
};

// Whether the samples of a media are frames of uncompressed sound, each of one size and one media
// unit. A media has many millions of them.
bool AreFrames(const toolbox::MediaRecord& media);

// Goes through what a list of stretches presents. The tables are read block by block.
class Presented {
 public:
  struct Settings {
    bool asFrames = false;  // for AreFrames: rows of many frames
    bool withExtras = false;  // rows that are isExtra too
  };

  // `files` must outlive this object. The stretches are sorted by their starts.
  Presented(std::vector<Stretch> stretches, Settings settings, Files& files);
  ~Presented();

  // The next row, in order; nothing after the last one. Throws Refused: invalidSampleTable (a
  // sample is in no chunk), memFullErr (samples are reordered so much that they cannot be sorted,
  // or that far more are read than shown).
  std::optional<Shown> Next();

  // Reads the rows of one stretch.
  struct Walk {
    virtual ~Walk() = default;
    virtual std::optional<Shown> Next() = 0;
  };

 private:
  std::vector<Stretch> stretches_;
  std::size_t next_ = 0;  // the index of the next stretch
  Settings settings_;
  Files& files_;
  std::uint64_t left_;  // samples that can still be read
  std::unique_ptr<Walk> walk_;
};

}  // namespace clipinfo
