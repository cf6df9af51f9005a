// Tracks selected by name: to keep, to enable or disable, or to take a length or time scale from.
#pragma once

#include <string>
#include <vector>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace input {

// The tracks of one input and their names when it was opened. Removing a track can change the names
// of others, so names are determined once; and only if the options need names, because a name costs
// several calls. Refers to the movie and the options, which must live longer.
class TrackSelection {
 public:
  TrackSelection(toolbox::Movie movie, const clipjoin::FileOptions& options);

  // The first track with that name, or null. Valid until Apply is called.
  toolbox::Track Find(const std::string& name) const;
  // Enables, disables, lists (on standard output) and removes tracks as the options say. Warns if
  // no track is left.
  void Apply() const;

 private:
  bool IsKept(const std::string& name) const;

  toolbox::Movie movie_;
  const clipjoin::FileOptions& options_;
  std::vector<std::string> names_;  // by track index; empty if the options need no names
};

}  // namespace input
