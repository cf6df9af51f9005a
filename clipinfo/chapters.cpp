#include "clipinfo/chapters.h"

#include <algorithm>
#include <cstdint>

#include "chapter/chapter_list.h"
#include "toolbox/atoms/chapter_starts.h"
#include "toolbox/movie/presentation.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::MovieRecord;
using toolbox::TrackRecord;

constexpr FourCC kChapters{"chap"}, kChapterList{"chpl"}, kText{"text"};
constexpr std::uint64_t kMostChapters = 100'000;
// To look at this many samples takes as long as to read a chapter.
constexpr std::uint64_t kCandidates = 10;

// How many samples the edits of a chapter track show; each is a chapter. Samples that are slow to
// find count as more.
std::uint64_t CountChapters(const TrackRecord& track) {
  if (!track.media || track.media->Type() != kText || track.media->samples.Count() == 0) return 0;
  const toolbox::Clock clock = track.TimeClock();
  std::uint64_t count = 0;
  for (const toolbox::Edit& edit : track.edits.Edits()) {
    if (edit.IsEmpty()) continue;
    // An edit with rate 0 shows the same sample all the time.
    const toolbox::MediaTime end =
        std::max(edit.ShownAt(edit.duration, clock, toolbox::Rounding::kUp),
                 edit.mediaTime + toolbox::MediaTime{1});
    const toolbox::SampleTable& samples = track.media->samples;
    const std::uint64_t shown = SamplesShownIn(samples, edit.mediaTime, end).Count();
    count += shown + (shown + 1) * (CountCandidates(samples, edit.mediaTime) / kCandidates);
    if (count > kMostChapters) break;
  }
  return count;
}

bool HasTooManyChapters(const MovieRecord& movie) {
  std::vector<const TrackRecord*> targets;
  for (const auto& track : movie.tracks) {
    for (const toolbox::TrackReferences& references : track->references) {
      if (references.type != kChapters) continue;
      targets.insert(targets.end(), references.targets.begin(), references.targets.end());
    }
  }
  std::ranges::sort(targets);
  targets.erase(std::unique(targets.begin(), targets.end()), targets.end());
  std::uint64_t count = 0;
  for (const TrackRecord* target : targets) {
    if (count > kMostChapters) break;
    if (target != nullptr) count += CountChapters(*target);
  }
  // The list is used only if the tracks have no chapters.
  if (count == 0 && movie.userData.Count(kChapterList) != 0) {
    count = toolbox::ReadChapterStarts(movie.userData.Item(kChapterList, 1)).starts.size();
  }
  return count > kMostChapters;
}

}  // namespace

std::optional<std::vector<chapter::Chapter>> ReadChapters(MovieRecord& movie) {
  if (HasTooManyChapters(movie)) return std::nullopt;
  return chapter::ReadChaptersOrList(&movie);
}

}  // namespace clipinfo
