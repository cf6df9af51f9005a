// Whether references from track to track lead to tracks, and whether chapters are in order.
#include <algorithm>
#include <set>
#include <unordered_map>

#include "clipinfo/findings.h"
#include "toolbox/atoms/chapter_starts.h"
#include "toolbox/movie/sample_columns.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::TrackRecord;

constexpr FourCC kChapters{"chap"}, kChapterList{"chpl"}, kText{"text"};
constexpr std::int64_t kListScale = 10'000'000;  // units a second

// Checks the chapters of `of` in the track `chapters`.
void CheckChapterTrack(const TrackToCheck& chapters, const TrackToCheck& of) {
  if (!chapters.track.media || chapters.track.media->Type() != kText) return;
  const toolbox::SampleTable& samples = chapters.track.media->samples;
  std::uint64_t timeless = 0;
  ForEachTime(samples, [&](std::uint64_t count, std::int64_t duration) {
    if (duration == 0) timeless += count;
  });
  if (timeless != 0) {
    chapters.Warn("mdia/minf/stbl/stts", Counted(timeless, "chapter") + " of " +
                                             std::to_string(samples.Count()) +
                                             " last no time, so that players do not list them");
  }
  const auto& edits = chapters.track.edits.Edits();
  const toolbox::MovieTime end = of.track.edits.Duration();
  if (!edits.empty() && edits.back().start >= end && end > toolbox::MovieTime{}) {
    chapters.Warn("edts/elst", "the last chapters start after the end of " + of.name);
  }
}

void CheckReferences(const MovieToCheck& movie) {
  std::unordered_map<const TrackRecord*, const TrackToCheck*> unchecked;
  for (const TrackToCheck& track : movie.tracks) unchecked.emplace(&track.track, &track);
  for (const TrackToCheck& track : movie.tracks) {
    if (track.stated == nullptr || !track.stated->references) continue;
    for (std::size_t i = 0; i < track.track.references.size(); ++i) {
      const toolbox::TrackReferences& list = track.track.references[i];
      const auto& ids = track.stated->references->lists[i].tracks;
      for (std::size_t n = 0; n < list.targets.size(); ++n) {
        const TrackRecord* target = list.targets[n];
        if (target == nullptr && ids[n] != 0) {
          track.Warn("tref/" + list.type.Text(),
                     "it names a track with the id " + std::to_string(ids[n]) +
                         (list.type == kChapters ? ", which is missing: the chapters are lost"
                                                 : ", which is missing"));
        }
        const auto found = list.type == kChapters ? unchecked.find(target) : unchecked.end();
        if (found == unchecked.end()) continue;
        CheckChapterTrack(*found->second, track);
        unchecked.erase(found);
      }
    }
  }
}

// The list of chapters in the user data.
void CheckList(const MovieToCheck& movie) {
  const auto& items = movie.movie.userData.items;
  const auto list = std::ranges::find(items, kChapterList, &toolbox::UserDataItem::type);
  if (list == items.end()) return;
  const auto warn = [&movie](std::string text) { movie.Warn("/moov/udta/chpl", std::move(text)); };
  const toolbox::ChapterStarts chapters = toolbox::ReadChapterStarts(list->payload);
  if (chapters.starts.size() < chapters.stated) {
    warn("it has " + std::to_string(chapters.starts.size()) + " of " +
         Counted(chapters.stated, "chapter"));
  }
  const auto wrong = std::ranges::adjacent_find(chapters.starts, std::greater<>());
  if (wrong != chapters.starts.end()) {
    warn("chapter " + std::to_string(wrong - chapters.starts.begin() + 2) +
         " starts before the one that it follows");
  }
  const std::int64_t end =
      toolbox::Rescale(movie.movie.Duration().units, movie.movie.header.scale, kListScale);
  const auto after = std::ranges::count_if(chapters.starts, [end](std::uint64_t start) {
    return start > static_cast<std::uint64_t>(end);
  });
  if (after != 0) {
    warn("the list has " + Counted(static_cast<std::uint64_t>(after), "chapter") +
         " after the end of the movie");
  }
}

// Tracks with one id: references and fragments reach only the first.
void CheckIds(const MovieToCheck& movie) {
  std::set<std::uint32_t> ids;
  for (const TrackToCheck& track : movie.tracks) {
    const std::uint32_t id = track.track.header.id;
    if (movie.stated == nullptr || ids.insert(id).second) continue;
    track.Warn("tkhd", "another track has the same id " + std::to_string(id) +
                           ", so players may leave out this one");
  }
}

}  // namespace

void CheckChapters(const MovieToCheck& movie) {
  CheckIds(movie);
  CheckReferences(movie);
  CheckList(movie);
}

}  // namespace clipinfo
