#include "input/track_names.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "utils/owned.h"
#include "utils/tracks.h"

namespace input {
namespace {

using toolbox::FourCC;
using toolbox::Movie;
using toolbox::Track;

// The track with that number among those of the media type, counted from 1; or null.
Track OfType(Movie movie, std::int32_t number, FourCC type) {
  return toolbox::GetMovieIndTrackType(movie, number, type, toolbox::movieTrackMediaType);
}

}  // namespace

std::string KindName(Track track) {
  std::array<unsigned char, 256> name{};
  std::ignore = toolbox::MediaGetName(toolbox::GetMediaHandler(toolbox::GetTrackMedia(track)),
                                      name.data(), 0, nullptr);
  // The first byte is the length.
  return {name.begin() + 1, name.begin() + 1 + name[0]};
}

std::string TrackName(Movie movie, Track track) {
  const utils::OwnedHandle item;
  if (toolbox::GetUserData(toolbox::GetTrackUserData(track), item, FourCC{"name"}, 1) ==
      toolbox::noErr) {
    return {item->bytes.begin(), item->bytes.end()};
  }
  std::string name = KindName(track) + " Track";
  const FourCC type = utils::MediaType(track);
  if (OfType(movie, 2, type) == nullptr) return name;
  std::int32_t number = 1;
  while (OfType(movie, number, type) != track) ++number;
  return name + ' ' + std::to_string(number);
}

std::vector<std::string> TrackNames(Movie movie) {
  std::vector<std::string> names;
  for (const Track track : utils::Tracks(movie)) names.push_back(TrackName(movie, track));
  return names;
}

Track TrackNamed(const std::string& name, Movie movie, const std::vector<std::string>& names) {
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) return nullptr;
  return toolbox::GetMovieIndTrack(movie, static_cast<std::int32_t>(found - names.begin()) + 1);
}

}  // namespace input
