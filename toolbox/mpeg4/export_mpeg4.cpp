#include "toolbox/mpeg4/export_mpeg4.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/mpeg4/fold_rates.h"
#include "toolbox/mpeg4/hint_tracks.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"};

// Whether the track goes into the file: it is enabled and has pictures or sound to show.
bool Belongs(const TrackRecord& track, const TrackRecord* only) {
  if (!track.media || !track.IsEnabled() || (only != nullptr && &track != only)) return false;
  const FourCC type = track.media->Type();
  // A track that shows nothing would have no samples, and perhaps not even a description.
  return (type == kVideo || type == kSound) && !SamplesInUse(track).empty();
}

// QuickTime: numbers below 0x400 are languages of the Macintosh.
// ISO: three letters of ISO 639-2/T, five bits each.
std::uint16_t PackedLanguage(std::uint16_t language) {
  constexpr std::uint16_t kMacintoshEnd = 0x400, kUnspecified = 0x7FFF;
  constexpr std::string_view kNames =
      "engfradeuitanldswespadanpornorhebjpnarafinellislmltturhrvzhourdhinthakorlit"
      "polhunestlavsmefaofasruszhonldglesqironcesslkslvyidsrpmkdbulukrbel";
  if (language >= kMacintoshEnd && language != kUnspecified) return language & 0x7FFF;
  const std::size_t at = std::size_t{language} * 3;
  std::uint16_t packed = 0;
  for (const char letter : at < kNames.size() ? kNames.substr(at, 3) : "und") {
    packed = static_cast<std::uint16_t>(packed << 5 | (letter - 0x60));
  }
  return packed;
}

// 'vmhd' or 'smhd' as ISO wants them: the rest of QuickTime's says how to mix colours.
Sibling MediaKindHeader(FourCC type) {
  return type == kVideo ? SiblingOf(VideoMediaHeader()) : SiblingOf(SoundMediaHeader());
}

// Leaves out what only QuickTime has.
void ConvertMedia(const TrackRecord& track, MediaRecord& media) {
  std::vector<bool> isUsed(media.descriptions.size());
  for (const UsedSamples& part : SamplesInUse(track)) {
    if (!IsLocated(media.samples, part.samples)) throw Refused{invalidSampleTable};
    MarkDescriptions(media.samples, part.samples, isUsed);
    // QuickTime: samples of sound may be parts of packets. ISO: each packet is one sample.
    if (PacketLength(media.samples, part.samples.from) != 1) throw Refused{featureUnsupported};
  }
  for (std::size_t i = 0; i < isUsed.size(); ++i) {
    Bytes& description = media.descriptions[i].bytes;
    if (isUsed[i]) description = Mpeg4Description(description, media.header.scale);
  }
  const Sibling* language = FindSibling(media.siblings, FourCC{"elng"});
  Siblings siblings = {{MediaHeader::kType, {}}};
  if (language != nullptr) siblings.push_back(*language);
  media.siblings = std::move(siblings);
  media.infoSiblings = {MediaKindHeader(media.Type())};
  media.dataSiblings.clear();
  media.userData = {};
  media.handler = IsoHandler(media.handler);
  media.header.language = PackedLanguage(media.header.language);
  media.header.quality = 0;
  media.header.flags = 0;
}

void ConvertTrack(TrackRecord& track) {
  constexpr std::uint32_t kEnabledInMovieAndPreview = 7;
  const bool isSound = track.media->Type() == kSound;
  FoldRates(track);
  ConvertMedia(track, *track.media);
  TrackHeader& header = track.header;
  header.flags = kEnabledInMovieAndPreview;
  header.alternateGroup = 0;
  header.volume = isSound ? 0x100 : 0;
  if (isSound) header.width = header.height = 0;
  header.reserved = {};
  header.reserved2 = {};
  header.reserved3 = {};
  track.userData = {};
  track.siblings.clear();
  track.editSiblings.clear();
}

// A copy of the movie with the tracks that belong into the file, converted.
std::unique_ptr<MovieRecord> ForMpeg4(const MovieRecord& movie, const TrackRecord* only) {
  std::vector<bool> belongs;
  for (const auto& track : movie.tracks) belongs.push_back(Belongs(*track, only));
  auto converted = movie.Clone();
  for (std::size_t i = belongs.size(); i-- > 0;) {
    if (!belongs[i]) converted->RemoveTrack(*converted->tracks[i]);
  }
  if (converted->tracks.empty()) throw Refused{featureUnsupported};
  for (const FourCC type : {kVideo, kSound}) {
    if (std::ranges::count(converted->tracks, type,
                           [](const auto& track) { return track->media->Type(); }) > 1) {
      throw Refused{featureUnsupported};
    }
  }
  for (const auto& track : converted->tracks) ConvertTrack(*track);
  // A new header has nothing that ISO does not define.
  const MovieHeader& header = movie.header;
  converted->header = {.created = header.created,
                       .scale = header.scale,
                       .matrix = header.matrix,
                       .nextTrackId = converted->header.nextTrackId};
  converted->userData = {};
  converted->siblings.clear();
  converted->fileAtoms.clear();
  return converted;
}

// The first description of the media of that kind; empty when there is none.
ByteSpan DescriptionOf(const MovieRecord& movie, FourCC type) {
  for (const auto& track : movie.tracks) {
    if (track->media->Type() == type) return track->media->descriptions.at(0).bytes;
  }
  return {};
}

std::uint8_t SoundLevel(ByteSpan description) {
  if (description.empty()) return ProfileLevels::kNothingThere;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kAudio) return ProfileLevels::kNotSaid;
  const auto config = ReadAudioConfig(stream->Specific());
  return (config ? AudioProfile(*config) : std::nullopt).value_or(ProfileLevels::kNotSaid);
}

std::uint8_t PictureLevel(ByteSpan description) {
  if (description.empty()) return ProfileLevels::kNothingThere;
  if (AvcConfigIn(description)) return ProfileLevels::kAvc;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kVisual) return ProfileLevels::kNotSaid;
  return VisualProfile(stream->Specific()).value_or(ProfileLevels::kNotSaid);
}

Sibling ObjectDescriptor(const MovieRecord& movie) {
  ProfileLevels levels;
  levels.sound = SoundLevel(DescriptionOf(movie, kSound));
  levels.pictures = PictureLevel(DescriptionOf(movie, kVideo));
  return {FourCC{"iods"}, EncodeObjectDescriptor(levels)};
}

}  // namespace

FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only,
                   const Mpeg4Settings& settings) {
  if (!settings.keepsCoding) throw Refused{featureUnsupported};
  auto converted = ForMpeg4(movie, only);
  FilePlan plan = PlanFlattened(*converted, {.mostChunksKept = UINT64_MAX});
  plan.kind = FileKind::kMpeg4;
  plan.movie->siblings = {{MovieHeader::kType, {}}, ObjectDescriptor(*plan.movie)};
  plan.ownSource = std::move(converted);
  if (settings.hasHints) AddHintTracks(plan, settings);
  return plan;
}

}  // namespace toolbox
