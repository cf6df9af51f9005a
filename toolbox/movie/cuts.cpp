#include "toolbox/movie/cuts.h"

#include <algorithm>

#include "toolbox/refused.h"

namespace toolbox {
namespace {

void CheckScaling(MovieTime from, MovieTime length, MovieTime newLength) {
  if (from.units < 0) throw Refused{invalidTime};
  // A part of length 0 cannot be stretched, and one that becomes 0 long would lose its media.
  if (length.units <= 0 || newLength.units <= 0) throw Refused{invalidDuration};
}

// Prepares a track for an edit that shows all of its media once. Without a delay of reordered
// pictures, every picture is shown until the media has been decoded. Such a track needs no edit
// list in a file.
void ShowAll(TrackRecord& track) {
  track.media->samples = track.media->samples.WithoutDelay();
  std::erase_if(track.siblings, [](const Sibling& sibling) {
    return sibling.type == FourCC{"edts"} && sibling.bytes.empty();
  });
}

}  // namespace

void DeleteSegment(TrackRecord& track, MovieTime from, MovieTime length) {
  if (from.units < 0) throw Refused{invalidTime};
  if (length.units < 0) throw Refused{invalidDuration};
  length = std::min(length, track.edits.Duration() - from);
  if (length.units > 0) track.edits.Delete(from, length, track.TimeClock());
}

void DeleteSegment(MovieRecord& movie, MovieTime from, MovieTime length) {
  if (from.units < 0 || from > movie.Duration()) throw Refused{invalidTime};
  for (const auto& track : movie.tracks) DeleteSegment(*track, from, length);
  const MovieTime end = movie.Duration();
  MovieHeader& header = movie.header;
  for (std::int64_t* time : {&header.previewTime, &header.posterTime}) {
    *time = std::min(*time, end.units);
  }
  header.previewDuration = std::min(header.previewDuration, end.units - header.previewTime);
}

void ScaleSegment(TrackRecord& track, MovieTime from, MovieTime length, MovieTime newLength) {
  CheckScaling(from, length, newLength);
  track.edits.Scale(from, length, newLength, track.TimeClock());
}

void ScaleSegment(MovieRecord& movie, MovieTime from, MovieTime length, MovieTime newLength) {
  CheckScaling(from, length, newLength);
  for (const auto& track : movie.tracks) ScaleSegment(*track, from, length, newLength);
}

void InsertMedia(TrackRecord& track, std::optional<MovieTime> at, MediaTime mediaTime,
                 MediaTime length, double rate) {
  if (!track.media) throw Refused{noMediaHandler};
  const MediaTime end = track.media->samples.Duration();
  if ((at && at->units < 0) || mediaTime.units < 0 || mediaTime > end) throw Refused{invalidTime};
  if (length.units < 0 || rate <= 0) throw Refused{invalidDuration};
  if (length.units == 0) return;
  if (track.edits.Edits().empty() && mediaTime == MediaTime{} && length == end && rate == 1.0 &&
      !track.media->IsProtected()) {
    ShowAll(track);
  }
  const Clock clock = track.TimeClock();
  if (!at) return track.edits.AppendMedia(mediaTime, length, rate, clock);
  EditList edits;
  edits.AppendMedia(mediaTime, length, rate, clock);
  track.edits.Insert(edits, *at, edits.Duration(), clock);
}

void SetOffset(TrackRecord& track, MovieTime offset) {
  if (offset.units < 0) throw Refused{invalidTime};
  const Clock clock = track.TimeClock();
  track.edits.Delete({}, track.edits.Offset(), clock);
  track.edits.Insert({}, {}, offset, clock);
}

}  // namespace toolbox
