// A track: a media, the edits that show it, and its place in the movie.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/siblings.h"
#include "toolbox/movie/edit_list.h"
#include "toolbox/movie/matrix.h"
#include "toolbox/movie/media.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {

struct MovieRecord;

// References of one type to other tracks of the movie; null where a file named a track it lacks.
struct TrackReferences {
  FourCC type;
  std::vector<struct TrackRecord*> targets;
};

// What a new track like another takes over.
struct TrackSettings {
  std::uint32_t flags = 0xF;
  std::int16_t layer = 0, alternateGroup = 0, volume = 0;
  Matrix matrix = kIdentityMatrix;
  std::int32_t width = 0, height = 0;  // 16.16
  // What its header reserves, as it came.
  std::array<std::uint8_t, 4> reserved{};
  std::array<std::uint8_t, 8> reserved2{};
  std::array<std::uint8_t, 2> reserved3{};
  UserDataRecord userData;
  Siblings siblings;  // what else stands in 'trak': clip, matt, load, tapt, ...
};

struct TrackRecord : TrackSettings {
  static constexpr std::uint32_t kEnabled = 1;

  MovieRecord* movie = nullptr;  // the movie that owns the track
  std::uint32_t id = 0;
  std::uint64_t created = 0, modified = 0;  // seconds since 1904-01-01 UTC
  EditList edits;
  std::vector<TrackReferences> references;
  std::optional<MediaRecord> media;
  Siblings editSiblings;  // what else stands in 'edts'

  bool IsEnabled() const { return (flags & kEnabled) != 0; }
  Clock TimeClock() const;
  // Gives the track its media.
  MediaRecord& SetMedia(MediaRecord record);

  // Adds `target` to the references of that type unless it is there.
  void Refer(FourCC type, TrackRecord& target);
  // References of one type are numbered from 1.
  std::size_t CountReferences(FourCC type) const;
  // The track referred to, null where there is none.
  TrackRecord* Reference(FourCC type, std::size_t number) const;
  // Appends one, be it there already or not, and returns its number.
  std::size_t AddReference(FourCC type, TrackRecord& target);
  // Later ones of the type move down. Throws Refused: badTrackIndex.
  void RemoveReference(FourCC type, std::size_t number);
};

}  // namespace toolbox
