#include "toolbox/plan/in_step.h"

#include <algorithm>
#include <set>
#include <span>
#include <utility>
#include <vector>

#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/chapter_tracks.h"
#include "toolbox/plan/empty_samples.h"
#include "toolbox/plan/shown_segments.h"
#include "toolbox/plan/sound_packets.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kText{"text"};
constexpr MediaTime kUnit{1};

// Whether another video track shows something in that time. A picture that is held there could hide
// it.
bool HasOtherPicturesIn(const TrackRecord& track, MovieTime from, MovieTime to) {
  return std::ranges::any_of(track.movie->tracks, [&](const std::unique_ptr<TrackRecord>& other) {
    if (other.get() == &track || !other->IsEnabled() || !other->media) return false;
    if (other->media->Type() != kVideo) return false;
    const std::vector<Edit>& edits = other->edits.Edits();
    auto edit = std::ranges::upper_bound(edits, from, {}, &Edit::End);
    if (edit != edits.end() && edit->IsEmpty()) ++edit;
    return edit != edits.end() && edit->start < to;
  });
}

bool HasOtherPicturesInGaps(const TrackRecord& track) {
  const std::vector<Edit>& edits = track.edits.Edits();
  return std::ranges::any_of(edits, [&](const Edit& edit) {
    return edit.IsEmpty() && edit.start != MovieTime{} &&
           HasOtherPicturesIn(track, edit.start, edit.End());
  });
}

// Puts segments into a new table, one after the other.
class InStep {
 public:
  InStep(TrackRecord& track, std::span<const ShownSegment> segments)
      : track_(track),
        media_(*track.media),
        clock_(track.TimeClock()),
        segments_(segments),
        tick_(std::clamp(clock_.Shown({1}, 1.0, Rounding::kUp), kUnit, MaxTick(clock_))),
        empty_(media_) {}

  // Gives the track the new table and edits. Returns false if it cannot be done: then the track
  // shows what it did, but the media can have descriptions that are not used.
  bool Put(Layout layout) {
    const ShownSegment& first = segments_.front();
    const MediaTime before = media_.samples.TimeOf(first.samples.from);
    if (!Append(media_.samples, first.samples, {})) return false;
    Note(first, MediaTime{} - before);
    start_ = first.shown - before;
    for (const ShownSegment& segment : segments_.subspan(1)) {
      const bool isDone = layout == Layout::kPackets  ? AppendPackets(segment)
                          : layout == Layout::kFrames ? AppendFrames(segment)
                                                      : AppendSeen(segment, layout);
      if (!isDone) return false;
    }
    media_.samples = std::move(table_);
    const MovieTime duration = track_.edits.Duration() - first.start;
    track_.edits = {};
    track_.edits.Append(first.start, Edit::kNothing, 1.0, clock_);
    track_.edits.Append(duration, start_, 1.0, clock_);
    return true;
  }

 private:
  bool AppendSeen(const ShownSegment& segment, Layout layout);
  bool AppendFrames(const ShownSegment& segment);
  bool AppendPackets(const ShownSegment& segment);

