// The list of chapters in the user data of a movie ('chpl'). Some MPEG-4 files have it in addition
// to a chapter track, others instead of one.
#pragma once

#include <vector>

#include "chapter/chapter.h"

namespace chapter {

// The chapters in the chapter tracks of the movie (see ReadChapters) or, if it has none, those in
// its list, arranged and in units of the list's own scale. The movie stays as it is.
std::vector<Chapter> ReadChaptersOrList(toolbox::Movie movie);

// If a movie has only such a list, this makes a chapter track of it, so that other code needs to
// handle only chapter tracks. The movie owns the track.
class ChapterList {
 public:
  ChapterList() = default;
  // Reads the chapters of a movie that has just been opened. If they are only in a list, makes a
  // chapter track of them and adds it after the other tracks.
  explicit ChapterList(toolbox::Movie movie);

  bool HasTrack() const { return track_ != nullptr; }
  // Call this after removing tracks of the movie. If one of them referred to the chapter track that
  // was made, makes another track refer to it. If no track can, removes the chapter track too.
  void Attach(toolbox::Movie movie);
  // Call this before `movie`, which has the user data of the movie that was opened, is written. The
  // list stays if it is still right, and then the chapter track that was made of it is removed.
  // Otherwise the list is removed.
  void RemoveListOrTrack(toolbox::Movie movie) const;

 private:
  toolbox::Track track_ = nullptr;  // the track made of the list; null if none was made
  std::vector<Chapter> chapters_;  // those of the opened movie, and the time after them
};

}  // namespace chapter
