#include "toolbox/mpeg4/hint_samples.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

// A media sample with its number and times in the output, and the place of its bytes in the source.
struct MediaSample {
  std::uint32_t number = 0;  // in the output, from 1
  const DataReference* from = nullptr;  // the file that has the bytes
  std::uint64_t at = 0, size = 0;  // bytes, from the start of that file
  std::int64_t time = 0, duration = 0, shown = 0;  // media units; `time` is for decoding
};

// Calls visit(MediaSample) for each sample of the track at `index` of the plan, in decode order.
template <class Visit>
void ForEachSample(const FilePlan& plan, std::size_t index, Visit&& visit) {
  const TrackPlan& track = plan.tracks[index];
  const MediaRecord& source = *track.source->media;
  const SampleTable& samples = plan.movie->tracks[index]->media->samples;
  TimeCursor times(samples);
  const bool isReordered = HasOffsets(samples);
  std::uint64_t sample = 0;
  track.ForEachCopied([&](std::uint64_t first, std::uint32_t count) {
    ForEachPiece(source.samples, {first, first + count}, [&](const SamplePiece& piece) {
      MediaSample media{0, &source.ReferenceOf(piece.description), piece.offset};
      for (std::uint32_t i = 0; i < piece.count; ++i, ++sample) {
        media.number = static_cast<std::uint32_t>(sample + 1);
        media.size = SizeOf(source.samples, piece.sample + i, 1, piece.description);
        media.time = times.TimeOf(sample).units;
        media.duration = times.DurationOf(sample).units;
        media.shown = isReordered ? ShownAt(samples, sample).units : media.time;
        visit(std::as_const(media));
        media.at += media.size;
      }
    });
  });
}

// Turns media samples into hint samples. Sequence numbers run through all packets of the track.
//
// A picture becomes one hint sample, with as many packets as it needs. Sound is gathered in units_
// until a packet is full, so a hint sample may send many sound samples.
class HintMaker {
 public:
  HintMaker(const FilePlan& plan, const Payload& payload, std::int32_t scale,
            const std::function<void(const HintSample&, std::int64_t)>& visit)
      : sources_(plan.ownFile), payload_(payload), visit_(visit), scale_(scale) {}

  // Passes on the hint sample of a picture. Its packets are sent at decode time, but their RTP time
  // is the time at which the picture is shown.
  void AddPicture(const MediaSample& sample) {
    const std::int64_t offset = Clock(sample.shown) - Clock(sample.time);
    hint_.Clear(static_cast<std::int32_t>(std::clamp<std::int64_t>(offset, INT32_MIN, INT32_MAX)));
    if (payload_.kind == Payload::Kind::kAvc) {
      AddUnits(sample);
    } else {
      for (std::uint64_t at = 0; at < sample.size; at += payload_.room) {
        StartPacket();
        hint_.AddMedia(sample.number, at, std::min<std::uint64_t>(payload_.room, sample.size - at));
      }
    }
    Send(sample.time, sample.time + sample.duration);
  }

  // Adds a unit to the next packet. Sends the packet first if the unit does not fit, has another
  // duration (RFC 3640 has one for all units of a packet), or would make it too long in time.
  void AddSound(const MediaSample& sample) {
    if (sample.size >= kLargestSoundUnit) {
      throw Refused{invalidSampleTable, "a sound sample is too large for packets"};
    }
    const bool continues =
        !units_.empty() && units_.back().duration == sample.duration &&
        sample.time + sample.duration - units_[0].time <= payload_.maxDuration &&
        SoundUnitHeadersSize(units_.size() + 1) + unitBytes_ + sample.size <= payload_.room;
    if (!continues) SendSound();
    units_.push_back(sample);
    unitBytes_ += sample.size;
  }

  // Sends the gathered units in one hint sample; none if there are no units.
  void SendSound() {
    if (units_.empty()) return;
    std::vector<std::uint64_t> sizes;
    for (const MediaSample& unit : units_) sizes.push_back(unit.size);
    const Bytes header = SoundUnitHeaders(sizes);
    hint_.Clear(0);
    const std::uint64_t room = payload_.room - header.size();
    // Several units always fit into one packet. A single unit may need several packets.
    for (std::uint64_t at = 0; at == 0 || at < unitBytes_; at += room) {
      StartPacket();
      hint_.AddBytes(header);
      for (const MediaSample& unit : units_) {
        hint_.AddMedia(unit.number, at, std::min(room, unit.size - at));
      }
    }
    Send(units_[0].time, units_.back().time + units_.back().duration);
    units_.clear();
    unitBytes_ = 0;
  }

