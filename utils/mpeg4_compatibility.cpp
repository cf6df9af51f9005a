#include "utils/mpeg4_compatibility.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <initializer_list>
#include <set>

#include "utils/owned.h"

namespace utils {
namespace {

using toolbox::FourCC;
using toolbox::Media;
using toolbox::Movie;
using toolbox::Track;

constexpr FourCC kWindowLocation{"WLOC"};

// Whether the enabled tracks of one media type can be exported.
enum class Verdict : std::uint8_t { kAbsent, kGood, kBad };

// The data formats of all sample descriptions.
std::set<std::uint32_t> Formats(Media media) {
  std::set<std::uint32_t> formats;
  for (std::int32_t i = 1; i <= toolbox::GetMediaSampleDescriptionCount(media); ++i) {
    const OwnedHandle description;
    toolbox::GetMediaSampleDescription(media, i, description);
    const toolbox::Bytes& bytes = description->bytes;
    // The format is after the 32-bit size. A description that cannot be read has none.
    formats.insert(bytes.size() < 8 ? 0 : boost::endian::load_big_u32(&bytes[4]));
  }
  return formats;
}

// kGood needs exactly one enabled track of the type, and one of the accepted formats in all its
// sample descriptions. Having no descriptions is good too.
Verdict Judge(Movie movie, FourCC type, std::initializer_list<FourCC> accepted) {
  constexpr std::int32_t kFlags = toolbox::movieTrackMediaType | toolbox::movieTrackEnabledOnly;
  const Track track = toolbox::GetMovieIndTrackType(movie, 1, type, kFlags);
  if (track == nullptr) return Verdict::kAbsent;
  if (toolbox::GetMovieIndTrackType(movie, 2, type, kFlags) != nullptr) return Verdict::kBad;
  const std::set<std::uint32_t> formats = Formats(toolbox::GetTrackMedia(track));
  const bool isGood = formats.empty() || std::ranges::any_of(accepted, [&](FourCC format) {
                        return formats == std::set{format.value};
                      });
  return isGood ? Verdict::kGood : Verdict::kBad;
}

}  // namespace

bool isMPEG4Compatible(Movie movie) {
  const Verdict video = Judge(movie, FourCC{"vide"}, {FourCC{"mp4v"}, FourCC{"avc1"}});
  const Verdict sound = Judge(movie, FourCC{"soun"}, {FourCC{"mp4a"}});
  return video != Verdict::kBad && sound != Verdict::kBad &&
         (video == Verdict::kGood || sound == Verdict::kGood);
}

bool HasAnnotations(Movie movie) {
  const toolbox::UserData data = toolbox::GetMovieUserData(movie);
  FourCC type = toolbox::GetNextUserDataType(data, FourCC());
  if (type == kWindowLocation) type = toolbox::GetNextUserDataType(data, type);
  return type != FourCC();
}

}  // namespace utils
