// The list of chapters in the user data of a movie ('chpl'). Some MPEG-4 files have it beside a
// chapter track or instead of one.
#pragma once

#include <vector>

#include "chapter/chapter.h"

namespace chapter {

class ChapterList {
 public:
  ChapterList() = default;
  // Reads the chapters of a movie that has just been opened. If they are only in a list, makes a
  // chapter track of them, after the other tracks.
  explicit ChapterList(toolbox::Movie movie);

  bool HasTrack() const { return track_ != nullptr; }
  // Call this after tracks of the movie were removed. If one of them referred to the chapter track
  // that was made, another one does so now. If there is none, the chapter track is removed too.
  void Attach(toolbox::Movie movie);
  // Call this before `movie`, which has the user data of the movie that was opened, is written. The
  // list stays if it is still right, and then the chapter track that was made of it is removed.
  // Otherwise the list is removed.
  void Settle(toolbox::Movie movie) const;

 private:
  toolbox::Track track_ = nullptr;  // made of the list; null if none was made
  std::vector<Chapter> chapters_;  // as they were, and the time after them
};

}  // namespace chapter
