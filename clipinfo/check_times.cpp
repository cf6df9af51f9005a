// Whether the times of a movie agree: edits, sample tables, and the durations in the headers.
#include <algorithm>
#include <utility>

#include "clipinfo/findings.h"

namespace clipinfo {
namespace {

using toolbox::Clock;
using toolbox::Edit;
using toolbox::EditEntries;
using toolbox::kLongest;
using toolbox::MediaTime;

// Headers that state a duration differ from the samples by this much in sound files: players show
// all samples anyway. In seconds.
constexpr std::int64_t kTolerated = 1;

// A duration in a header. Recorders that do not know it yet write 0 or ones.
struct Stated {
  std::uint64_t duration = 0;
  std::int32_t scale = 0;

  bool IsKnown() const {
    return duration != 0 && duration != UINT32_MAX && duration <= std::uint64_t{kLongest};
  }
  std::string Text() const { return SecondsText(static_cast<std::int64_t>(duration), scale); }
};

// The rest of a sentence that says how a stated duration differs from the real one, which is
// `units` long; empty if it does not.
std::string Difference(const Stated& stated, std::int64_t units, std::int64_t scale) {
  if (!stated.IsKnown()) return {};
  const std::int64_t real = toolbox::Rescale(units, scale, stated.scale);
  const std::int64_t apart = real - static_cast<std::int64_t>(stated.duration);
  if (std::max(apart, -apart) <= kTolerated * stated.scale) return {};
  return "the header states " + stated.Text() + ", but " + SecondsText(units, scale) + " are ";
}

void CheckEdits(const TrackToCheck& track) {
  const std::string kWhere = "edts/elst";
  const auto& edits = track.stated->edits;
  if (edits && edits->entries) {
    const auto isWrong = [](const EditEntries::Entry& entry) {
      return entry.mediaTime < -1 || entry.mediaTime > kLongest || entry.rate < 0 ||
             entry.duration > std::uint64_t{kLongest};
    };
    if (std::ranges::any_of(edits->entries->entries, isWrong)) {
      track.Fault(kWhere, "an edit has an impossible time, so players may show all of the media");
      return;
    }
  }
  const toolbox::SampleTable& samples = track.track.media->samples;
  const Clock clock = track.track.TimeClock();
  const MediaTime end = samples.EndTime();
  std::uint64_t number = 0;
  for (const Edit& edit : track.track.edits.Edits()) {
    ++number;
    if (edit.IsEmpty()) continue;
    const MediaTime to = edit.ShownAt(edit.duration, clock);
    const std::string name = "edit " + std::to_string(number);
    if (edit.mediaTime >= end) {
      track.Fault(kWhere, name + " shows nothing: it starts after the media, which lasts " +
                              SecondsText(end.units, clock.media));
    } else if (to - end > MediaTime{kTolerated * clock.media}) {
      const MediaTime empty = to - end;
      track.Fault(kWhere, "the last " + SecondsText(empty.units, clock.media) + " of " + name +
                              " show nothing: the media ends before");
    }
  }
}

void CheckTrack(const TrackToCheck& track, bool isFragmented) {
  const toolbox::MediaRecord& media = *track.track.media;
  if (!media.samples.IsTimeless()) CheckEdits(track);
  if (isFragmented) return;  // their headers do not know how long they become
  const Clock clock = track.track.TimeClock();
  const Stated inMedia{media.header.duration, clock.media};
  const Stated inTrack{track.track.header.duration, clock.movie};
  const std::string difference = Difference(inMedia, media.samples.EndTime().units, clock.media);
  if (!difference.empty()) track.Warn("mdia/mdhd", difference + "in the sample table");
  const std::string shown = Difference(inTrack, track.track.edits.Duration().units, clock.movie);
  if (!shown.empty()) track.Warn("tkhd", shown + "shown");
}

}  // namespace

void CheckTimes(const MovieToCheck& movie) {
  if (movie.stated == nullptr) return;
  const bool isFragmented = movie.stated->extends.has_value();
  for (const TrackToCheck& track : movie.tracks) {
    if (track.track.media && track.stated != nullptr) CheckTrack(track, isFragmented);
  }
  const std::string difference =
      Difference({movie.stated->header.duration, movie.stated->header.scale},
                 movie.movie.Duration().units, movie.movie.header.scale);
  if (difference.empty() || isFragmented) return;
  movie.findings.push_back({Severity::kWarning, "/moov/mvhd", 0, {}, difference + "in the tracks"});
}

}  // namespace clipinfo
