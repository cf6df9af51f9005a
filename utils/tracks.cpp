#include "utils/tracks.h"

namespace utils {

std::vector<toolbox::Track> Tracks(toolbox::Movie movie) {
  std::vector<toolbox::Track> tracks;
  for (std::int32_t i = 1; i <= toolbox::GetMovieTrackCount(movie); ++i) {
    tracks.push_back(toolbox::GetMovieIndTrack(movie, i));
  }
  return tracks;
}

toolbox::FourCC MediaType(toolbox::Track track) {
  toolbox::FourCC type;
  toolbox::GetMediaHandlerDescription(toolbox::GetTrackMedia(track), &type, nullptr, nullptr);
  return type;
}

}  // namespace utils
