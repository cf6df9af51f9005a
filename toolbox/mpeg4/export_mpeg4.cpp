#include "toolbox/mpeg4/export_mpeg4.h"

#include <algorithm>
#include <map>
#include <memory>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/movie/new_media.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/mpeg4/fold_rates.h"
#include "toolbox/mpeg4/hint_tracks.h"
#include "toolbox/mpeg4/mpeg4_descriptions.h"
#include "toolbox/plan/flatten.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kSound{"soun"}, kText{"text"}, kChapters{"chap"};

// Whether the track shows samples of that kind. A track that shows none is not exported: it may not
// even have a sample description.
bool Shows(const TrackRecord& track, FourCC type) {
  return track.media && track.media->Type() == type && !SamplesInUse(track).empty();
}

// Whether the track plays in the export: it is enabled and shows pictures or sound.
bool Plays(const TrackRecord& track) {
  return track.IsEnabled() && (Shows(track, kVideo) || Shows(track, kSound));
}

// Converts the language of a media header to the form of ISO.
// QuickTime: numbers below 0x400 are languages of the Macintosh.
// ISO/IEC 14496-12 8.4.2.3: three letters of ISO 639-2/T, five bits each.
std::uint16_t PackedLanguage(std::uint16_t language) {
  constexpr std::uint16_t kMacintoshEnd = 0x400, kUnspecified = 0x7FFF;
  // The letters for each Macintosh language, from number 0 on.
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
    CheckLocated(media.samples, part.samples);
    MarkDescriptions(media.samples, part.samples, isUsed);
    // QuickTime: samples of sound may be parts of packets. ISO: each packet is one sample.
    if (PacketLength(media.samples, part.samples.from) != 1) {
      throw Refused{featureUnsupported, "its samples are parts of packets"};
    }
  }
  for (std::size_t i = 0; i < isUsed.size(); ++i) {
    Bytes& description = media.descriptions[i].bytes;
    // Unused descriptions are not written, so they may have an unknown format. Text keeps its
    // QuickTime description, because readers of chapters expect it.
    if (isUsed[i] && media.Type() != kText) {
      description = Mpeg4Description(description, media.header.scale);
    }
  }
  // The only other child of the media that ISO knows is the extended language.
  const Sibling* language = FindSibling(media.siblings, FourCC{"elng"});
  Siblings siblings = {{MediaHeader::kType, {}}};
  if (language != nullptr) siblings.push_back(*language);
  media.siblings = std::move(siblings);
  // The header is new and has default values, because that of a QuickTime file can have graphics
  // modes that ISO does not define.
  media.infoSiblings = {HeaderFor(media.Type())};
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
  constexpr std::uint32_t kInMovieAndPreview = 6;
  const bool isSound = track.media->Type() == kSound, isText = track.media->Type() == kText;
  FoldRates(track);
  ConvertMedia(track, *track.media);
  TrackHeader& header = track.header;
  header.flags = kInMovieAndPreview;
  // Players would show an enabled chapter track as subtitles.
  if (!isText) header.flags |= TrackHeader::kEnabled;
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

// A converted copy of the movie, with only the tracks that play and their chapters. If `only` is
// not null, no other track plays. Throws Refused: featureUnsupported if no track plays, or more
// than one of a kind; and whatever ConvertTrack throws.
std::unique_ptr<MovieRecord> ForMpeg4(const MovieRecord& movie, const TrackRecord* only) {
  auto converted = movie.Clone();
  std::map<FourCC, TrackRecord*> playing;
  std::set<const TrackRecord*> exported;
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    TrackRecord& track = *converted->tracks[i];
    if (!Plays(track) || (only != nullptr && movie.tracks[i].get() != only)) continue;
    // One track of each kind is enough for a player, and the object descriptor has room for no
    // more.
    if (!playing.try_emplace(track.media->Type(), &track).second) {
      throw Refused{featureUnsupported, "two tracks of one kind are enabled"};
    }
    exported.insert(&track);
  }
  if (playing.empty()) throw Refused{featureUnsupported, "no picture or sound track is enabled"};
  for (const auto& track : converted->tracks) {
    for (std::size_t i = 1; i <= track->CountReferences(kChapters); ++i) {
      TrackRecord* chapters = track->Reference(kChapters, i);
      if (chapters == nullptr || !Shows(*chapters, kText)) continue;
      exported.insert(chapters);
      // If a track is left out, its chapters go to another track: to the video track if there is
      // one.
      if (!exported.contains(track.get())) playing.rbegin()->second->Refer(kChapters, *chapters);
    }
  }
  // The loop starts at the end, because RemoveTrack changes the indexes of the tracks after it.
  for (std::size_t i = converted->tracks.size(); i-- > 0;) {
    TrackRecord& track = *converted->tracks[i];
    if (exported.contains(&track)) {
      ConvertTrack(track);
    } else {
      converted->RemoveTrack(track);
    }
  }
  // The header is new, so that no field has a value that only QuickTime defines.
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
  if (!stream || stream->objectType != ElementaryStream::kAudio) return ProfileLevels::kUnspecified;
  const auto config = ReadAudioConfig(stream->Specific());
  return (config ? AudioProfile(*config) : std::nullopt).value_or(ProfileLevels::kUnspecified);
}

// The same for pictures.
std::uint8_t PictureLevel(ByteSpan description) {
  if (AvcConfigIn(description)) return ProfileLevels::kAvc;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kVisual) {
    return ProfileLevels::kUnspecified;
  }
  return VisualProfile(stream->Specific()).value_or(ProfileLevels::kUnspecified);
}

// 'iods', ISO/IEC 14496-14 5.1: the profiles and levels that a player needs. It has room for one
// level of a kind, so only the first description of a track counts.
Sibling ObjectDescriptor(const MovieRecord& movie) {
  ProfileLevels levels;
  for (const auto& track : movie.tracks) {
    const ByteSpan description = track->media->descriptions.at(0).bytes;
    if (track->media->Type() == kSound) {
      levels.sound = SoundLevel(description);
    } else if (track->media->Type() == kVideo) {
      levels.pictures = PictureLevel(description);
    }
  }
  return {FourCC{"iods"}, EncodeObjectDescriptor(levels)};
}

}  // namespace

FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only, const Mpeg4Settings& settings,
                   std::uint64_t unit) {
  if (!settings.keepsCoding) throw Refused{featureUnsupported};
  auto converted = ForMpeg4(movie, only);
  // Files that are interleaved already are copied as a whole, however many chunks they have.
  FilePlan plan = PlanFlattened(*converted, {.maxChunksKept = UINT64_MAX, .unit = unit});
  plan.kind = FileKind::kMpeg4;
  plan.movie->siblings = {{MovieHeader::kType, {}}, ObjectDescriptor(*plan.movie)};
  if (!plan.ownSource) plan.ownSource = std::move(converted);
  if (settings.hasHints) AddHintTracks(plan, settings);
  return plan;
}

}  // namespace toolbox
