// Makes movies for tests without files: tracks with plain sample tables. Tells what a movie has in
// it in short texts, for tests to compare.
#pragma once

#include "tests/toolbox/bytes.h"
#include "toolbox/movie/movie.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_groups.h"
#include "toolbox/movie/sample_places.h"

namespace toolbox {

// `count` samples of `size` bytes in one chunk at `at`.
inline std::shared_ptr<SampleRows> PlainRows(std::uint32_t count, std::uint32_t delta,
                                             std::uint32_t size, std::uint64_t at = 0) {
  auto rows = std::make_shared<SampleRows>();
  rows->count = count;
  rows->AddTimes(count, delta);
  rows->sizes.Add(count, size);
  rows->AddChunks(0, 1, count, 0);
  rows->chunkOffsets.Add(at);
  return rows;
}

// A description of that format, with `more` after its data-reference number.
inline SampleDescription Described(FourCC format, const Bytes& more = {}) {
  const Bytes rest = Join(U32(format.value), U32(0), U32(1), more);
  return {Join(U32(static_cast<std::uint32_t>(4 + rest.size())), rest), 0};
}

// Adds a track that shows all of its media.
inline TrackRecord& AddPlainTrack(MovieRecord& movie, FourCC type, std::int32_t scale,
                                  std::shared_ptr<const SampleRows> rows,
                                  DataReference where = ThisFile{}) {
  TrackRecord& track = movie.AddTrack();
  MediaRecord& media = track.SetMedia({});
  media.header.scale = scale;
  media.handler.componentType = FourCC{"mhlr"};
  media.handler.subtype = type;
  media.dataReferences = {std::move(where)};
  media.descriptions = {Described(FourCC{"test"})};
  media.samples = SampleTable(std::move(rows));
  const MediaTime length = media.samples.Duration();
  track.edits.Append(track.TimeClock().Lasting(length, 1.0), {0}, 1.0, track.TimeClock());
  return track;
}

// Such as "gap+300 0+1361 7+1x0.5": media time + duration x rate of each edit.
inline std::string Told(const EditList& list) {
  std::ostringstream text;
  MovieTime end;
  for (const Edit& edit : list.Edits()) {
    if (end != MovieTime{}) text << ' ';
    if (edit.start != end) text << "from " << edit.start.units << ' ';
    text << (edit.IsEmpty() ? "gap" : std::to_string(edit.mediaTime.units));
    text << '+' << edit.duration.units;
    if (edit.rate != 1) text << 'x' << edit.rate;
    end = edit.End();
  }
  return text.str();
}

// The edits of all tracks, such as "0+600 | gap+300 0+600".
inline std::string Told(const MovieRecord& movie) {
  std::string text;
  for (const auto& track : movie.tracks) text += (text.empty() ? "" : " | ") + Told(track->edits);
  return text;
}

// Such as "40+9:10 49+9:10^5~#1": offset in the file + size : duration of each sample, how much
// later it is shown than decoded, ~ if it is no sync sample, and its description if not the first.
inline std::string Told(const SampleTable& samples) {
  std::ostringstream text;
  ForEachPiece(samples, {0, samples.Count()}, [&](const SamplePiece& piece) {
    std::uint64_t at = piece.offset;
    for (std::uint64_t i = piece.sample; i < piece.sample + piece.count; ++i) {
      const std::uint64_t size = SizeOf(samples, i, 1, piece.description);
      const MediaTime later = ShownAt(samples, i) - samples.TimeOf(i);
      text << (i == 0 ? "" : " ") << at << '+' << size << ':' << samples.DurationOf(i).units;
      if (later != MediaTime{}) text << '^' << later.units;
      if (samples.SyncAtOrBefore(i) != i) text << '~';
      if (piece.description != 0) text << '#' << piece.description;
      at += size;
    }
  });
  return text.str();
}

// The number of the group of each sample, such as "1002"; "default" if all have the default number.
inline std::string ToldGroups(const SampleTable& samples) {
  const auto groups = GroupsOf(samples);
  if (groups.empty()) return "no groups";
  if (!groups[0].isMapped) return "default";
  std::string numbers;
  ForEachGroup(samples, groups[0], [&](std::uint32_t count, std::uint32_t number) {
    while (count-- != 0) numbers += std::to_string(number);
  });
  return numbers;
}

}  // namespace toolbox
