#include "toolbox/mpeg4/hint_samples.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "toolbox/atoms/fields.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_columns.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {

void HintSample::Clear(std::int32_t timeOffset) {
  bytes_.assign(4, 0);  // number of packets, reserved
  packets_.clear();
  timeOffset_ = timeOffset;
}

void HintSample::StartPacket(const Payload& payload, std::uint16_t sequence) {
  constexpr std::uint8_t kVersion = 2 << 6;
  constexpr std::uint16_t kHasExtra = 4;
  packet_ = bytes_.size();
  packets_.push_back(kRtpHeader);
  if (packets_.size() > UINT16_MAX) throw Refused{invalidSampleTable};
  ToBigEndian(static_cast<std::uint16_t>(packets_.size()), bytes_.data());
  AppendBigEndian(bytes_, std::uint32_t{0});  // sent when the sample says
  bytes_.push_back(kVersion);
  bytes_.push_back(payload.number);
  AppendBigEndian(bytes_, sequence);
  AppendBigEndian(bytes_, timeOffset_ != 0 ? kHasExtra : std::uint16_t{0});
  AppendBigEndian(bytes_, std::uint16_t{0});  // entries
  if (timeOffset_ != 0) {
    AppendBigEndian(bytes_, std::uint32_t{16});
    AppendBigEndian(bytes_, std::uint32_t{12});
    AppendBigEndian(bytes_, FourCC{"rtpo"}.value);
    AppendBigEndian(bytes_, timeOffset_);
  }
}

void HintSample::CountEntry(std::size_t length) {
  std::uint8_t* count = &bytes_[packet_ + 10];
  ToBigEndian(static_cast<std::uint16_t>(FromBigEndian<std::uint16_t>(count) + 1), count);
  packets_.back() += static_cast<std::uint32_t>(length);
}

void HintSample::AddBytes(ByteSpan bytes) {
  constexpr std::size_t kMost = 14;
  while (!bytes.empty()) {
    const ByteSpan piece = bytes.first(std::min(bytes.size(), kMost));
    CountEntry(piece.size());
    bytes_.push_back(1);
    bytes_.push_back(static_cast<std::uint8_t>(piece.size()));
    bytes_.insert(bytes_.end(), piece.begin(), piece.end());
    bytes_.insert(bytes_.end(), kMost - piece.size(), 0);
    bytes = bytes.subspan(piece.size());
  }
}

void HintSample::AddMedia(std::uint32_t sample, std::uint64_t offset, std::uint32_t length) {
  CountEntry(length);
  bytes_.push_back(2);
  bytes_.push_back(0);  // of the track that is hinted
  AppendBigEndian(bytes_, static_cast<std::uint16_t>(length));
  AppendBigEndian(bytes_, sample);
  AppendBigEndian(bytes_, static_cast<std::uint32_t>(offset));
  AppendBigEndian(bytes_, std::uint16_t{1});  // a byte is a byte, a sample a sample
  AppendBigEndian(bytes_, std::uint16_t{1});
}

void HintSample::Mark() {
  if (!packets_.empty()) bytes_[packet_ + 5] |= 0x80;
}

namespace {

// A sample of the output, and where it is to be read.
struct MediaSample {
  std::uint32_t number = 0;  // in the output, the first being 1
  const DataReference* from = nullptr;
  std::uint64_t at = 0, size = 0;  // bytes
  std::int64_t time = 0, duration = 0, shown = 0;  // media units
};

// Calls visit(MediaSample) for each sample of a track of the plan, in their order.
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

class HintMaker {
 public:
  HintMaker(const FilePlan& plan, std::size_t track, const Payload& payload,
            const std::function<void(const HintSample&, std::int64_t)>& visit)
      : plan_(plan),
        payload_(payload),
        visit_(visit),
        scale_(plan.movie->tracks[track]->media->scale) {
    ForEachSample(plan, track, [this](const MediaSample& sample) {
      if (payload_.kind == Payload::Kind::kAudio) {
        AddSound(sample);
      } else {
        AddPicture(sample);
      }
    });
    SendSound();
  }

 private:
  std::int64_t Clock(std::int64_t time) const { return Rescale(time, scale_, payload_.clock); }
  void StartPacket() { hint_.StartPacket(payload_, sequence_++); }
  void Send(std::int64_t start, std::int64_t end) {
    hint_.Mark();
    visit_(hint_, Clock(end) - Clock(start));
  }

  void AddPicture(const MediaSample& sample) {
    const std::int64_t offset = Clock(sample.shown) - Clock(sample.time);
    hint_.Clear(static_cast<std::int32_t>(std::clamp<std::int64_t>(offset, INT32_MIN, INT32_MAX)));
    if (payload_.kind == Payload::Kind::kAvc) {
      AddUnits(sample);
    } else {
      for (std::uint64_t at = 0; at < sample.size; at += payload_.room) {
        StartPacket();
        AddPiece(sample, at, std::min<std::uint64_t>(payload_.room, sample.size - at));
      }
    }
    Send(sample.time, sample.time + sample.duration);
  }

