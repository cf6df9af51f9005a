// A track: a media, the edits that show it, and its place in the movie.
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

// References of one type to other tracks of the movie; null where a file named a track it lacks.
struct TrackReferences {
  FourCC type;
  std::vector<struct TrackRecord*> targets;
};

// What a new track like another takes over.
struct TrackSettings {
  // The new track has its own id and dates. Duration and date of modification are those of the file
  // that was read; writing computes both.
  TrackHeader header;
  UserDataRecord userData;
  Siblings siblings;  // what else is in 'trak': clip, matt, load, tapt, ...
};

struct TrackRecord : TrackSettings {
  MovieRecord* movie = nullptr;  // the movie that owns the track
  EditList edits;
  std::vector<TrackReferences> references;
  std::optional<MediaRecord> media;
  Siblings editSiblings;  // what else is in 'edts'

  bool IsEnabled() const { return (header.flags & TrackHeader::kEnabled) != 0; }
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