  // Appends samples, the first decoded at `time`.
  bool Append(const SampleTable& samples, SampleRange range, MediaTime time) {
    const auto placed = table_.AppendAt(time, samples, range);
    if (!placed) return false;
    const MediaTime later = *placed - time;
    start_ += later;
    end_ += later;
    ownEnd_ += later;
    return true;
  }
  // Appends samples of a segment, shown `by` later than in the old table. The first one starts
  // another `cut` later; the others do not.
  bool Append(const ShownSegment& segment, SampleRange samples, MediaTime by, MediaTime cut) {
    const MediaTime start = start_;
    const auto placeOf = [&](std::uint64_t sample) {
      return media_.samples.TimeOf(sample) + by + (start_ - start);
    };
    if (cut != MediaTime{}) {
      const SampleRange first{samples.from, samples.from + 1};
      if (!Append(media_.samples, first, placeOf(first.from) + cut)) return false;
      samples.from = first.to;
    }
    if (!samples.IsEmpty() && !Append(media_.samples, samples, placeOf(samples.from))) return false;
    Note(segment, by + (start_ - start));
    return true;
  }
  // Appends `count` empty samples from `from` to `to`, of the kind of those before `next`.
  bool Fill(const ShownSegment& next, const Bytes& bytes, std::int64_t count, MediaTime from,
            MediaTime to) {
    if (count > UINT32_MAX || to - from > MediaTime{UINT32_MAX}) return false;
    const SampleTable made =
        empty_.Make(next.samples.from - 1, bytes, static_cast<std::uint32_t>(count), to - from);
    return Append(made, {0, made.Count()}, from);
  }
  // Notes where a segment ends, which is shown `by` later than in the old table.
  void Note(const ShownSegment& segment, MediaTime by) {
    ownEnd_ = segment.end + by;
    end_ = std::min(ownEnd_, segment.until + by);
    packets_ += segment.end - media_.samples.TimeOf(segment.samples.from);
    used_ = segment.samples.to;
  }
  // When the segment starts to be shown if it is in step.
  MediaTime Target(const ShownSegment& segment) const {
    return start_ + clock_.Shown(segment.start, 1.0) - clock_.Shown(segments_.front().start, 1.0) +
           segment.late;
  }
  // Some movies have so few units in a second that a movie unit is not a small difference.
  static MediaTime MaxTick(Clock clock) { return std::max(MediaTime{clock.media / 500}, kUnit); }
  // Whether two times are the same but for rounding.
  bool AreNear(MediaTime a, MediaTime b) const { return a - b <= tick_ && b - a <= tick_; }
  // Where a sample starts: the data reference, as an index, and the byte there.
  std::pair<std::uint32_t, std::uint64_t> PlaceOf(const SampleTable& samples,
                                                  std::uint64_t sample) const {
    std::pair<std::uint32_t, std::uint64_t> place;
    ForEachPiece(samples, {sample, sample + 1}, [&](const SamplePiece& piece) {
      place = {media_.descriptions[piece.description].dataReference, piece.offset};
    });
    return place;
  }
  // Whether the last packet in the new table has the same bytes in the same file as the first of
  // the segment: a movie was cut there and joined again.
  bool IsRepeated(const ShownSegment& segment) const {
    return PlaceOf(table_, table_.Count() - 1) == PlaceOf(media_.samples, segment.samples.from);
  }
  // The description of the last sample before the segment: its index, and its bytes.
  std::uint32_t DescriptionBefore(const ShownSegment& segment) const {
    const std::uint64_t last = segment.samples.from - 1;
    std::uint32_t description = 0;
    ForEachChunks(media_.samples, {last, last + 1},
                  [&](const SampleChunks& chunk) { description = chunk.description; });
    return description;
  }
  ByteSpan EntryBefore(const ShownSegment& segment) const {
    return media_.descriptions[DescriptionBefore(segment)].bytes;
  }

  TrackRecord& track_;
  MediaRecord& media_;
  Clock clock_;
  std::span<const ShownSegment> segments_;
  MediaTime tick_;  // a movie unit, at most 2 ms
  EmptySamples empty_;
  std::uint64_t used_ = 0;  // the samples before this one are in the new table, or are not needed
  // All times below are times of the new table.
  SampleTable table_;
  MediaTime start_;  // where the first segment starts to be shown
  MediaTime end_, ownEnd_;  // end of the last segment: as shown; by the duration of its last sample
  MediaTime packets_;  // sum of the durations of all packets, each in full
};

// The duration of a sample in its file.
MediaTime OwnDuration(const SampleTable& samples, std::uint64_t sample) {
  const SampleSlice& slice = samples.SliceOf(sample);
  return {slice.rows->DurationOf(slice.RowOf(sample))};
}

// Pictures are held through a gap; text is followed by an empty one.
bool InStep::AppendSeen(const ShownSegment& segment, Layout layout) {
  MediaTime at = Target(segment);
  if (segment.cut == MediaTime{} && AreNear(ownEnd_, at)) {
    at = ownEnd_;
  } else if (layout == Layout::kText) {
    // Rounding must not place it at or before the text before it.
    at = std::max(at, table_.TimeOf(table_.Count() - 1) + kUnit);
    const auto empty = EmptyText(EntryBefore(segment));
    if (at > end_ && !(empty && Fill(segment, *empty, 1, end_, at))) return false;
  }
  return Append(segment, segment.samples, at - segment.shown, segment.cut);
}

// A gap is filled with silent frames.
bool InStep::AppendFrames(const ShownSegment& segment) {
  MediaTime at = Target(segment);
  if (AreNear(ownEnd_, at)) {
    at = ownEnd_;
  } else if (at > ownEnd_) {
    const std::size_t size =
        SizeOf(media_.samples, segment.samples.from - 1, 1, DescriptionBefore(segment));
    const Bytes frame(size, SilentByte(EntryBefore(segment)).value_or(0));
    if (!Fill(segment, frame, (at - ownEnd_).units, ownEnd_, at)) return false;
  }
  table_.RemoveFrom(at);
  return Append(segment, segment.samples, at - segment.shown, {});
}

