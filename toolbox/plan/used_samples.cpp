#include "toolbox/plan/used_samples.h"

#include <algorithm>
#include <map>

#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_groups.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/sound_packets.h"

namespace toolbox {
namespace {

constexpr FourCC kSound{"soun"};

// The first packet to decode so that compressed sound is right from the packet `sample` on, which
// is heard from media time `start` on. It is before by one packet, or by the distance of the roll
// group, or by the packets with which the file starts. If the sound needs more, it is also a second
// before. Otherwise no more is kept, because some players cut off as much at the end of a track as
// is hidden at its start.
std::uint64_t FirstToHear(const MediaRecord& media, std::uint64_t sample, MediaTime start) {
  const SampleTable& samples = media.samples;
  const bool isCompressed =
      samples.DurationOf(sample) > MediaTime{1} || PacketLength(samples, sample) > 1;
  if (media.Type() != kSound || !isCompressed) return sample;
  const SampleSlice& slice = samples.SliceOf(sample);
  const std::uint64_t distance =
      std::max(std::uint64_t{RollDistance(*slice.rows, slice.RowOf(sample)).value_or(1)},
               DelayPackets(samples, sample));
  const std::uint64_t first = sample - std::min(distance, sample - slice.first);
  const bool isIndependent = std::ranges::all_of(
      media.descriptions,
      [](const SampleDescription& each) { return NeedsOnePacketBefore(each.bytes); });
  if (isIndependent) return first;
  const MediaTime second = std::max(start - MediaTime{media.header.scale}, slice.time);
  return std::min(first, std::max(samples.SampleAt(second), slice.first));
}

// The first sample to decode so that the samples from `first` on are right from media time `start`
// on. If pictures are shown that are decoded after their sync sample but shown before it, they can
// also depend on the group of pictures before: an open group.
//
//   decoded   |I0 |P3 |B1 |B2 |I6 |B4 |B5 |
//   shown     |I0 |B1 |B2 |P3 |B4 |B5 |I6 |
//                               ^ start: B5 needs P3
std::uint64_t FirstToDecode(const SampleTable& samples, std::uint64_t first, MediaTime start) {
  constexpr std::uint64_t kMaxLeading = 64;  // real groups have no more such pictures
  const std::uint64_t sync = samples.SyncAtOrBefore(first);
  const SampleSlice& slice = samples.SliceOf(sync);
  if (sync == slice.first) return sync;
  const std::uint64_t end = std::min(slice.End(), sync + 1 + kMaxLeading);
  for (std::uint64_t sample = sync + 1; sample < end; ++sample) {
    const MediaTime shown = ShownAt(samples, sample);
    if (shown >= ShownAt(samples, sync)) break;
    if (*NextShownAfter(samples, shown) > start) return samples.SyncAtOrBefore(sync - 1);
  }
  return sync;
}

}  // namespace

UsedSamples SamplesFor(const TrackRecord& track, const Edit& edit) {
  if (edit.IsEmpty() || !track.media || track.media->samples.Count() == 0) return {};
  const SampleTable& samples = track.media->samples;
  const MediaTime span = track.TimeClock().Shown(edit.duration, edit.rate, Rounding::kUp);
  // An edit with rate 0 shows one sample all the time, so the range has at least one unit.
  const MediaTime start = edit.mediaTime, end = start + std::max(span, MediaTime{1});
  auto [first, last] = SamplesShownIn(samples, start, end);
  if (first == last) return {};
  // Samples without duration are shown together with the sample that follows them. So they are used
  // if the edit shows the start of that sample.
  const MediaTime from = samples.TimeOf(first);
  const std::uint64_t next = from == MediaTime{} ? 0 : samples.SampleAt(from - MediaTime{1}) + 1;
  if (ShownAt(samples, first) >= start) first = std::max(next, samples.SliceOf(first).first);
  // An edit that reaches the end of the decode times needs all remaining samples, even those that
  // are shown later or for no time.
  const SampleSlice& slice = samples.SliceOf(last - 1);
  const MediaTime left = slice.EndTime() - slice.stretch - start;
  if (edit.duration >=
      track.TimeClock().Lasting(left, std::max(edit.rate, 1e-9), Rounding::kDown)) {
    last = slice.End();
  }
  const std::uint64_t needed =
      FirstToHear(*track.media, FirstToDecode(samples, first, start), start);
  return {WholePackets(samples, {needed, last}), &edit};
}

std::vector<UsedSamples> SamplesInUse(const TrackRecord& track) {
  if (track.media && track.media->samples.IsTimeless()) {
    return {{{0, track.media->samples.Count()}, nullptr}};
  }
  std::map<std::uint64_t, UsedSamples> claims;  // by their end; they do not overlap
  for (const Edit& edit : track.edits.Edits()) {
    SampleRange wanted = SamplesFor(track, edit).samples;
    auto claim = claims.upper_bound(wanted.from);
    // Earlier edits keep their samples. This edit gets the gaps between those.
    while (!wanted.IsEmpty()) {
      if (claim == claims.end() || claim->second.samples.from >= wanted.to) {
        claims.emplace_hint(claim, wanted.to, UsedSamples{wanted, &edit});
        break;
      }
      if (wanted.from < claim->second.samples.from) {
        const UsedSamples part{{wanted.from, claim->second.samples.from}, &edit};
        claims.emplace_hint(claim, part.samples.to, part);
      }
      wanted.from = claim->second.samples.to;
      ++claim;
    }
  }
  std::vector<UsedSamples> used;
  used.reserve(claims.size());
  for (const auto& [end, claim] : claims) used.push_back(claim);
  return used;
}

MovieTime FirstShown(const TrackRecord& track, const UsedSamples& used, std::uint64_t sample) {
  if (used.edit == nullptr) return {};
  const Edit& edit = *used.edit;
  const MediaTime into = ShownAt(track.media->samples, sample) - edit.mediaTime;
  if (into.units <= 0 || edit.rate == 0) return edit.start;
  return edit.start +
         std::min(edit.duration, track.TimeClock().Lasting(into, edit.rate, Rounding::kDown));
}

}  // namespace toolbox
