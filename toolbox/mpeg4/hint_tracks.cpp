#include "toolbox/mpeg4/hint_tracks.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/atoms/hint_atoms.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/mpeg4/hint_samples.h"
#include "toolbox/mpeg4/session_description.h"
#include "toolbox/plan/used_samples.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// The sizes, times and bit rates of the samples of a hint track. The plan needs them before
// anything is written. The samples themselves would take too much memory, so they are made twice:
// first to be measured, later to be written.
struct HintFacts {
  SampleRows rows;
  std::uint64_t size = 0;  // bytes of all samples
  std::uint64_t bitRate = 0;  // the average, in bits a second
  HintHeader header;
};

// Makes all hint samples once, and keeps only their facts. Throws Refused like MakeHintSamples, and
// invalidDuration (a sample lasts too long for a file).
HintFacts Measure(const FilePlan& plan, std::size_t track, const Payload& payload) {
  HintFacts facts;
  std::uint32_t largestPacket = 0;
  std::int64_t time = 0, second = 0;
  std::uint64_t packets = 0, bytes = 0, inSecond = 0, fullestSecond = 0;
  MakeHintSamples(plan, track, payload, [&](const HintSample& sample, std::int64_t duration) {
    if (duration > UINT32_MAX) throw Refused{invalidDuration, "a hint sample lasts too long"};
    ++facts.rows.count;
    facts.rows.sizes.Add(sample.Content().size());
    facts.rows.AddTimes(1, static_cast<std::uint32_t>(duration));
    facts.size += sample.Content().size();
    // The highest bit rate is that of the second with the most bytes. Seconds are counted from the
    // start.
    if (time / payload.clock != second) inSecond = 0;
    second = time / payload.clock;
    time += duration;
    for (const std::uint32_t packet : sample.PacketSizes()) {
      ++packets;
      bytes += packet;
      inSecond += packet;
      largestPacket = std::max(largestPacket, packet);
    }
    fullestSecond = std::max(fullestSecond, inSecond);
  });
  const auto bits = static_cast<std::int64_t>(8 * bytes);
  if (time != 0) facts.bitRate = static_cast<std::uint64_t>(Rescale(bits, time, payload.clock));
  // Bit rates that do not fit into the header are limited to the largest value.
  const auto narrow = [](std::uint64_t value) {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(value, UINT32_MAX));
  };
  facts.header = {.largestPacket = static_cast<std::uint16_t>(largestPacket),
                  .averagePacket = static_cast<std::uint16_t>(packets == 0 ? 0 : bytes / packets),
                  .highestBitRate = narrow(8 * fullestSecond),
                  .averageBitRate = narrow(facts.bitRate)};
  return facts;
}

Bytes AsBytes(const std::string& text) { return {text.begin(), text.end()}; }

// Groups the samples into chunks of up to 1 MiB, so that a reader can read a chunk at once. The
// first chunk is at `destination` of the media data.
PackedChunks ChunksOf(const SampleRows& rows, std::uint64_t destination) {
  constexpr std::uint64_t kLargest = 1 << 20;
  PackedChunks chunks;
  for (std::uint32_t sample = 0; sample < rows.count; ++sample) {
    const std::uint64_t size = rows.sizes[sample];
    if (chunks.empty() || chunks.back().size + size > kLargest) {
      chunks.push_back({.sample = sample, .destination = destination});
    }
    chunks.back().size += size;
    ++chunks.back().count;
    destination += size;
  }
  return chunks;
}

// Copies the sync samples of the media if there is one hint sample for each media sample. Otherwise
// the numbers would not match, so the hint track gets no sync table.
void TakeSync(const SampleTable& media, SampleRows& rows) {
  if (!HasSyncTable(media) || media.Count() != rows.count) return;
  rows.sync.emplace();
  ForEachSync(media, [&](std::uint64_t sample) {
    rows.sync->push_back(static_cast<std::uint32_t>(sample));
  });
}