  // A NAL unit a packet; what does not fit goes into fragments (FU-A), which name its header again.
  void AddUnits(const MediaSample& sample) {
    constexpr std::uint8_t kFragment = 28, kFirst = 0x80, kLast = 0x40;
    std::uint64_t at = 0;
    while (at < sample.size) {
      const Unit unit = ReadUnit(sample, at);
      at = unit.at + unit.length;
      if (unit.length != 0 && unit.length <= payload_.room) {
        StartPacket();
        AddPiece(sample, unit.at, unit.length);
        continue;
      }
      for (std::uint64_t done = 1; done < unit.length;) {
        const std::uint64_t length = std::min<std::uint64_t>(payload_.room - 2, unit.length - done);
        std::uint8_t header = unit.header & 0x1F;
        if (done == 1) header |= kFirst;
        if (done + length == unit.length) header |= kLast;
        StartPacket();
        hint_.AddBytes(
            std::array{static_cast<std::uint8_t>((unit.header & 0xE0) | kFragment), header});
        AddPiece(sample, unit.at + done, length);
        done += length;
      }
    }
  }

  struct Unit {
    std::uint64_t at = 0, length = 0;  // behind the length, within the sample
    std::uint8_t header = 0;
  };
  Unit ReadUnit(const MediaSample& sample, std::uint64_t at) {
    std::array<std::uint8_t, 5> bytes{};
    const std::uint64_t there = std::min<std::uint64_t>(payload_.lengthSize + 1, sample.size - at);
    if (there < payload_.lengthSize) throw Refused{invalidSampleTable};
    if (sample.from != from_) {
      source_ = OpenSource(*sample.from, plan_.ownFile);
      from_ = sample.from;
    }
    source_->Read(sample.at + at, std::span(bytes).first(there));
    Unit unit{at + payload_.lengthSize, 0, bytes[payload_.lengthSize]};
    for (std::size_t i = 0; i < payload_.lengthSize; ++i) unit.length = unit.length << 8 | bytes[i];
    if (unit.length > sample.size - unit.at) throw Refused{invalidSampleTable};
    return unit;
  }

  void AddSound(const MediaSample& sample) {
    // The size of a unit of sound has 13 bits.
    if (sample.size >= 1 << 13) throw Refused{invalidSampleTable};
    const bool continues =
        !units_.empty() && units_.back().duration == sample.duration &&
        sample.time + sample.duration - units_[0].time <= payload_.longest &&
        SoundHeader(units_.size() + 1) + unitBytes_ + sample.size <= payload_.room;
    if (!continues) SendSound();
    units_.push_back(sample);
    unitBytes_ += sample.size;
  }
  // Bytes in front of so many units: the length of their headers in bits, then those.
  static std::uint64_t SoundHeader(std::uint64_t units) { return 2 + 2 * units; }

  void SendSound() {
    if (units_.empty()) return;
    Bytes header;
    AppendBigEndian(header, static_cast<std::uint16_t>(16 * units_.size()));
    for (const MediaSample& unit : units_) {
      AppendBigEndian(header, static_cast<std::uint16_t>(unit.size << 3));
    }
    hint_.Clear(0);
    const std::uint64_t room = payload_.room - header.size();
    // Only one that is alone can be too long.
    for (std::uint64_t at = 0; at == 0 || at < unitBytes_; at += room) {
      StartPacket();
      hint_.AddBytes(header);
      if (unitBytes_ > room) {
        AddPiece(units_[0], at, std::min(room, unitBytes_ - at));
      } else {
        for (const MediaSample& unit : units_) AddPiece(unit, 0, unit.size);
      }
    }
    Send(units_[0].time, units_.back().time + units_.back().duration);
    units_.clear();
    unitBytes_ = 0;
  }

  void AddPiece(const MediaSample& sample, std::uint64_t at, std::uint64_t length) {
    if (length != 0) hint_.AddMedia(sample.number, at, static_cast<std::uint32_t>(length));
  }

  const FilePlan& plan_;
  const Payload& payload_;
  const std::function<void(const HintSample&, std::int64_t)>& visit_;
  const std::int32_t scale_;
  HintSample hint_;
  std::uint16_t sequence_ = 0;
  std::vector<MediaSample> units_;  // of sound, for the next packet
  std::uint64_t unitBytes_ = 0;
  const DataReference* from_ = nullptr;
  std::unique_ptr<ByteSource> source_;  // where it leads
};

}  // namespace

void MakeHintSamples(const FilePlan& plan, std::size_t track, const Payload& payload,
                     const std::function<void(const HintSample&, std::int64_t)>& visit) {
  HintMaker(plan, track, payload, visit);
}

}  // namespace toolbox
