#include "input/track_selection.h"

#include <algorithm>
#include <iostream>

#include "input/track_names.h"

namespace input {
namespace {

// Whether the options name tracks or list them.
bool NeedsNames(const clipjoin::FileOptions& options) {
  return options.listTracks || !options.includeTracks.empty() || !options.excludeTracks.empty() ||
         (options.lengthMode & clipjoin::kLengthSource) == clipjoin::kNamedTrack ||
         !options.enableTracks.empty() || !options.disableTracks.empty() ||
         !options.timeScaleReferenceTrack.empty();
}

}  // namespace

TrackSelection::TrackSelection(toolbox::Movie movie, const clipjoin::FileOptions& options)
    : movie_(movie), options_(options) {
  if (NeedsNames(options)) names_ = TrackNames(movie);
}

toolbox::Track TrackSelection::Find(const std::string& name) const {
  const auto found = std::ranges::find(names_, name);
  if (found == names_.end()) return nullptr;
  return toolbox::GetMovieIndTrack(movie_, static_cast<std::int32_t>(found - names_.begin()) + 1);
}

bool TrackSelection::IsKept(const std::string& name) const {
  return (options_.includeTracks.empty() || options_.includeTracks.contains(name)) &&
         !options_.excludeTracks.contains(name);
}

void TrackSelection::Apply() const {
  if (options_.listTracks) std::cout << "Track list for " << options_.path << ":\n";
  std::int32_t kept = 0;  // the next track has the number kept + 1, as removed ones are gone
  for (const std::string& name : names_) {
    const toolbox::Track track = toolbox::GetMovieIndTrack(movie_, kept + 1);
    if (options_.enableTracks.contains(name)) toolbox::SetTrackEnabled(track, true);
    if (options_.disableTracks.contains(name)) toolbox::SetTrackEnabled(track, false);
    const bool isKept = IsKept(name);
    if (options_.listTracks) std::cout << '\t' << (isKept ? "* " : "  ") << name << '\n';
    if (isKept) {
      ++kept;
    } else {
      toolbox::DisposeMovieTrack(track);
    }
  }
  if (!names_.empty() && kept == 0) {
    std::cerr << "Warning: no tracks from " << options_.path << " were used in the output movie\n";
  }
}

}  // namespace input
