// One input: its settings and, once opened, its movie.
#pragma once

#include <utility>

#include "chapter/chapter_list.h"
#include "clipjoin/options.h"
#include "toolbox/toolbox.h"
#include "utils/owned.h"

namespace input {

// Owns its movie. The movie must live until the output is written, because the output refers to its
// media.
class InputMovie {
 public:
  clipjoin::FileOptions options;

  explicit InputMovie(clipjoin::FileOptions settings) : options(std::move(settings)) {}

  // Opens the movie, edits it as the options say, and returns it. If it cannot be opened, prints
  // why and returns an empty movie. Call this once.
  toolbox::Movie Open();
  // The chapter list of the movie, as Open found it.
  const chapter::ChapterList& Chapters() const { return chapters_; }
  // Whether Open found a movie.
  bool IsOpen() const { return isOpen_; }
  // Saves the movie in its own file if its options say so and it was opened. A failure is reported
  // and counted.
  void SaveInPlace();

 private:
  utils::OwnedMovie movie_;
  utils::OwnedStorage storage_;  // stays open only to save in place
  chapter::ChapterList chapters_;
  bool isOpen_ = false;
};

}  // namespace input
