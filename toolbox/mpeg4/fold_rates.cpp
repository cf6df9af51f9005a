#include "toolbox/mpeg4/fold_rates.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <numeric>
#include <vector>

#include "toolbox/plan/used_samples.h"

namespace toolbox {
namespace {

// Rates in a file are 16.16 numbers. A rate that would be written as 1 becomes exactly 1; any other
// rate is returned unchanged.
double Stated(double rate) {
  return std::lround(std::min(rate, 32767.0) * 65536) == 65536 ? 1.0 : rate;
}

// Whether the edit shows media at a rate other than 1. Empty edits and edits of rate 0 do not.
bool IsFolded(const Edit& edit) {
  return !edit.IsEmpty() && edit.rate != 0 && Stated(edit.rate) != 1.0;
}

// Converts the media to a time scale near 90,000 that is a multiple of its own. In a scale such as
// 24, a sample of one unit could not become a little shorter.
void MakeFine(TrackRecord& track) {
  constexpr std::int32_t kFine = 90'000;
  MediaRecord& media = *track.media;
  // Sound keeps its scale, which is its sample rate.
  if (media.Type() == FourCC{"soun"} || media.header.scale > kFine / 2) return;
  const std::int32_t scale = kFine / media.header.scale * media.header.scale;
  track.edits.MapMedia(
      [&](MediaTime time) { return MediaTime{Rescale(time.units, media.header.scale, scale)}; });
  media.SetScale(scale);
}

// The rate as a fraction from/to, for rescaling times. Both numbers are as large as 32 bits allow
// before the fraction is reduced, so that it is exact to many digits. 1/1 for rate 0.
struct Ratio {
  std::int32_t from = 1, to = 1;
};
Ratio RatioOf(double rate) {
  Ratio ratio;
  if (rate == 0) return ratio;
  while (ratio.to < 1 << 29 && rate * ratio.to < 1 << 29) ratio.to *= 2;
  ratio.from =
      static_cast<std::int32_t>(std::clamp<long long>(std::llround(rate * ratio.to), 1, INT32_MAX));
  const std::int32_t common = std::gcd(ratio.from, ratio.to);
  return {ratio.from / common, ratio.to / common};
}

// The samples that are shown at one rate, at their new place and with their new durations.
class Moved {
 public:
  // Appends to `samples` the samples that edits of this rate show, with durations divided by it. A
  // sample is appended once, however many of these edits show it.
  Moved(const TrackRecord& track, double rate, SampleTable& samples) : ratio_(RatioOf(rate)) {
    const SampleTable& source = track.media->samples;
    // This copy of the track has only the edits of this rate, so it needs only their samples.
    TrackRecord part = track;
    part.edits = {};
    for (const Edit& edit : track.edits.Edits()) {
      if (edit.IsEmpty() || Stated(edit.rate) != rate) continue;
      part.edits.Append(edit.duration, edit.mediaTime, edit.rate, track.TimeClock());
    }
    const std::vector<UsedSamples> used = SamplesInUse(part);
    for (std::size_t i = 0; i < used.size(); ++i) {
      const std::uint64_t from = used[i].samples.from;
      // Neighbors are moved together, so that rounding happens once for all of them.
      while (i + 1 < used.size() && used[i + 1].samples.from == used[i].samples.to) ++i;
      SampleTable stretch;
      stretch.AppendSlice(source, {from, used[i].samples.to});
      stretch = stretch.Rescaled(ratio_.from, ratio_.to);
      const MediaTime start = samples.AppendSlice(stretch, {0, stretch.Count()});
      starts_[from] = {source.TimeOf(from), start};
    }
  }

  // The new media time of the edit, which has this rate. kNothing if it shows no sample.
  MediaTime Place(const TrackRecord& track, const Edit& edit) const {
    const UsedSamples needs = SamplesFor(track, edit);
    if (needs.samples.IsEmpty()) return Edit::kNothing;
    const Start& start = std::prev(starts_.upper_bound(needs.samples.from))->second;
    return start.now +
           MediaTime{Rescale((edit.mediaTime - start.before).units, ratio_.from, ratio_.to)};
  }

 private:
  struct Start {
    MediaTime before, now;  // old and new decode time of the first sample
  };
  Ratio ratio_;
  std::map<std::uint64_t, Start> starts_;  // of each stretch, by its first sample
};

}  // namespace

void FoldRates(TrackRecord& track) {
  if (!std::ranges::any_of(track.edits.Edits(), IsFolded)) return;
  MakeFine(track);
  SampleTable samples;
  std::map<double, Moved> moved;
  EditList edits;
  for (const Edit& edit : track.edits.Edits()) {
    const double rate = Stated(edit.rate);
    MediaTime start = Edit::kNothing;
    if (!edit.IsEmpty()) {
      // The first edit of a rate moves the samples of all edits of that rate. With rate 0 their
      // durations stay the same.
      start = moved.try_emplace(rate, track, rate, samples).first->second.Place(track, edit);
    }
    edits.Append(edit.duration, start, rate == 0 ? 0.0 : 1.0, track.TimeClock());
  }
  edits.TrimEnd();
  track.edits = std::move(edits);
  track.media->samples = std::move(samples);
}

}  // namespace toolbox
