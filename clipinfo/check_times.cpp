// Whether the times of a movie agree: edits, sample tables, and the durations in the headers.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include "clipinfo/findings.h"

namespace clipinfo {
namespace {

using toolbox::Clock;
using toolbox::Edit;
using toolbox::EditEntries;
using toolbox::FourCC;
using toolbox::kLongest;
using toolbox::MediaTime;
using toolbox::MovieTime;
using toolbox::Rescale;

// Durations that differ by less than this are no finding: writers round them, and count the last
// pictures in different ways. In thousandths of a second.
constexpr std::int64_t kNoticed = 100;
// An edit that shows nothing for this long has lost something. A shorter one was only made as long
// as another track. In thousandths of a second.
constexpr std::int64_t kLost = 1000;

// A duration as a header states it.
struct Stated {
  std::uint64_t duration = 0;
  std::int32_t scale = 0;

  // Recorders write 0 or ones while they do not know it.
  bool IsKnown() const {
    return duration != 0 && duration != UINT32_MAX && duration <= std::uint64_t{kLongest};
  }
};

// A length in units of `scale`. Any value between the two is right: a track ends with the sample
// that is decoded last, or with the one that is shown last.
struct Real {
  std::int64_t shortest = 0, longest = 0;
  std::int32_t scale = 0;
};

// How a stated duration differs from the real one, in words; empty if it does not.
std::string Difference(const Stated& stated, const Real& real, const std::string& lasts) {
  if (!stated.IsKnown()) return {};
  const auto units = static_cast<std::int64_t>(stated.duration);
  const std::int64_t nearest = std::clamp(units, Rescale(real.shortest, real.scale, stated.scale),
                                          Rescale(real.longest, real.scale, stated.scale));
  if (Rescale(std::abs(units - nearest), stated.scale, 1000) < kNoticed) return {};
  return "the header states " + SecondsText(units, stated.scale) + ", but " + lasts + " " +
         SecondsText(real.longest, real.scale);
}

// The part of an edit after the end of the media, which shows nothing.
MovieTime EmptyPart(const Edit& edit, MediaTime end, Clock clock) {
  if (edit.IsEmpty()) return {};
  if (edit.mediaTime >= end) return edit.duration;
  const MediaTime after = edit.ShownAt(edit.duration, clock) - end;
  return after > MediaTime{} ? clock.Lasting(after, edit.rate) : MovieTime{};
}

void CheckEdits(const TrackToCheck& track) {
  const std::string kWhere = "edts/elst";
  const auto isImpossible = [](const EditEntries::Entry& entry) {
    return entry.mediaTime < -1 || entry.mediaTime > kLongest || entry.rate < 0 ||
           entry.duration > std::uint64_t{kLongest};
  };
  const auto& edits = track.stated->edits;
  if (edits && edits->entries && std::ranges::any_of(edits->entries->entries, isImpossible)) {
    track.Fault(kWhere, "an edit has an impossible time, so players may show all of the media");
    return;
  }
  const Clock clock = track.track.TimeClock();
  const MediaTime end = track.track.media->samples.EndTime();
  std::uint64_t number = 0;
  for (const Edit& edit : track.track.edits.Edits()) {
    ++number;
    const MovieTime empty = EmptyPart(edit, end, clock);
    const std::int64_t length = Rescale(empty.units, clock.movie, 1000);
    if (length < kNoticed) continue;
    track.Report(length < kLost ? Severity::kWarning : Severity::kFault, kWhere,
                 "the last " + SecondsText(empty.units, clock.movie) + " of edit " +
                     std::to_string(number) + " have no data: the media ends at " +
                     SecondsText(end.units, clock.media));
  }
}

void CheckTrack(const TrackToCheck& track, bool isFragmented) {
  const toolbox::MediaRecord& media = *track.track.media;
  const toolbox::SampleTable& samples = media.samples;
  if (samples.Count() == 0) return;
  if (samples.IsTimeless()) {
    if (media.Type() != FourCC{"vide"} && media.Type() != FourCC{"soun"}) return;
    track.Warn("mdia/minf/stbl/stts", "its samples last no time, so players may not show them");
    return;
  }
  CheckEdits(track);
  if (isFragmented) return;  // the header does not know how long they become
  const Clock clock = track.track.TimeClock();
  const std::string inMedia = Difference(
      {media.header.duration, clock.media},
      {samples.Duration().units, samples.EndTime().units, clock.media}, "the samples last");
  if (!inMedia.empty()) track.Warn("mdia/mdhd", inMedia);
  const std::int64_t shown = track.track.edits.Duration().units;
  const std::string inTrack = Difference({track.track.header.duration, clock.movie},
                                         {shown, shown, clock.movie}, "the track lasts");
  if (!inTrack.empty()) track.Warn("tkhd", inTrack);
}

}  // namespace

void CheckTimes(const MovieToCheck& movie) {
  if (movie.stated == nullptr) return;
  const bool isFragmented = movie.stated->extends.has_value();
  for (const TrackToCheck& track : movie.tracks) {
    if (track.track.media) CheckTrack(track, isFragmented);
  }
  if (isFragmented) return;
  const std::int32_t scale = movie.movie.header.scale;
  const std::int64_t longest = movie.movie.Duration().units;
  std::string difference = Difference({movie.stated->header.duration, scale},
                                      {longest, longest, scale}, "the longest track lasts");
  if (difference.empty()) return;
  movie.Warn("/moov/mvhd", std::move(difference));
}

}  // namespace clipinfo
