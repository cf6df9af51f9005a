// Makes movies for tests without files: tracks with plain sample tables.
#pragma once

#include <memory>
#include <string>
#include <utility>

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
  Bytes bytes;
  for (const std::uint32_t word :
       {16 + static_cast<std::uint32_t>(more.size()), format.value, 0U, 1U}) {
    for (int shift = 24; shift >= 0; shift -= 8)
      bytes.push_back(static_cast<std::uint8_t>(word >> shift));
  }
  bytes.insert(bytes.end(), more.begin(), more.end());
  return {bytes, 0};
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
