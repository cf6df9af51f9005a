#include "toolbox/plan/shown_segments.h"

#include <algorithm>

#include "toolbox/movie/presentation.h"
#include "toolbox/plan/empty_samples.h"
#include "toolbox/plan/sound_packets.h"
#include "toolbox/plan/used_samples.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"};

// When a sample stops being shown, by its own duration.
MediaTime OwnEnd(const SampleTable& samples, std::uint64_t sample) {
  const SampleSlice& slice = samples.SliceOf(sample);
  const std::uint32_t row = slice.RowOf(sample);
  return slice.ShownAt(row) + MediaTime{slice.rows->DurationOf(row)};
}

// Sets the start of a segment that has all samples its edit needs. Returns false if a sample that
// is not shown is one of these. Because offsets have bounds, the loop ends after a few samples; so
// do those of EndWithShown and FindEnd.
bool StartWithShown(const SampleTable& samples, ShownSegment& segment) {
  const std::uint64_t first = segment.samples.from;
  const MediaTime starts = ShownAt(samples, first), smallest{samples.Offsets().smallest};
  MediaTime earliest = starts;
  for (std::uint64_t i = first + 1; i < segment.samples.to; ++i) {
    if (samples.TimeOf(i) + smallest >= std::max(earliest, segment.shown)) break;
    const MediaTime shown = ShownAt(samples, i);
    if (shown < segment.shown) return false;
    earliest = std::min(earliest, shown);
  }
  if (starts < segment.shown) {
    segment.cut = segment.shown - starts;
  } else {
    segment.late = earliest - segment.shown;
    segment.shown = earliest;
  }
  return true;
}

// Removes samples at the end that are not shown. Returns false if others that are not shown are
// needed.
bool EndWithShown(const SampleTable& samples, ShownSegment& segment) {
  const MediaTime largest{samples.Offsets().largest};
  std::uint64_t& to = segment.samples.to;
  while (to > segment.samples.from && ShownAt(samples, to - 1) >= segment.until) --to;
  for (std::uint64_t i = to; i-- > segment.samples.from;) {
    if (samples.TimeOf(i) + largest < segment.until) break;
    if (ShownAt(samples, i) >= segment.until) return false;
  }
  return to > segment.samples.from;
}

// Sets the end of the last sample of the segment.
void FindEnd(const SampleTable& samples, ShownSegment& segment) {
  const MediaTime largest{samples.Offsets().largest};
  MediaTime last{INT64_MIN};
  for (std::uint64_t i = segment.samples.to; i-- > segment.samples.from;) {
    if (samples.TimeOf(i) + largest < last) break;
    const MediaTime shown = ShownAt(samples, i);
    if (shown > last) segment.end = OwnEnd(samples, i);
    last = std::max(last, shown);
  }
}

}  // namespace

Layout LayoutFor(const MediaRecord& media) {
  const auto areAll = [&media](auto&& is) {
    return std::ranges::all_of(media.descriptions,
                               [&](const SampleDescription& each) { return is(each.bytes); });
  };
  if (media.IsProtected()) return Layout::kAsItIs;
  if (media.Type() == kVideo) return Layout::kPictures;
  if (areAll([](ByteSpan entry) { return EmptyText(entry).has_value(); })) return Layout::kText;
  if (media.Type() != kSound || !media.samples.Offsets().AreZero()) return Layout::kAsItIs;
  if (areAll(NeedsOnePacketBefore)) return Layout::kPackets;
  const bool areFrames = std::ranges::all_of(media.samples.Slices(), [](const SampleSlice& slice) {
    const Table<TimeRun>& times = slice.rows->times;
    return times.size() == 1 && times.front().delta == 1;
  });
  const auto isUncompressed = [](ByteSpan entry) { return SilentByte(entry).has_value(); };
  return areFrames && areAll(isUncompressed) ? Layout::kFrames : Layout::kAsItIs;
}

std::optional<std::vector<ShownSegment>> SegmentsOf(const TrackRecord& track, Layout layout) {
  const SampleTable& samples = track.media->samples;
  const Clock clock = track.TimeClock();
  const bool isSound = layout == Layout::kPackets || layout == Layout::kFrames;
  std::vector<ShownSegment> segments;
  for (const Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty()) continue;
    if (edit.rate != 1.0) return std::nullopt;
    const MediaTime until = edit.mediaTime + clock.Shown(edit.duration, 1.0);
    const bool isFirst = segments.empty(), isLast = &edit == &track.edits.Edits().back();
    // Later segments of sound have no packets that are not shown.
    ShownSegment segment{isSound && !isFirst ? SamplesShownIn(samples, edit.mediaTime, until)
                                             : SamplesFor(track, edit).samples,
                         edit.start, edit.mediaTime, until};
    if (segment.samples.IsEmpty()) continue;
    if (!isFirst && segment.samples.from < segments.back().samples.to) return std::nullopt;
    if (!isFirst && !StartWithShown(samples, segment)) return std::nullopt;
    if (!isLast && !EndWithShown(samples, segment)) return std::nullopt;
    FindEnd(samples, segment);
    segments.push_back(segment);
  }
  return segments;
}

}  // namespace toolbox