// The edits of the hint track with the samples `hints`. Hint samples have the decode times of the
// media samples. So for each edit of the media, there is an edit with all samples that it needs,
// also those that are only needed for decoding. It can last longer than the edit of the media, and
// then the next one starts later. `clock` is that of the hint track.
//
//   media  |    A    |- -|  B  |
//   hints  |needed for A|- -|needed for B|
EditList HintEdits(const TrackRecord& hinted, const SampleTable& hints, Clock clock) {
  EditList edits;
  for (const Edit& edit : hinted.edits.Edits()) {
    const SampleRange needs = SamplesFor(hinted, edit).samples;
    if (needs.IsEmpty()) continue;
    const auto timeOf = [&](std::uint64_t sample) {
      const std::int64_t time = hinted.media->samples.TimeOf(sample).units;
      return MediaTime{Rescale(time, hinted.media->header.scale, clock.media)};
    };
    // The hint sample can start with earlier samples of sound.
    const MediaTime start = hints.TimeOf(hints.SampleAt(timeOf(needs.from)));
    const MediaTime length = timeOf(needs.to) - start;
    edits.Append(edit.start - edits.Duration(), Edit::kNothing, 1.0, clock);
    edits.Append(clock.Lasting(length, 1.0, Rounding::kUp), start, 1.0, clock);
  }
  return edits;
}

// Adds a hint track for the track at `index` and returns its bit rate. Throws Refused if it cannot
// be made; the plan does not change then.
std::uint64_t AddHintTrack(FilePlan& plan, std::size_t index, const Mpeg4Settings& settings) {
  // Ten hours of sound have a few million samples. A file that claims many more is refused: the
  // hint samples are made twice, so it would take too long.
  constexpr std::uint64_t kMaxSamples = 1 << 25;
  TrackRecord& hinted = *plan.movie->tracks[index];
  const MediaHeader& from = hinted.media->header;
  if (hinted.media->samples.Count() > kMaxSamples) {
    throw Refused{featureUnsupported, "the track has too many samples"};
  }
  DescribedPayload described = DescribePayload(*hinted.media);
  Payload& payload = described.payload;
  // Each track of a session needs a payload type of its own.
  payload.number = static_cast<std::uint8_t>(payload.number + index);
  const std::uint32_t packetSize = std::min<std::uint32_t>(settings.packetSize, UINT16_MAX);
  if (packetSize < kRtpHeader + Payload::kLeastRoom) {
    throw Refused{featureUnsupported, "the packets are too small"};
  }
  payload.room = packetSize - kRtpHeader;
  payload.maxDuration = Rescale(settings.packetDuration, 1000, from.scale, Rounding::kDown);
  HintFacts facts = Measure(plan, index, payload);
  TakeSync(hinted.media->samples, facts.rows);

  // From here on nothing throws Refused, so a refused track leaves nothing in the plan.
  TrackRecord& track = plan.movie->AddTrack();
  track.header.flags = 0;
  track.header.created = hinted.header.created;
  track.Refer(FourCC{"hint"}, hinted);
  const std::string text =
      DescribeTrack(described, hinted.media->Type(), track.header.id, facts.bitRate);
  track.userData.items = {{FourCC{"hnti"}, Encode(TrackSessionText{AsBytes(text)})}};
  MediaRecord& media = track.SetMedia({});
  media.header = {.created = from.created, .scale = payload.clock, .language = from.language};
  media.handler = NewHandler(FourCC(), FourCC{"hint"}, "Hint");
  media.infoSiblings = {SiblingOf(facts.header)};
  media.dataReferences = {ThisFile{}};
  media.descriptions = {
      {Encode(RtpHintEntry{.packetSize = packetSize, .clock = {payload.clock}}), 0}};
  plan.tracks.push_back({&track, ChunksOf(facts.rows, plan.dataSize), {0}});
  media.samples = SampleTable(std::make_shared<const SampleRows>(std::move(facts.rows)));
  track.edits = HintEdits(hinted, media.samples, track.TimeClock());

  // The function has its own copy of the payload, because it runs when the file is written.
  plan.made.push_back(
      {facts.size, [index, payload](const FilePlan& made, const auto& append) {
         MakeHintSamples(made, index, payload,
                         [&](const HintSample& sample, std::int64_t) { append(sample.Content()); });
       }});
  plan.dataSize += facts.size;
  return facts.bitRate;
}

}  // namespace

void AddHintTracks(FilePlan& plan, const Mpeg4Settings& settings) {
  const std::size_t count = plan.tracks.size();
  std::uint64_t bitRate = 0;
  for (std::size_t i = 0; i < count; ++i) {
    try {
      bitRate += AddHintTrack(plan, i, settings);
    } catch (const Refused&) {
      // The file plays without hints, and the other tracks may still get theirs.
    }
  }
  if (plan.tracks.size() == count) return;
  const MovieSessionText text{.text = AsBytes(DescribeMovie(*plan.movie, bitRate))};
  plan.movie->userData.items = {{FourCC{"hnti"}, Encode(text)}};
}

}  // namespace toolbox
