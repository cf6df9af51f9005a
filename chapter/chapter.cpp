#include "chapter/chapter.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <boost/icl/interval_set.hpp>
#include <boost/range/adaptor/reversed.hpp>
#include <iostream>
#include <set>
#include <tuple>
#include <utility>

#include "chapter/text.h"
#include "utils/owned.h"
#include "utils/tracks.h"
#include "utils/visible.h"

namespace chapter {
namespace {

using boost::endian::load_big_u16;
using boost::endian::load_big_u32;
using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::Media;
using toolbox::Movie;
using toolbox::TimeValue;
using toolbox::Track;

constexpr FourCC kChapters{"chap"}, kText{"text"}, kEncoding{"encd"};

// In bytes. The text has at most 64 KiB; atoms with its style may follow it.
constexpr std::int32_t kLongestSample = 1 << 20;

// The tracks that other tracks refer to as their chapters, each once.
std::vector<Track> ChapterTracks(Movie movie) {
  std::vector<Track> tracks;
  std::set<Track> known;
  for (const Track track : utils::Tracks(movie)) {
    const std::int32_t references = toolbox::GetTrackReferenceCount(track, kChapters);
    for (std::int32_t number = 1; number <= references; ++number) {
      const Track chapters = toolbox::GetTrackReference(track, kChapters, number);
      if (chapters != nullptr && known.insert(chapters).second) tracks.push_back(chapters);
    }
  }
  return tracks;
}

// The encoding that the atoms after the text of a sample give ('encd'), else Mac Roman.
toolbox::CFStringEncoding StatedEncoding(ByteSpan atoms) {
  while (atoms.size() >= 8) {
    const std::uint32_t size = load_big_u32(atoms.data());
    if (size < 8 || size > atoms.size()) break;
    if (FourCC(load_big_u32(&atoms[4])) == kEncoding && size >= 12) {
      return load_big_u32(&atoms[8]);
    }
    atoms = atoms.subspan(size);
  }
  return toolbox::kCFStringEncodingMacRoman;
}

// Appends the chapters of one chapter track. `scale` is that of the movie.
void ReadChaptersOf(Track track, toolbox::TimeScale scale, std::vector<Chapter>& chapters) {
  if (utils::MediaType(track) != kText) return;
  const Media media = toolbox::GetTrackMedia(track);
  const utils::OwnedHandle sample;
  constexpr auto kFirst =
      static_cast<std::int16_t>(toolbox::nextTimeMediaSample | toolbox::nextTimeEdgeOK);
  TimeValue time = toolbox::GetTrackOffset(track), duration = 0;
  toolbox::GetTrackNextInterestingTime(track, kFirst, time, toolbox::fixedOne, &time, &duration);
  while (time != -1) {
    const TimeValue mediaTime = toolbox::TrackTimeToMediaTime(time, track);
    const bool isRead =
        toolbox::GetMediaSample(media, sample, kLongestSample, nullptr, mediaTime, nullptr, nullptr,
                                nullptr, nullptr, 1, nullptr, nullptr) == toolbox::noErr;
    // A sample that cannot be read is still a chapter, without a title.
    chapters.push_back({scale, time, duration, isRead ? ChapterTitle(sample->bytes) : ""});
    toolbox::GetTrackNextInterestingTime(track, toolbox::nextTimeMediaSample, time,
                                         toolbox::fixedOne, &time, &duration);
  }
}

}  // namespace

std::string ChapterTitle(ByteSpan sample) {
  if (sample.size() < 2) return {};
  const std::size_t size = std::min<std::size_t>(load_big_u16(sample.data()), sample.size() - 2);
  const ByteSpan text = sample.subspan(2, size);
  toolbox::CFStringEncoding encoding = StatedEncoding(sample.subspan(2 + size));
  if (encoding == toolbox::kCFStringEncodingUnicode) {
    // Most writers that give this number mean UTF-8, including BuildChapterTrack. Real UTF-16
    // starts with a byte-order mark.
    const std::uint32_t mark = size < 2 ? 0 : load_big_u16(text.data());
    if (mark != 0xFEFF && mark != 0xFFFE) encoding = toolbox::kCFStringEncodingUTF8;
  }
  return ConvertTextEncoding(std::string(text.begin(), text.end()), encoding,
                             toolbox::kCFStringEncodingUTF8);
}

std::vector<Chapter> ReadChapters(Movie movie) {
  std::vector<Chapter> chapters;
  const toolbox::TimeScale scale = toolbox::GetMovieTimeScale(movie);
  for (const Track track : ChapterTracks(movie)) ReadChaptersOf(track, scale, chapters);
  return chapters;
}

bool HasChapters(Movie movie) { return !ReadChapters(movie).empty(); }

void FilterChapters(Movie movie, const clipjoin::FileOptions& options) {
  const std::set<std::string>&included = options.includeChapters,
        &excluded = options.excludeChapters;
  if (!options.listChapters && included.empty() && excluded.empty()) return;
  if (options.listChapters) {
    std::cout << "Chapter list for " << utils::Visible(options.path) << ":\n";
  }
  // The chapters of different tracks may overlap. The set merges intervals that do.
  boost::icl::interval_set<std::int64_t> dropped;
  std::set<std::string> unknown(included);
  unknown.insert(excluded.begin(), excluded.end());
  for (const Chapter& chapter : ReadChapters(movie)) {
    const bool isKept =
        (included.empty() || included.contains(chapter.title)) && !excluded.contains(chapter.title);
    if (options.listChapters) {
      std::cout << '\t' << (isKept ? "* " : "  ") << utils::Visible(chapter.title) << '\n';
    }
    unknown.erase(chapter.title);
    if (isKept) continue;
    dropped += boost::icl::interval<std::int64_t>::right_open(chapter.start,
                                                              chapter.start + chapter.duration);
  }
  for (const std::string& name : unknown) {
    if (!options.quiet)
      std::cerr << "Warning: could not find chapter " << utils::Visible(name) << '\n';
  }
  // From the last to the first, so that the times of the others stay valid.
  for (const auto& cut : boost::adaptors::reverse(dropped)) {
    std::ignore = toolbox::DeleteMovieSegment(movie, cut.lower(), cut.upper() - cut.lower());
  }
}

}  // namespace chapter
