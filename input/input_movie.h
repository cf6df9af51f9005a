// One input: its settings and, once opened, its movie.
#pragma once

#include <utility>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// Owns its movie. The movie must live until the output is written, because the output refers to its
// media.
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

  // Opens the movie, edits it as the options say, and returns it. If it cannot be opened, prints
  // why and returns an empty movie. Call this once.
  toolbox::Movie Open();
  // Whether Open found a movie.
  bool IsOpen() const { return isOpen_; }
  // Saves the movie in its own file if its options say so and it was opened. A failure is reported
  // and counted.
  void SaveInPlace();

 private:
  toolbox::Movie movie_ = nullptr;
  toolbox::DataHandler storage_ = nullptr;  // stays open only to save in place
  bool isOpen_ = false;
};

}  // namespace input
