// One input: its settings, and its movie once it is opened.
#pragma once

#include <utility>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// Owns its movie, which lives as long as the input list: what is written later refers to its media.
class InputMovie {
 public:
  clipjoin::FileOptions options;

  explicit InputMovie(clipjoin::FileOptions settings) : options(std::move(settings)) {}
  InputMovie(InputMovie&& other) noexcept
      : options(std::move(other.options)),
        movie_(std::exchange(other.movie_, nullptr)),
        storage_(std::exchange(other.storage_, nullptr)),
        isOpen_(other.isOpen_) {}
  InputMovie& operator=(InputMovie&&) = delete;
  ~InputMovie();

  // Opens the movie, edits it as the options say, and gives it back. One that cannot be opened is
  // reported, and an empty movie takes its place; the run goes on.
  toolbox::Movie Open();
  // Whether Open found a movie.
  bool IsOpen() const { return isOpen_; }
  // Saves the movie back into its file. A failure is reported and counted.
  void SaveInPlace();

 private:
  toolbox::Movie movie_ = nullptr;
  toolbox::DataHandler storage_ = nullptr;  // open only to save in place
  bool isOpen_ = false;
};

}  // namespace input
