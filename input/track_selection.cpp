#include "input/track_selection.h"

#include <iostream>

#include "input/track_names.h"
#include "utils/visible.h"

namespace input {

using clipjoin::FileOptions;

std::vector<std::string> NeededNames(toolbox::Movie movie, const FileOptions& options) {
  const bool areNeeded = options.listTracks || !options.includeTracks.empty() ||
                         !options.excludeTracks.empty() ||
                         (options.lengthMode & clipjoin::kLengthSource) == clipjoin::kNamedTrack ||
                         !options.enableTracks.empty() || !options.disableTracks.empty() ||
                         !options.timeScaleReferenceTrack.empty();
  return areNeeded ? TrackNames(movie) : std::vector<std::string>();
}

void SelectTracks(toolbox::Movie movie, const std::vector<std::string>& names,
                  const FileOptions& options) {
  if (options.listTracks) std::cout << "Track list for " << utils::Visible(options.path) << ":\n";
  std::int32_t kept = 0;  // removed tracks leave no gap, so the next track has number kept + 1
  for (const std::string& name : names) {
    const toolbox::Track track = toolbox::GetMovieIndTrack(movie, kept + 1);
    if (options.enableTracks.contains(name)) toolbox::SetTrackEnabled(track, true);
    if (options.disableTracks.contains(name)) toolbox::SetTrackEnabled(track, false);
    const bool isKept = (options.includeTracks.empty() || options.includeTracks.contains(name)) &&
                        !options.excludeTracks.contains(name);
    if (options.listTracks) {
      std::cout << '\t' << (isKept ? "* " : "  ") << utils::Visible(name) << '\n';
    }
    if (isKept) {
      ++kept;
    } else {
      toolbox::DisposeMovieTrack(track);
    }
  }
  if (!names.empty() && kept == 0 && !options.quiet) {
    std::cerr << "Warning: no tracks from " << utils::Visible(options.path)
              << " were used in the output movie\n";
  }
}

}  // namespace input
