#include "toolbox/mpeg4/export_mpeg4.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "toolbox/atoms/framing.h"
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

// Whether the track goes into the file: an enabled one with pictures or sound to show.
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

HandlerRecord IsoHandler(const HandlerRecord& handler) {
  HandlerRecord iso;
  iso.subtype = handler.subtype;
  iso.name = handler.name;
  const bool isCounted = !iso.name.empty() && iso.name[0] == iso.name.size() - 1;
  if (isCounted || (handler.componentType != FourCC() && !iso.name.empty())) {
    iso.name.erase(iso.name.begin());
  }
  iso.name.erase(std::ranges::find(iso.name, std::uint8_t{0}), iso.name.end());
  // What is no UTF-8 could be in any encoding of the Macintosh.
  if (std::ranges::any_of(iso.name, [](std::uint8_t byte) { return byte < 0x20 || byte > 0x7E; })) {
    iso.name.clear();
  }
  iso.name.push_back(0);
  return iso;
}

// 'vmhd' or 'smhd' as ISO wants them: the rest of QuickTime's says how to mix colours.
Sibling MediaKindHeader(FourCC type) {
  const bool isVideo = type == kVideo;
  const FourCC atom = isVideo ? FourCC{"vmhd"} : FourCC{"smhd"};
  return {atom, Encoded([&](auto& io) {
            io.Atom(atom, [&] {
              io("flags", std::uint32_t{isVideo ? 1U : 0U});
              io.Append(Bytes(isVideo ? 8 : 4));
            });
          })};
}

void DressMedia(const TrackRecord& track, MediaRecord& media) {
  std::vector<bool> isUsed(media.descriptions.size());
  for (const UsedSamples& part : SamplesInUse(track)) {
    if (!IsLocated(media.samples, part.samples)) throw Refused{invalidSampleTable};
    MarkDescriptions(media.samples, part.samples, isUsed);
    // QuickTime: sound whose samples are parts of packets. ISO has a sample a packet.
    if (PacketLength(media.samples, part.samples.from) != 1) throw Refused{featureUnsupported};
  }
  for (std::size_t i = 0; i < isUsed.size(); ++i) {
    Bytes& description = media.descriptions[i].bytes;
    if (isUsed[i]) description = Mpeg4Description(description, media.scale);
  }
  const Sibling* language = FindSibling(media.siblings, FourCC{"elng"});
  Siblings siblings = {{FourCC{"mdhd"}, {}}};
  if (language != nullptr) siblings.push_back(*language);
  media.siblings = std::move(siblings);
  media.infoSiblings = {MediaKindHeader(media.Type())};
  media.dataSiblings.clear();
  media.userData = {};
  media.handler = IsoHandler(media.handler);
  media.language = PackedLanguage(media.language);
  media.quality = 0;
  media.flags = 0;
}

void DressTrack(TrackRecord& track) {
  constexpr std::uint32_t kEnabledInMovieAndPreview = 7;
  const bool isSound = track.media->Type() == kSound;
  FoldRates(track);
  DressMedia(track, *track.media);
  track.flags = kEnabledInMovieAndPreview;
  track.alternateGroup = 0;
  track.volume = isSound ? 0x100 : 0;
  if (isSound) track.width = track.height = 0;
  track.reserved = {};
  track.reserved2 = {};
  track.reserved3 = {};
  track.userData = {};
  track.siblings.clear();
  track.editSiblings.clear();
}

std::unique_ptr<MovieRecord> Dressed(const MovieRecord& movie, const TrackRecord* only) {
  std::vector<bool> belongs;
  for (const auto& track : movie.tracks) belongs.push_back(Belongs(*track, only));
  auto dressed = movie.Clone();
  for (std::size_t i = belongs.size(); i-- > 0;) {
    if (!belongs[i]) dressed->RemoveTrack(*dressed->tracks[i]);
  }
  if (dressed->tracks.empty()) throw Refused{featureUnsupported};
  for (const FourCC type : {kVideo, kSound}) {
    if (std::ranges::count(dressed->tracks, type,
                           [](const auto& track) { return track->media->Type(); }) > 1) {
      throw Refused{featureUnsupported};
    }
  }
  for (const auto& track : dressed->tracks) DressTrack(*track);
  dressed->rate = 0x10000;
  dressed->volume = 0x100;
  dressed->flags = 0;
  dressed->reserved = {};
  dressed->previewTime = dressed->previewDuration = dressed->posterTime = {};
  dressed->selectionTime = dressed->selectionDuration = dressed->currentTime = {};
  dressed->userData = {};
  dressed->siblings.clear();
  dressed->fileAtoms.clear();
  return dressed;
}

// The first description of the media of that kind; nothing when there is none.
ByteSpan DescriptionOf(const MovieRecord& movie, FourCC type) {
  for (const auto& track : movie.tracks) {
    if (track->media->Type() == type) return track->media->descriptions.at(0).bytes;
  }
  return {};
}

// Profile and level, ISO/IEC 14496-1 7.2.6.4.
constexpr std::uint8_t kNothingThere = 0xFF, kNotSaid = 0xFE;

std::uint8_t SoundLevel(ByteSpan description) {
  if (description.empty()) return kNothingThere;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kAudio) return kNotSaid;
  const auto config = ReadAudioConfig(stream->specific);
  return (config ? AudioProfile(*config) : std::nullopt).value_or(kNotSaid);
}

std::uint8_t PictureLevel(ByteSpan description) {
  constexpr std::uint8_t kAvc = 0x7F;
  if (description.empty()) return kNothingThere;
  if (AvcConfigIn(description)) return kAvc;
  const auto stream = StreamIn(description);
  if (!stream || stream->objectType != ElementaryStream::kVisual) return kNotSaid;
  return VisualProfile(stream->specific).value_or(kNotSaid);
}

// 'iods', ISO/IEC 14496-14 5.1.
Sibling ObjectDescriptor(const MovieRecord& movie) {
  return {FourCC{"iods"}, Encoded([&](auto& io) {
            io.Atom(FourCC{"iods"}, [&] {
              io("version", std::uint32_t{0});
              io("tag", std::uint8_t{0x10});
              io("length", std::uint32_t{0x80808007});
              io("id", std::uint16_t{0x004F});  // 1, with neither a URL nor profiles inline
              io("objects", kNothingThere);
              io("scene", kNothingThere);
              io("sound", SoundLevel(DescriptionOf(movie, kSound)));
              io("pictures", PictureLevel(DescriptionOf(movie, kVideo)));
              io("graphics", kNothingThere);
            });
          })};
}

}  // namespace

FilePlan PlanMpeg4(const MovieRecord& movie, const TrackRecord* only,
                   const Mpeg4Settings& settings) {
  if (!settings.keepsCoding) throw Refused{featureUnsupported};
  auto dressed = Dressed(movie, only);
  FilePlan plan = PlanFlattened(*dressed, {.mostChunksKept = UINT64_MAX});
  plan.kind = FileKind::kMpeg4;
  plan.movie->siblings = {{FourCC{"mvhd"}, {}}, ObjectDescriptor(*plan.movie)};
  plan.ownSource = std::move(dressed);
  if (settings.hasHints) AddHintTracks(plan, settings);
  return plan;
}

}  // namespace toolbox
