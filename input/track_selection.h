// Tracks chosen by name: which are kept, which are switched on and off, whose properties are used.
#pragma once

#include <string>
#include <vector>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// The tracks of an input as they were when it was opened. Names are worked out only when the
// options of the input speak of tracks.
class TrackSelection {
 public:
  TrackSelection(toolbox::Movie movie, const clipjoin::FileOptions& options);

  // The track of that name, or null.
  toolbox::Track Find(const std::string& name) const;
  // Enables, disables, lists and removes tracks as the options say.
  void Apply() const;

 private:
  bool IsKept(const std::string& name) const;

  toolbox::Movie movie_;
  const clipjoin::FileOptions& options_;
  std::vector<std::string> names_;  // by track number - 1
};

}  // namespace input
