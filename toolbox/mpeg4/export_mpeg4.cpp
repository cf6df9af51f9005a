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

// Whether the track is exported: it is enabled and shows pictures or sound. If `only` is not null,
// no other track is exported.
bool Belongs(const TrackRecord& track, const TrackRecord* only) {
  if (!track.media || !track.IsEnabled() || (only != nullptr && &track != only)) return false;
  const FourCC type = track.media->Type();
  // The exported media has only samples that are shown. A track that shows nothing would have no
  // samples, and perhaps not even a sample description.
  return (type == kVideo || type == kSound) && !SamplesInUse(track).empty();
}

// Converts the language of a media header to the form of ISO.
// QuickTime: numbers below 0x400 are languages of the Macintosh.
// ISO/IEC 14496-12 8.4.2.3: three letters of ISO 639-2/T, five bits each.
std::uint16_t PackedLanguage(std::uint16_t language) {
  constexpr std::uint16_t kMacintoshEnd = 0x400, kUnspecified = 0x7FFF;
  // Three letters for each Macintosh language, from number 0 on.
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

// Converts the descriptions of the media and removes everything that only QuickTime defines. Throws
// Refused: invalidSampleTable (samples in no chunk), featureUnsupported, invalidSampleDescription.
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
    // Unused descriptions are not written, so an unknown format there is no reason to refuse.
    if (isUsed[i]) description = Mpeg4Description(description, media.header.scale);
  }
  // The only other child of the media that ISO knows is the extended language.
  const Sibling* language = FindSibling(media.siblings, FourCC{"elng"});
  Siblings siblings = {{MediaHeader::kType, {}}};
  if (language != nullptr) siblings.push_back(*language);
  media.siblings = std::move(siblings);
  // A new header with the default values, because QuickTime's can have settings for mixing colours
  // that ISO does not define.
  media.infoSiblings = {media.Type() == kVideo ? SiblingOf(VideoMediaHeader())
                                               : SiblingOf(SoundMediaHeader())};
  media.dataSiblings.clear();
  media.userData = {};
  media.handler = IsoHandler(media.handler);
  media.header.language = PackedLanguage(media.header.language);
  media.header.quality = 0;
  media.header.flags = 0;
}

// Converts the track and its media. Throws Refused like FoldRates and ConvertMedia.
void ConvertTrack(TrackRecord& track) {
  // ISO/IEC 14496-12 8.3.2.
  constexpr std::uint32_t kEnabledInMovieAndPreview = 7;
  const bool isSound = track.media->Type() == kSound;
  FoldRates(track);
  ConvertMedia(track, *track.media);
  TrackHeader& header = track.header;
  header.flags = kEnabledInMovieAndPreview;
  header.alternateGroup = 0;
  header.volume = isSound ? 0x100 : 0;  // 8.8
  if (isSound) header.width = header.height = 0;
  header.reserved = {};
  header.reserved2 = {};
  header.reserved3 = {};
  track.userData = {};
  track.siblings.clear();
  track.editSiblings.clear();
}

// A converted copy of the movie, with only the exported tracks. Throws Refused: featureUnsupported
// if no track is left, or more than one of a kind; and whatever ConvertTrack throws.
std::unique_ptr<MovieRecord> ForMpeg4(const MovieRecord& movie, const TrackRecord* only) {
  auto converted = movie.Clone();
  // From the last to the first, so that the indexes of the others stay valid.
  for (std::size_t i = movie.tracks.size(); i-- > 0;) {
    if (!Belongs(*movie.tracks[i], only)) converted->RemoveTrack(*converted->tracks[i]);
  }
  // One track of each kind is enough for a player, and the object descriptor has room for no more.
  const auto& tracks = converted->tracks;
  const bool isTwice = tracks.size() == 2 && tracks[0]->media->Type() == tracks[1]->media->Type();
  if (tracks.empty() || tracks.size() > 2 || isTwice) throw Refused{featureUnsupported};
  for (const auto& track : tracks) ConvertTrack(*track);
  // A new header, so that no field has a value that only QuickTime defines.
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

// The profile and level of the sound with that description, as an object descriptor states it.
std::uint8_t SoundLevel(ByteSpan description) {
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kAudio) return ProfileLevels::kNotSaid;
  const auto config = ReadAudioConfig(stream->Specific());
  return (config ? AudioProfile(*config) : std::nullopt).value_or(ProfileLevels::kNotSaid);
}

// The same for pictures.
std::uint8_t PictureLevel(ByteSpan description) {
  if (AvcConfigIn(description)) return ProfileLevels::kAvc;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kVisual) return ProfileLevels::kNotSaid;
  return VisualProfile(stream->Specific()).value_or(ProfileLevels::kNotSaid);
}

// 'iods', ISO/IEC 14496-14 5.1: the profiles and levels that a player needs. It has room for one
// level of a kind, so only the first description of a track counts.
Sibling ObjectDescriptor(const MovieRecord& movie) {
  ProfileLevels levels;
  for (const auto& track : movie.tracks) {
    const ByteSpan description = track->media->descriptions.at(0).bytes;
    if (track->media->Type() == kSound) {
      levels.sound = SoundLevel(description);
    } else {
      levels.pictures = PictureLevel(description);
    }
  }
  return {FourCC{"iods"}, EncodeObjectDescriptor(levels)};
}

}  // namespace

FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only,
                   const Mpeg4Settings& settings) {
  if (!settings.keepsCoding) throw Refused{featureUnsupported};
  auto converted = ForMpeg4(movie, only);
  // Any number of chunks may be kept: files that are already interleaved are copied as a whole.
  FilePlan plan = PlanFlattened(*converted, {.mostChunksKept = UINT64_MAX});
  plan.kind = FileKind::kMpeg4;
  plan.movie->siblings = {{MovieHeader::kType, {}}, ObjectDescriptor(*plan.movie)};
  plan.ownSource = std::move(converted);
  if (settings.hasHints) AddHintTracks(plan, settings);
  return plan;
}

}  // namespace toolbox
