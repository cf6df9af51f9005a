// Makes movies for tests without files: tracks with plain sample tables.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "tests/toolbox/bytes.h"
#include "toolbox/movie/movie.h"

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

}  // namespace toolbox
