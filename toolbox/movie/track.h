// A track: a media, the edits that show it, and how the movie presents it.
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

// References of one type to other tracks of the movie; null for a track that the file does not
// have.
struct TrackReferences {
  FourCC type;
  std::vector<struct TrackRecord*> targets;
};

// What a new track like another takes over from it.
struct TrackSettings {
  std::uint32_t flags = 0xF;
  std::int16_t layer = 0, alternateGroup = 0, volume = 0;
  Matrix matrix = kIdentityMatrix;
  std::int32_t width = 0, height = 0;  // 16.16
  // Reserved fields of the header, kept as they were read.
  std::array<std::uint8_t, 4> reserved{};
  std::array<std::uint8_t, 8> reserved2{};
  std::array<std::uint8_t, 2> reserved3{};
  UserDataRecord userData;
  Siblings siblings;  // the other children of 'trak': clip, matt, load, tapt, ...
};

struct TrackRecord : TrackSettings {
  static constexpr std::uint32_t kEnabled = 1;

  MovieRecord* movie = nullptr;  // the movie that owns the track
  std::uint32_t id = 0;
  std::uint64_t created = 0, modified = 0;  // seconds since 1904-01-01 UTC
  EditList edits;
  std::vector<TrackReferences> references;
  std::optional<MediaRecord> media;
  Siblings editSiblings;  // the other children of 'edts'

  bool IsEnabled() const { return (flags & kEnabled) != 0; }
  // The time scales of the movie and of the media; without a media, the movie's for both.
  Clock TimeClock() const;
  // Replaces the media of the track.
  MediaRecord& SetMedia(MediaRecord record);

  // Adds `target` to the references of that type unless it is one of them.
  void Refer(FourCC type, TrackRecord& target);
  // How many there are. References of one type are numbered from 1.
  std::size_t CountReferences(FourCC type) const;
  // The track that a reference names; null if there is no such reference or track.
  TrackRecord* Reference(FourCC type, std::size_t number) const;
  // Adds a reference, even if there is one to that track, and returns its number.
  std::size_t AddReference(FourCC type, TrackRecord& target);
  // The numbers of later references of the type go down by 1. Throws Refused: badTrackIndex.
  void RemoveReference(FourCC type, std::size_t number);
};

}  // namespace toolbox
