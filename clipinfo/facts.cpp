#include "clipinfo/facts.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <set>
#include <variant>

#include "clipinfo/formats.h"
#include "input/track_names.h"
#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/sample_entries.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/matrix.h"
#include "toolbox/movie/media_types.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/read/top_level.h"

namespace clipinfo {
namespace {

using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::MediaRecord;
using toolbox::MovieRecord;
using toolbox::TrackRecord;

constexpr FourCC kVideo{"vide"}, kSound{"soun"};

// What the top-level atoms of the file at `path` say.
FileFacts ReadFileFacts(const boost::filesystem::path& path) {
  constexpr std::uint64_t kShortestType = 8, kLongestType = 4096;
  const toolbox::FileSource source(path);
  FileFacts facts{.size = source.Size()};
  toolbox::TopLevelWalk walk(source);
  while (const auto atom = walk.Next()) {
    const std::uint64_t size = atom->ContentSize();
    if (atom->type == FourCC{"ftyp"} && !facts.type && size >= kShortestType &&
        size <= kLongestType) {
      facts.type = toolbox::Decode<toolbox::FileType>(walk.Content(*atom));
    } else if (atom->type == FourCC{"moov"} && !facts.header) {
      toolbox::Bytes start(std::min<std::uint64_t>(8, size));
      source.Read(atom->ContentAt(), start);
      facts.header = {.at = atom->at,
                      .size = atom->size,
                      .isCompressed = toolbox::FourCCAt(start, 4) == FourCC{"cmov"},
                      .isBeforeMedia = !facts.hasMedia};
    }
    facts.hasMedia = facts.hasMedia || atom->type == FourCC{"mdat"};
    facts.isFragmented = facts.isFragmented || atom->type == FourCC{"moof"};
  }
  facts.kind = facts.header ? KindOfFile(facts.type) : "AAC (ADTS)";
  return facts;
}

ReferenceFacts FactsOf(const toolbox::DataReference& reference,
                       const boost::filesystem::path& movie) {
  using Kind = ReferenceFacts::Kind;
  if (std::holds_alternative<toolbox::ThisFile>(reference)) return {};
  if (std::holds_alternative<toolbox::InMemory>(reference)) return {.kind = Kind::kMemory};
  if (const auto* file = std::get_if<toolbox::OtherFile>(&reference)) {
    return {Kind::kFile, file->path.native(), true};
  }
  return {Kind::kFile, StatedPlace(std::get<toolbox::Unresolved>(reference), movie), false};
}

// The size of the track on the screen: that of the box around it after its own matrix and that of
// the movie. Nothing for a track without a size.
std::optional<Extent> ShownExtent(const TrackRecord& track) {
  constexpr double kFixed = 65536.0, kFract = 1073741824.0;
  const auto& header = track.header;
  if (header.width == 0 || header.height == 0) return std::nullopt;
  const toolbox::Matrix m = toolbox::Concatenated(header.matrix, track.movie->header.matrix);
  constexpr double kMost = std::numeric_limits<double>::max();
  double left = kMost, top = kMost, right = -kMost, bottom = -kMost;
  for (const double x : {0.0, header.width / kFixed}) {
    for (const double y : {0.0, header.height / kFixed}) {
      const double depth = (m[2] * x + m[5] * y + m[8]) / kFract;
      if (depth == 0) return std::nullopt;
      const double px = (m[0] * x + m[3] * y + m[6]) / kFixed / depth;
      const double py = (m[1] * x + m[4] * y + m[7]) / kFixed / depth;
      left = std::min(left, px);
      right = std::max(right, px);
      top = std::min(top, py);
      bottom = std::max(bottom, py);
    }
  }
  // The elements of a matrix are rounded, so the size of a turned picture is not quite whole.
  const auto rounded = [](double pixels) { return std::round(pixels * 100) / 100; };
  return Extent{rounded(right - left), rounded(bottom - top)};
}

std::optional<FrameRates> RatesOf(const MediaRecord& media) {
  const std::uint64_t count = media.samples.Count();
  if (count < 2) return std::nullopt;
  const std::uint64_t counted = count - 1;
  std::uint64_t seen = 0;
  std::int64_t shortest = INT64_MAX, longest = 0, all = 0;
  toolbox::ForEachTime(media.samples, [&](std::uint64_t samples, std::int64_t duration) {
    const std::uint64_t used = std::min(samples, counted - seen);
    seen += used;
    if (used == 0 || duration <= 0) return;
    shortest = std::min(shortest, duration);
    longest = std::max(longest, duration);
    all += duration * static_cast<std::int64_t>(used);
  });
  if (longest == 0) return std::nullopt;
  const double scale = media.header.scale;
  return FrameRates{scale / static_cast<double>(longest), scale / static_cast<double>(shortest),
                    scale * static_cast<double>(counted) / static_cast<double>(all)};
}

std::uint64_t CountSync(const toolbox::SampleTable& samples) {
  std::uint64_t count = 0;
  for (const toolbox::SampleSlice& slice : samples.Slices()) {
    if (slice.rows->sync) {
      toolbox::ForEachListed(slice, *slice.rows->sync, [&](std::uint64_t) { ++count; });
    } else {
      count += slice.part.Count();
    }
  }
  return count;
}

std::uint64_t CountBytes(const toolbox::SampleTable& samples) {
  std::uint64_t bytes = 0;
  toolbox::ForEachPiece(samples, {0, toolbox::LocatedCount(samples)},
                        [&](const toolbox::SamplePiece& piece) { bytes += piece.size; });
  return bytes;
}

// Adds what the sample descriptions say.
void Describe(const MediaRecord& media, TrackFacts& facts) {
  const FourCC type = media.Type();
  std::set<std::string> known;
  for (const toolbox::SampleDescription& description : media.descriptions) {
    std::string codec = CodecName(description.bytes, type);
    if (description.IsProtected()) codec += " encrypted";
    if (known.insert(codec).second) facts.codecs.push_back(std::move(codec));
  }
  if (media.descriptions.empty()) return;
  const toolbox::Bytes& first = media.descriptions.front().bytes;
  if (type == kVideo) {
    if (const auto picture = toolbox::ReadPictureEntry(first)) {
      facts.coded =
          Extent{static_cast<double>(picture->width), static_cast<double>(picture->height)};
    }
  } else if (type == kSound) {
    facts.sound = SoundOf(first, media.header.scale);
  }
}

TrackFacts FactsOf(const TrackRecord& track, const std::string& name) {
  TrackFacts facts{.track = &track, .name = name, .language = "und"};
  if (!track.media) return facts;
  const MediaRecord& media = *track.media;
  const toolbox::MediaType type = toolbox::DescribeMediaType(media.Type());
  facts.kind = type.name;
  facts.language = LanguageCode(media.header.language);
  Describe(media, facts);
  if (type.isSeen || facts.coded) facts.shown = ShownExtent(track);
  if (media.Type() == kVideo) facts.frameRates = RatesOf(media);
  facts.samples = media.samples.Count();
  facts.syncSamples = CountSync(media.samples);
  facts.bytes = CountBytes(media.samples);
  return facts;
}

}  // namespace

std::vector<std::string> BrandsOf(const toolbox::FileType& type) {
  std::vector<std::string> brands{type.majorBrand.Text()};
  for (std::size_t at = 0; at + 4 <= type.compatibleBrands.size(); at += 4) {
    const FourCC brand = toolbox::FourCCAt(type.compatibleBrands, at);
    if (brand != FourCC()) brands.push_back(brand.Text());  // some writers fill up with zeros
  }
  return brands;
}

toolbox::SoundFormat SoundOf(ByteSpan entry, std::int32_t scale) {
  toolbox::SoundFormat format = toolbox::ReadSoundFormat(entry);
  // An entry has no room for a rate of 96 kHz. The time scale of such sound is its rate.
  if (!std::isfinite(format.rate) || format.rate <= 0) format.rate = scale;
  return format;
}

Facts GatherFacts(OpenedMovie& opened) {
  MovieRecord& movie = *opened.movie;
  Facts facts{.file = ReadFileFacts(opened.path)};
  Resolve(opened);
  const std::vector<std::string> names = input::TrackNames(&movie);
  for (std::size_t i = 0; i < movie.tracks.size(); ++i) {
    TrackFacts& track = facts.tracks.emplace_back(FactsOf(*movie.tracks[i], names[i]));
    if (!movie.tracks[i]->media) continue;
    for (const toolbox::DataReference& reference : movie.tracks[i]->media->dataReferences) {
      track.references.push_back(FactsOf(reference, opened.path));
    }
  }
  facts.chapters = ReadChapters(movie);
  facts.tags = TagsIn(movie.userData, movie.siblings);
  return facts;
}

double Seconds(std::int64_t units, std::int32_t scale) {
  return static_cast<double>(units) / scale;
}

std::string DateText(std::uint64_t date) {
  using namespace std::chrono;
  constexpr std::uint64_t kYear10000 = 255'485'145'600;  // in seconds since 1904
  if (date == 0 || date >= kYear10000) return "";
  const sys_seconds time = sys_days(year(1904) / 1 / 1) + seconds(date);
  const sys_days day = floor<days>(time);
  const year_month_day date3(day);
  const hh_mm_ss clock(time - day);
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, "%04d-%02u-%02uT%02d:%02d:%02dZ", int(date3.year()),
                unsigned(date3.month()), unsigned(date3.day()), int(clock.hours().count()),
                int(clock.minutes().count()), int(clock.seconds().count()));
  return buffer;
}

}  // namespace clipinfo