// A packet cannot be cut, and each lasts until the next. If the first one is heard only in part, it
// starts where it is heard, so its sound is late by that part; all others are in step. If the part
// is small, or if the packet before has the same sound, the first one is in step too and the packet
// before ends earlier.
bool InStep::AppendPackets(const ShownSegment& segment) {
  SampleRange packets = segment.samples;
  const std::int64_t packet = OwnDuration(media_.samples, packets.from).units;
  MediaTime cut = segment.cut, heard = Target(segment);
  const bool isGap = !AreNear(end_, heard);
  if (cut == MediaTime{} && AreNear(ownEnd_, heard)) heard = ownEnd_;
  const MediaTime by = heard - segment.shown;
  if (cut.units <= packet / 8 || (!isGap && IsRepeated(segment))) cut = {};
  const auto startOf = [&](std::uint64_t sample) {
    return media_.samples.TimeOf(sample) + by + cut;
  };
  if (startOf(packets.from) <= MediaTime{} || packet == 0) return false;
  const auto silence = SilentPacket(EntryBefore(segment));
  const std::int64_t gap = (startOf(packets.from) - ownEnd_).units;
  if (silence && gap > 0 && gap >= packet / 4) {
    // If the file starts with packets that the decoder needs, they are heard instead of silence.
    const std::uint64_t delay = cut == MediaTime{} ? DelayPackets(media_.samples, packets.from) : 0;
    const std::uint64_t first = std::max(packets.from - delay, used_);
    const MediaTime end = startOf(packets.from);
    while (packets.from > first && startOf(packets.from - 1) >= ownEnd_) --packets.from;
    const MediaTime start = startOf(packets.from);
    packets_ += end - start;
    // Some players play all packets in full, without gaps. With so many, they take as long as the
    // sound.
    const std::int64_t wanted = ((end - packets_).units + packet / 2) / packet;
    const std::int64_t count =
        std::clamp<std::int64_t>(wanted, 0, 2 * (start - ownEnd_).units / packet);
    if (count > 0 && !Fill(segment, *silence, count, ownEnd_, start)) return false;
    packets_ += MediaTime{count * packet};
  }
  table_.RemoveFrom(startOf(packets.from));
  return Append(segment, packets, by, cut);
}

// Whether an edit list of chapters is so plain that readers need not know it.
bool IsPlain(const TrackRecord& track) {
  const std::vector<Edit>& edits = track.edits.Edits();
  if (edits.size() != 1) return edits.empty();
  const Edit& edit = edits.front();
  const MediaTime shown = track.TimeClock().Shown(edit.duration, 1.0, Rounding::kUp);
  return edit.rate == 1.0 && edit.mediaTime == MediaTime{} &&
         shown >= track.media->samples.Duration();
}

bool HasSeveralChapterTracks(const MovieRecord& movie) {
  return std::ranges::any_of(movie.tracks, [](const std::unique_ptr<TrackRecord>& track) {
    return track->CountReferences(FourCC{"chap"}) > 1;
  });
}

using Tracks = std::vector<std::unique_ptr<TrackRecord>>;

// The targets of all references of that type.
std::set<const TrackRecord*> TargetsOf(const Tracks& tracks, FourCC type) {
  std::set<const TrackRecord*> targets;
  for (const auto& track : tracks) {
    for (const TrackReferences& list : track->references) {
      if (list.type == type) targets.insert(list.targets.begin(), list.targets.end());
    }
  }
  return targets;
}

}  // namespace

std::unique_ptr<MovieRecord> LaidOutInStep(const MovieRecord& movie) {
  std::unique_ptr<MovieRecord> result;
  if (HasSeveralChapterTracks(movie)) {
    result = movie.Clone();
    if (!JoinChapterTracks(*result)) result = nullptr;
  }
  const auto& tracks = result ? result->tracks : movie.tracks;
  const auto chapters = TargetsOf(tracks, FourCC{"chap"});
  // Packets of hint tracks name samples by number, and the numbers would change.
  const auto hinted = TargetsOf(tracks, FourCC{"hint"});
  // What each track gets is found before any track changes.
  struct Change {
    std::size_t track = 0;
    Layout layout = Layout::kAsItIs;  // of `segments`; without any, the track has chapters
    std::vector<ShownSegment> segments;
  };
  std::vector<Change> changes;
  for (std::size_t i = 0; i < tracks.size(); ++i) {
    const TrackRecord& track = *tracks[i];
    if (!track.media || track.media->IsProtected() || hinted.contains(&track)) continue;
    if (track.media->Type() == kText && chapters.contains(&track)) {
      if (!IsPlain(track)) changes.push_back({.track = i});
      continue;
    }
    if (track.edits.Edits().size() < 2) continue;
    const Layout layout = LayoutFor(*track.media);
    if (layout == Layout::kAsItIs) continue;
    if (layout == Layout::kPictures && HasOtherPicturesInGaps(track)) continue;
    auto segments = SegmentsOf(track, layout);
    if (segments && segments->size() > 1) changes.push_back({i, layout, std::move(*segments)});
  }
  if (!changes.empty() && !result) result = movie.Clone();
  for (const Change& change : changes) {
    TrackRecord& track = *result->tracks[change.track];
    if (change.segments.empty()) {
      LayOutChapters(track);
    } else {
      InStep(track, change.segments).Put(change.layout);
    }
  }
  return result;
}

}  // namespace toolbox
