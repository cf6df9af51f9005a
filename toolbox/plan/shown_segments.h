// The stretches of media that a track shows, one after the other, if they can be put into one table
// without anything between them.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/movie/track.h"

namespace toolbox {

// How the samples of a track are laid out.
enum class Layout {
  kAsItIs,  // the track keeps its edits
  kPictures,
  kText,
  kPackets,  // compressed sound
  kFrames,  // uncompressed sound: each sample lasts one unit
};

// The layout for the samples of a media, whatever edits show them.
Layout LayoutFor(const MediaRecord& media);

// Media that one edit shows. The edit is the start of the first segment of a track, and `late` and
// `cut` are 0 there.
struct ShownSegment {
  SampleRange samples;  // to decode
  MovieTime start;  // of the edit
  MediaTime shown;  // when the samples start to be shown
  MediaTime until;  // when the edit ends
  MediaTime late;  // how much later the samples start to be shown than the edit
  MediaTime cut;  // how much of the first sample is before the edit
  MediaTime end;  // when the last of the samples stops being shown, by its own duration
};

// What the edits of a track show, in their order. Later segments of sound have only packets that
// are heard, at least in part. Nothing if an edit has a rate other than 1, if media is not shown in
// its own order or twice, or if samples between two segments must be decoded.
std::optional<std::vector<ShownSegment>> SegmentsOf(const TrackRecord& track, Layout layout);

}  // namespace toolbox
