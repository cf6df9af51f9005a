// A movie: tracks on one time line, and the settings of the whole.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/movie/data_reference.h"
#include "toolbox/movie/track.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {

// The time now, as files count it: seconds since 1904-01-01 UTC.
std::uint64_t Now();

// An atom at the top level of a file, or the bytes after the last atom. Its content stays in the
// file.
struct FileAtom : AtomFrame {
  static constexpr FourCC kTrailer{};  // the type of the bytes after the last atom

  std::uint64_t at = 0;  // where it starts, in bytes

  std::uint64_t ContentAt() const { return at + headerSize; }
  std::uint64_t ContentSize() const { return size - headerSize; }
};

// A movie without its tracks.
struct MovieProperties {
  // Its duration and its date of modification are those of the file that was read; writing computes
  // both.
  MovieHeader header;
  UserDataRecord userData;
  Siblings siblings;  // the other children of 'moov'
  std::optional<OtherFile> file;  // the file the movie was opened from
  // Where its 'moov' starts in that file. Nothing if it has none, or was saved since then.
  std::optional<std::uint64_t> headerAt;
  std::vector<FileAtom> fileAtoms;  // atoms of that file that belong to the movie
  std::optional<DataReference> defaultDataReference;
  // Called while media of the movie are copied, with the bytes done and all bytes. May be empty.
  std::function<void(std::uint64_t done, std::uint64_t all)> progress;
  // Called before that with the path of each file from which media are copied. May be empty.
  std::function<void(const std::string& path)> copiesFrom;
};

struct MovieRecord : MovieProperties {
  std::vector<std::unique_ptr<TrackRecord>> tracks;

  MovieRecord();
  ~MovieRecord();
  MovieRecord(const MovieRecord&) = delete;  // use Clone: tracks point back to their movie
  MovieRecord& operator=(const MovieRecord&) = delete;

  // All movies of the process. Saving one of them must not change what another needs from a file.
  static const std::vector<MovieRecord*>& All();
  // Notes the state of a file that this process has changed itself.
  void Renew(const FileState& state);
  // Whether the movie was opened from this file or has media in it.
  bool Uses(const FileIdentity& wanted) const;

  // The end of the longest track. Hint tracks of other tracks do not count: they are not played,
  // and after a cut they are longer, because they also have packets that are only needed for
  // decoding.
  MovieTime Duration() const;
  // Whether its media are from an MPEG-4 file and not from a QuickTime file.
  bool IsIso() const;
  // A new track at the end of the list, with these settings but the next id and new dates.
  TrackRecord& AddTrack(const TrackSettings& settings = {});
  // A new track with the kind of media and the settings of `like`, without samples, edits or
  // references.
  TrackRecord& AddTrackLike(const TrackRecord& like);
  // Removes the track and every reference to it.
  void RemoveTrack(const TrackRecord& track);
  // A copy of the movie that shares its sample rows.
  std::unique_ptr<MovieRecord> Clone() const;
  // Copies the preferred rate and volume, the clipping region, the matrix and the user data.
  void CopySettings(const MovieRecord& other);
  // Converts all times to `newScale`, > 0. Boundaries of edits are rounded, not their lengths, so
  // nothing drifts.
  void SetScale(std::int32_t newScale);
};

}  // namespace toolbox
