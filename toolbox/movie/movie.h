// A movie: tracks on one time line, and what they share.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/movie/data_reference.h"
#include "toolbox/movie/track.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {

// The time as files count it: seconds since 1904-01-01 UTC.
std::uint64_t Now();

// An atom next to the movie in its file, or what follows the last atom there. It is read only when
// it is copied.
struct FileAtom {
  static constexpr FourCC kTrailer{};  // no atom

  FourCC type;
  std::uint64_t at = 0, size = 0;  // bytes
};

// All of a movie but its tracks.
struct MovieProperties {
  // Its duration and its date of modification are those of the file that was read; writing computes
  // both.
  MovieHeader header;
  UserDataRecord userData;
  Siblings siblings;  // what else is in 'moov'
  std::optional<OtherFile> file;  // the file the movie was opened from
  std::vector<FileAtom> fileAtoms;  // what else of that file belongs to the movie
  std::optional<DataReference> defaultDataReference;
  // Told, while media of the movie are copied, how many bytes of how many are done. May be empty.
  std::function<void(std::uint64_t done, std::uint64_t all)> progress;
};

struct MovieRecord : MovieProperties {
  std::vector<std::unique_ptr<TrackRecord>> tracks;

  MovieRecord() = default;
  MovieRecord(const MovieRecord&) = delete;  // tracks point back to their movie: Clone
  MovieRecord& operator=(const MovieRecord&) = delete;

  // Where the last track ends.
  MovieTime Duration() const;
  // Whether its media are those of an MPEG-4 file; else they are QuickTime's.
  bool IsIso() const;
  // A new track at the end of the list, with the next id.
  TrackRecord& AddTrack();
  // A new track with the kind of media and the settings of `like`, without samples, edits or
  // references.
  TrackRecord& AddTrackLike(const TrackRecord& like);
  // Removes the track and every reference to it.
  void RemoveTrack(const TrackRecord& track);
  // The same movie once more; sample rows are shared.
  std::unique_ptr<MovieRecord> Clone() const;
  // For a movie that comes to hold more than its own file did: what follows the last atom of that
  // file speaks of all of it, and is dropped.
  void DropTrailer();
  // Takes over the preferred rate and volume, the clipping region, the matrix and the user data.
  void TakeSettings(const MovieRecord& other);
  // Re-expresses all times in `newScale`, > 0: boundaries are rounded, so nothing drifts.
  void SetScale(std::int32_t newScale);
};

}  // namespace toolbox
