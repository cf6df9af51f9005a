#include "clipinfo/blocks.h"

#include <algorithm>
#include <iterator>

#include "toolbox/movie/presentation.h"

namespace clipinfo {
namespace {

using toolbox::Edit;
using toolbox::MediaTime;
using toolbox::MovieTime;
using toolbox::Rounding;
using toolbox::SampleSlice;
using toolbox::SampleTable;
using toolbox::TrackRecord;

// The movie time at which an edit shows the media time; the rate of the edit is above 0.
MovieTime PlaceOf(const TrackRecord& track, const Edit& edit, MediaTime time) {
  return edit.start + track.TimeClock().Lasting(time - edit.mediaTime, edit.rate, Rounding::kUp);
}

// The part of an edit from `from` on, up to the next file.
EditBlock PartAt(const TrackRecord& track, const std::vector<FileRun>& runs, const Edit& edit,
                 MovieTime from) {
  EditBlock part{.from = from, .until = edit.End(), .edit = &edit};
  if (edit.IsEmpty() || runs.empty()) return part;
  if (edit.rate <= 0) {
    part.file = std::prev(std::ranges::upper_bound(runs, std::max(edit.mediaTime, runs[0].from), {},
                                                   &FileRun::from))
                    ->file;
    return part;
  }
  // Times of the movie are compared, because the media time of a boundary is rounded.
  const auto next = std::partition_point(
      std::next(runs.begin()), runs.end(),
      [&](const FileRun& run) { return PlaceOf(track, edit, run.from) <= from; });
  part.file = std::prev(next)->file;
  if (next != runs.end()) part.until = std::min(part.until, PlaceOf(track, edit, next->from));
  return part;
}

// The rows in `part` of the sync samples. Nothing if there are more than `room`, which is counted
// down.
std::optional<std::vector<std::uint32_t>> SyncRows(const toolbox::SampleRows& rows,
                                                   toolbox::RowRange part, std::uint64_t& room) {
  std::vector<std::uint32_t> found;
  if (!rows.sync) {
    if (part.Count() > room) return std::nullopt;
    for (std::uint32_t row = part.from; row < part.to; ++row) found.push_back(row);
  } else {
    const auto first = std::ranges::lower_bound(*rows.sync, part.from);
    const auto last = std::ranges::lower_bound(first, rows.sync->end(), part.to);
    if (static_cast<std::uint64_t>(last - first) > room) return std::nullopt;
    found.assign(first, last);
  }
  room -= found.size();
  return found;
}

}  // namespace

std::vector<EditBlock> BlocksOf(const TrackRecord& track, const std::vector<FileRun>& runs,
                                MovieTime shortest) {
  std::vector<EditBlock> blocks;
  std::size_t number = 0;
  for (const Edit& edit : track.edits.Edits()) {
    ++number;
    for (MovieTime at = edit.start; at < edit.End();) {
      EditBlock part = PartAt(track, runs, edit, at);
      part.number = number;
      if (part.until - part.from < shortest && part.until < edit.End()) {
        // More files follow than can be drawn.
        part.until = std::min(edit.End(), at + shortest);
        part.isMerged = true;
        part.file.reset();
      }
      at = part.until;
      EditBlock* last = blocks.empty() ? nullptr : &blocks.back();
      const auto isShort = [&](const EditBlock& block) {
        return block.isMerged || block.until - block.from < shortest;
      };
      if (last == nullptr || !isShort(*last) || !isShort(part)) {
        blocks.push_back(part);
        continue;
      }
      last->isMerged = true;
      last->until = part.until;
      last->edits = number - last->number + 1;
      if (last->file != part.file) last->file.reset();
    }
  }
  return blocks;
}

MediaPart MediaOf(const TrackRecord& track, const EditBlock& block) {
  const toolbox::Clock clock = track.TimeClock();
  return {block.edit->ShownAt(block.from - block.edit->start, clock),
          block.edit->ShownAt(block.until - block.edit->start, clock)};
}

MediaPart WholeMedia(const SampleTable& samples) {
  if (samples.Count() == 0) return {};
  const SampleSlice& first = samples.Slices().front();
  return {std::max(MediaTime{}, first.time + first.ShownFrom()), samples.EndTime()};
}

std::vector<MediaPart> ShownMedia(const TrackRecord& track, MediaTime closest) {
  std::vector<MediaPart> parts;
  for (const Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty()) continue;
    // An edit with rate 0 shows one sample all the time.
    const MediaTime span = track.TimeClock().Shown(edit.duration, edit.rate);
    parts.push_back({edit.mediaTime, edit.mediaTime + std::max(span, MediaTime{1})});
  }
  std::ranges::sort(parts, {}, &MediaPart::from);
  std::vector<MediaPart> joined;
  for (const MediaPart& part : parts) {
    if (joined.empty() || part.from >= joined.back().until + closest) {
      joined.push_back(part);
    } else {
      joined.back().until = std::max(joined.back().until, part.until);
    }
  }
  return joined;
}

std::vector<MovieTime> SyncTimes(const TrackRecord& track, const EditBlock& block,
                                 std::uint64_t most) {
  std::vector<MovieTime> times;
  if (block.isMerged || block.IsEmpty() || block.edit->rate <= 0 || most == 0) return times;
  const SampleTable& samples = track.media->samples;
  const MediaPart shown = MediaOf(track, block);
  if (samples.Count() == 0 || shown.from >= samples.EndTime()) return times;
  // All that are shown then are decoded between these. The offsets between decoding and showing
  // have bounds.
  const auto [smallest, largest] = samples.Offsets();
  const toolbox::SampleRange range{samples.SampleAt(shown.from - MediaTime{largest}),
                                   samples.SampleAt(shown.until - MediaTime{smallest}) + 1};
  std::uint64_t room = most + 2;  // one at each end can be outside
  for (const SampleSlice& slice : samples.SlicesIn(range)) {
    const auto rows = SyncRows(*slice.rows, slice.RowsIn(range), room);
    if (!rows) return {};
    for (const std::uint32_t row : *rows) {
      const MediaTime time = slice.ShownAt(row);
      if (time < shown.from || time >= shown.until) continue;
      times.push_back(std::max(block.from, PlaceOf(track, *block.edit, time)));
    }
  }
  if (times.size() > most) return {};
  std::ranges::sort(times);
  return times;
}

}  // namespace clipinfo
