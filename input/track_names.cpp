#include "input/track_names.h"

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <tuple>

#include "utils/owned.h"
#include "utils/tracks.h"

namespace input {
namespace {

using toolbox::FourCC;
using toolbox::Movie;
using toolbox::Track;

// The name in the track's user data; nothing without one.
std::optional<std::string> OwnName(Track track) {
  const utils::OwnedHandle item;
  const auto found =
      toolbox::GetUserData(toolbox::GetTrackUserData(track), item, FourCC{"name"}, 1);
  if (found != toolbox::noErr) return std::nullopt;
  return std::string(item->bytes.begin(), item->bytes.end());
}

}  // namespace

std::string KindName(Track track) {
  std::array<unsigned char, 256> name{};
  std::ignore = toolbox::MediaGetName(toolbox::GetMediaHandler(toolbox::GetTrackMedia(track)),
                                      name.data(), 0, nullptr);
  // The first byte is the length.
  return {name.begin() + 1, name.begin() + 1 + name[0]};
}

std::vector<std::string> TrackNames(Movie movie) {
  const std::vector<Track> tracks = utils::Tracks(movie);
  struct Count {
    int all = 0, named = 0;
  };
  std::map<FourCC, Count> counts;
  for (const Track track : tracks) ++counts[utils::MediaType(track)].all;
  // Tracks without media get no number, so they count as one.
  counts[FourCC()].all = 1;
  std::vector<std::string> names;
  for (const Track track : tracks) {
    Count& count = counts[utils::MediaType(track)];
    std::string name = KindName(track) + " Track";
    ++count.named;
    if (count.all > 1) name += ' ' + std::to_string(count.named);
    names.push_back(OwnName(track).value_or(name));
  }
  return names;
}

Track TrackNamed(const std::string& name, Movie movie, const std::vector<std::string>& names) {
  const auto found = std::ranges::find(names, name);
  if (found == names.end()) return nullptr;
  return toolbox::GetMovieIndTrack(movie, static_cast<std::int32_t>(found - names.begin()) + 1);
}

}  // namespace input
