#include "chapter/chapter_list.h"

#include <algorithm>
#include <boost/endian/conversion.hpp>
#include <boost/multiprecision/cpp_int.hpp>
#include <string>
#include <tuple>

#include "chapter/playback.h"
#include "utils/owned.h"
#include "utils/tracks.h"

namespace chapter {
namespace {

using boost::endian::load_big_u32;
using boost::endian::load_big_u64;
using toolbox::ByteSpan;
using toolbox::FourCC;
using toolbox::Movie;

constexpr FourCC kChapterList{"chpl"};

// Products of times do not fit into 64 bits.
using Wide = boost::multiprecision::int128_t;

// The chapters in the list, without those that start after the end of the movie. A list has a
// version, flags, the number of chapters (8 bits in version 0; a reserved byte and 32 bits in later
// versions) and, for each chapter, its start in units of 100 ns (64 bits), the length of the title
// in bytes (8 bits), and the title.
std::vector<Chapter> ChaptersIn(ByteSpan list, Movie movie) {
  constexpr Wide kListScale = 10'000'000;
  // The same for all movies, so that a join makes one track of their chapters.
  constexpr std::int32_t kScale = 90000;
  const Wide end = Wide{toolbox::GetMovieDuration(movie)} * kScale;
  std::vector<Chapter> chapters;
  const std::size_t headSize = list.empty() || list[0] == 0 ? 5 : 9;
  if (list.size() < headSize) return chapters;
  std::uint32_t left = headSize == 5 ? list[4] : load_big_u32(&list[5]);
  list = list.subspan(headSize);
  for (; left > 0 && list.size() >= 9; --left) {
    const Wide start = (Wide{load_big_u64(list.data())} * kScale + kListScale / 2) / kListScale;
    const std::size_t size = std::min<std::size_t>(list[8], list.size() - 9);
    const ByteSpan title = list.subspan(9, size);
    list = list.subspan(9 + size);
    if (start * toolbox::GetMovieTimeScale(movie) > end) continue;
    chapters.push_back({.scale = kScale,
                        .start = static_cast<std::int64_t>(start),
                        .title = std::string(title.begin(), title.end())});
  }
  return chapters;
}

// The chapters of the movie, and one more entry whose `start` is the time from the end of the last
// chapter to the end of the movie. The entry shows whether that time has changed: in a list, the
// last chapter lasts until the end of the movie.
std::vector<Chapter> ChaptersAndRest(Movie movie) {
  std::vector<Chapter> chapters = ReadChapters(movie);
  const std::int64_t end = chapters.empty() ? 0 : chapters.back().start + chapters.back().duration;
  chapters.push_back({.scale = toolbox::GetMovieTimeScale(movie),
                      .start = toolbox::GetMovieDuration(movie) - end});
  return chapters;
}

// Whether the titles are equal, and the starts differ by at most one unit of the coarser scale. A
// list states nothing else.
bool IsSame(const Chapter& a, const Chapter& b) {
  const Wide apart = Wide{a.start} * b.scale - Wide{b.start} * a.scale;
  const Wide unit = std::max(a.scale, b.scale);
  return a.title == b.title && -unit <= apart && apart <= unit;
}

}  // namespace

std::vector<Chapter> ReadChaptersOrList(Movie movie) {
  std::vector<Chapter> chapters = ReadChapters(movie);
  const utils::OwnedHandle list;
  if (chapters.empty() && toolbox::GetUserData(toolbox::GetMovieUserData(movie), list, kChapterList,
                                               1) == toolbox::noErr) {
    chapters = Arranged(ChaptersIn(list->bytes, movie), movie);
  }
  return chapters;
}

ChapterList::ChapterList(Movie movie) {
  const utils::OwnedHandle list;
  if (toolbox::GetUserData(toolbox::GetMovieUserData(movie), list, kChapterList, 1) !=
      toolbox::noErr) {
    return;
  }
  if (!HasChapters(movie)) {
    track_ = BuildChapterTrack(ChaptersIn(list->bytes, movie), movie, Samples::kInMemory);
    Attach(movie);
  }
  chapters_ = ChaptersAndRest(movie);
}

void ChapterList::Attach(Movie movie) {
  if (track_ == nullptr || HasChapters(movie)) return;
  if (AddChapterReference(movie, track_, nullptr) == toolbox::noErr && HasChapters(movie)) return;
  toolbox::DisposeMovieTrack(track_);
  track_ = nullptr;
}

void ChapterList::RemoveListOrTrack(Movie movie) const {
  if (toolbox::CountUserDataType(toolbox::GetMovieUserData(movie), kChapterList) == 0) return;
  if (!std::ranges::equal(ChaptersAndRest(movie), chapters_, IsSame)) {
    std::ignore = RemoveMovieUserData(movie, kChapterList);
    return;
  }
  const std::vector<toolbox::Track> tracks = utils::Tracks(movie);
  if (std::ranges::find(tracks, track_) != tracks.end()) toolbox::DisposeMovieTrack(track_);
}

}  // namespace chapter
