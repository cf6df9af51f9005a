#include "toolbox/read/read_edits.h"

#include <algorithm>
#include <utility>

#include "toolbox/atoms/malformed.h"

namespace toolbox {
namespace {

// One edit that shows the whole media from movie time 0 on; no edit if there is no media.
EditList WholeMedia(const TrackRecord& track, std::int64_t start, bool isFragmented) {
  EditList edits;
  if (!track.media || track.media->samples.Duration() == MediaTime{}) return edits;
  const Clock clock = track.TimeClock();
  const auto stated =
      static_cast<std::int64_t>(std::min<std::uint64_t>(track.header.duration, kLongest));
  // The edit can end with the sample that is decoded last or with the one that is shown last. If
  // the track header states an end that is within one unit of either, the edit has the stated end.
  const MediaTime decoded = track.media->samples.Duration();
  const MediaTime shown = track.media->samples.EndTime();
  MovieTime duration = clock.Lasting(isFragmented ? shown : decoded, 1.0);
  for (const MediaTime length : {decoded, shown}) {
    const std::int64_t units = clock.Lasting(length, 1.0).units;
    if (stated >= units - 1 && stated <= units + 1) duration.units = stated;
  }
  edits.Append(duration + clock.Lasting({start}, 1.0), {0}, 1.0, clock);
  return edits;
}

// Whether the last entry of a list means "to the end of the media". Its duration is 0, because a
// writer of fragments does not know it yet, or it ends with the samples of the header.
bool IsToTheEnd(const EditEntries::Entry& last, const FragmentTimes& times, Clock clock) {
  if (last.duration == 0) return true;
  const auto lasts = [&](MediaTime length) {
    const std::int64_t units = clock.Lasting(length - MediaTime{last.mediaTime}, 1.0).units;
    const auto stated = static_cast<std::int64_t>(last.duration);
    return length > MediaTime{} && stated >= units - 1 && stated <= units + 1;
  };
  return last.rate == 0x10000 && (lasts(times.headerDecoded) || lasts(times.headerShown));
}

// The edits of the list; nothing if an entry or the sum of durations is out of range.
std::optional<EditList> ListedEdits(const EditEntries& stated, const FragmentTimes& times,
                                    const TrackRecord& track) {
  EditList edits;
  const Clock clock = track.TimeClock();
  std::uint64_t total = 0;
  if (stated.entries.empty()) return std::nullopt;
  edits.Reserve(stated.entries.size());
  for (std::size_t i = 0; i < stated.entries.size(); ++i) {
    const EditEntries::Entry& entry = stated.entries[i];
    if (entry.mediaTime < -1 || entry.mediaTime > kLongest || entry.rate < 0 ||
        entry.duration > kLongest) {
      return std::nullopt;
    }
    MovieTime duration{static_cast<std::int64_t>(entry.duration)};
    const bool isEmpty = entry.mediaTime == -1;
    if (i + 1 == stated.entries.size() && track.media && !isEmpty &&
        IsToTheEnd(entry, times, clock)) {
      const std::int64_t left =
          times.start + track.media->samples.ShownUntil().units - entry.mediaTime;
      duration = clock.Lasting({std::max<std::int64_t>(left, 0)}, 1.0);
    }
    total += static_cast<std::uint64_t>(duration.units);
    if (total > kLongest) return std::nullopt;
    edits.Append(duration, {entry.mediaTime}, isEmpty ? 1.0 : entry.rate / 65536.0, clock);
  }
  edits.TrimEnd();
  return edits;
}

// Converts edits of a media whose first sample is decoded at `start` to edits of a media that
// begins at 0. Unless the edits are `listed` in the file, they begin with the first picture: a new
// file states the duration of all of its media, and delayed pictures last longer than that.
EditList FromFirstSample(const EditList& edits, std::int64_t start, bool listed,
                         const TrackRecord& track) {
  const Clock clock = track.TimeClock();
  // When the first sample is shown. Composition offsets can make this later than 0.
  const SampleRows* rows = track.media->samples.WholeRows();
  const MediaTime shown =
      rows == nullptr ? MediaTime{} : std::max(rows->ShownFrom({0, rows->count}), MediaTime{});
  EditList moved;
  for (const Edit& edit : edits.Edits()) {
    const std::int64_t late = start - edit.mediaTime.units;
    if (edit.IsEmpty() || late < 0 || (late == 0 && listed)) {
      moved.Append(edit.duration, edit.IsEmpty() ? edit.mediaTime : MediaTime{-late}, edit.rate,
                   clock);
      continue;
    }
    const MovieTime wait =
        std::min(edit.duration, clock.Lasting(MediaTime{late} + shown, edit.rate));
    moved.Append(wait, Edit::kNothing, 1.0, clock);
    moved.Append(edit.duration - wait, shown, edit.rate, clock);
  }
  moved.TrimEnd();
  return moved;
}

}  // namespace

MovieTime ReadEdits(const EditEntries* list, const FragmentTimes* fragments, TrackRecord& track) {
  const FragmentTimes times = fragments == nullptr ? FragmentTimes{} : *fragments;
  const std::int64_t start = times.start;
  auto listed = list == nullptr ? std::nullopt : ListedEdits(*list, times, track);
  const bool isListed = listed.has_value();
  track.edits = isListed ? std::move(*listed) : WholeMedia(track, start, fragments != nullptr);
  if (fragments == nullptr || (start == 0 && isListed) || track.edits.Edits().empty()) return {};
  const MovieTime offset = track.edits.Offset();
  track.edits = FromFirstSample(track.edits, start, isListed, track);
  return start == 0 ? MovieTime{} : track.edits.Offset() - offset;
}

void HideGaps(std::span<const MediaStretch> gaps, TrackRecord& track) {
  const Clock clock = track.TimeClock();
  EditList shown;
  for (const Edit& edit : track.edits.Edits()) {
    MediaTime media = edit.mediaTime;  // where the rest of the edit begins
    MovieTime laid;  // the length of the part of the edit that is in `shown` already
    // The place of a media time in the edit, in movie units from the start of the edit, and not
    // after its end.
    const auto place = [&](MediaTime time) {
      return std::min(edit.duration, clock.Lasting(time - edit.mediaTime, edit.rate));
    };
    // An edit with rate 0 is a still picture: no media time passes in it.
    auto gap = edit.IsEmpty() || edit.rate == 0
                   ? gaps.end()
                   : std::ranges::upper_bound(gaps, edit.mediaTime, {}, &MediaStretch::to);
    for (; gap != gaps.end() && laid < edit.duration; ++gap) {
      const MovieTime from = place(std::max(gap->from, media)), to = place(gap->to);
      shown.Append(from - laid, media, edit.rate, clock);
      shown.Append(to - from, Edit::kNothing, 1.0, clock);
      laid = to;
      media = gap->to;
    }
    shown.Append(edit.duration - laid, media, edit.rate, clock);
  }
  shown.TrimEnd();
  track.edits = std::move(shown);
}

void DropCommonDelay(MovieRecord& movie, std::span<const MovieTime> delays) {
  std::optional<MovieTime> common;
  for (std::size_t i = 0; i < delays.size(); ++i) {
    // A track without edits shows nothing, so it has no delay to compare.
    if (movie.tracks[i]->edits.Edits().empty()) continue;
    common = common ? std::min(*common, delays[i]) : delays[i];
  }
  for (const auto& track : movie.tracks) {
    if (common && common->units > 0) track->edits.Delete({}, *common, track->TimeClock());
    if (track->edits.Duration().units > kLongest) {
      throw Malformed("the delay of a track is too long");
    }
  }
}

}  // namespace toolbox