 private:
  // Converts media units to units of the payload's clock.
  std::int64_t Clock(std::int64_t time) const { return Rescale(time, scale_, payload_.clock); }
  void StartPacket() {
    if (hint_.PacketSizes().size() == HintSample::kMaxPackets) {
      throw Refused{invalidSampleTable, "a sample needs too many packets"};
    }
    hint_.StartPacket(payload_.number, sequence_++);
  }
  // Completes the hint sample and passes it on. Its last packet gets the marker. `start` and `end`
  // are in media units: rounding both and not the duration keeps the hints in step with the media.
  void Send(std::int64_t start, std::int64_t end) {
    hint_.Mark();
    visit_(hint_, Clock(end) - Clock(start));
  }

  // Each NAL unit is one packet (RFC 6184 5.6). A unit that does not fit is sent in fragments
  // (FU-A, 5.8), each with two bytes before it. These replace the first byte of the unit.
  void AddUnits(const MediaSample& sample) {
    for (std::uint64_t at = 0; at < sample.size;) {
      const Unit unit = ReadUnit(sample, at);
      at = unit.at + unit.length;
      if (unit.length != 0 && unit.length <= payload_.room) {
        StartPacket();
        hint_.AddMedia(sample.number, unit.at, unit.length);
        continue;
      }
      for (std::uint64_t done = 1; done < unit.length;) {
        const std::uint64_t length = std::min<std::uint64_t>(payload_.room - 2, unit.length - done);
        const bool isLast = done + length == unit.length;
        StartPacket();
        hint_.AddBytes(NalFragmentHeader(unit.header, done == 1, isLast));
        hint_.AddMedia(sample.number, unit.at + done, length);
        done += length;
      }
    }
  }

  struct Unit {
    std::uint64_t at = 0, length = 0;  // bytes; `at` is after the length field, in the sample
    std::uint8_t header = 0;  // the first byte of the unit
  };
  // Reads the length field at `at` of the sample and the byte after it. Throws Refused:
  // invalidSampleTable (the unit does not end in the sample).
  Unit ReadUnit(const MediaSample& sample, std::uint64_t at) {
    static constexpr char kNoUnit[] = "a sample ends inside a NAL unit";
    std::array<std::uint8_t, 5> bytes{};
    // An empty unit at the end of a sample has no byte after its length.
    const std::uint64_t there = std::min<std::uint64_t>(payload_.lengthSize + 1, sample.size - at);
    if (there < payload_.lengthSize) throw Refused{invalidSampleTable, kNoUnit};
    sources_.Open(*sample.from, [] {}).Read(sample.at + at, std::span(bytes).first(there));
    const Unit unit{at + payload_.lengthSize,
                    NalUnitLength(ByteSpan(bytes).first(payload_.lengthSize)),
                    bytes[payload_.lengthSize]};
    if (unit.length > sample.size - unit.at) throw Refused{invalidSampleTable, kNoUnit};
    return unit;
  }

  OpenSources sources_;  // keeps the files open from sample to sample
  const Payload& payload_;
  const std::function<void(const HintSample&, std::int64_t)>& visit_;
  const std::int32_t scale_;
  HintSample hint_;
  std::uint16_t sequence_ = 0;
  std::vector<MediaSample> units_;  // sound gathered for the next packet
  std::uint64_t unitBytes_ = 0;  // size of all of them
};

}  // namespace

void MakeHintSamples(const FilePlan& plan, std::size_t track, const Payload& payload,
                     const std::function<void(const HintSample&, std::int64_t)>& visit) {
  HintMaker maker(plan, payload, plan.movie->tracks[track]->media->header.scale, visit);
  ForEachSample(plan, track, [&](const MediaSample& sample) {
    if (payload.kind == Payload::Kind::kAudio) return maker.AddSound(sample);
    maker.AddPicture(sample);
  });
  maker.SendSound();
}

}  // namespace toolbox
