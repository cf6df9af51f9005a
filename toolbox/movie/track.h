// A track: a media, the edits that show it, and how the movie presents it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/movie/edit_list.h"
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

// The settings that a new track copies from another.
struct TrackSettings {
  // The new track has its own id and dates. Duration and date of modification are those of the file
  // that was read; writing computes both.
  TrackHeader header;
  UserDataRecord userData;
  Siblings siblings;  // the other children of 'trak': clip, matt, load, tapt, ...
};

struct TrackRecord : TrackSettings {
  MovieRecord* movie = nullptr;  // the movie that owns the track
  EditList edits;
  std::vector<TrackReferences> references;
  std::optional<MediaRecord> media;
  Siblings editSiblings;  // the other children of 'edts'

  bool IsEnabled() const { return (header.flags & TrackHeader::kEnabled) != 0; }
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
