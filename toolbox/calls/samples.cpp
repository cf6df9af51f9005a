// Samples: when they are shown, reading them, and adding new ones.
#include <bit>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_times.h"
#include "toolbox/references/sample_data.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// Sets a result unless the caller passed null for it.
template <class T>
void Give(T* result, std::int64_t value) {
  if (result != nullptr) *result = static_cast<T>(value);
}

// The index of the sample that is shown at a media time. Throws Refused: invalidTime.
std::uint64_t SampleShownAt(const MediaRecord& media, TimeValue time) {
  const auto [first, last] = SamplesShownIn(media.samples, {time}, {time + 1});
  if (time < 0 || first == last) throw Refused{invalidTime};
  return first;
}

}  // namespace

void GetTrackNextInterestingTime(Track track, std::int16_t flags, TimeValue from, Fixed rate,
                                 TimeValue* time, TimeValue* duration) {
  Give(time, -1);
  Give(duration, 0);
  Call("GetTrackNextInterestingTime", [&] {
    constexpr unsigned kKinds = 0x000F;
    const unsigned kind = static_cast<std::uint16_t>(flags) & kKinds;
    if (!std::has_single_bit(kind)) throw Refused{paramErr};
    if (kind != nextTimeMediaSample || rate <= 0) throw Refused{featureUnsupported};
    const auto found =
        NextSampleOnShow(Valid(track), MovieTime{from}, (flags & nextTimeEdgeOK) != 0);
    if (!found) return;
    Give(time, found->start.units);
    Give(duration, found->duration.units);
  });
}

TimeValue TrackTimeToMediaTime(TimeValue time, Track track) {
  return Call("TrackTimeToMediaTime", [&] { return MediaTimeAt(Valid(track), MovieTime{time}); })
      .value_or(MediaTime{-1})
      .units;
}

OSErr GetMediaSample(Media media, Handle out, std::int32_t maxGrow, std::int32_t* size,
                     TimeValue at, TimeValue* sampleTime, TimeValue* durationPerSample,
                     Handle description, std::int32_t* descriptionNumber, std::int32_t,
                     std::int32_t* count, std::int16_t* flags) {
  return Call("GetMediaSample", [&] {
    const MediaRecord& record = Valid(media);
    if (out == nullptr) throw Refused{nilHandleErr};
    if (maxGrow < 0) throw Refused{paramErr};
    const std::uint64_t longest = maxGrow == 0 ? INT32_MAX : static_cast<std::uint32_t>(maxGrow);
    SampleData data = ReadSample(record, SampleShownAt(record, at), longest);
    const bool isSync = record.samples.SyncAtOrBefore(data.first) == data.first;
    Give(size, static_cast<std::int64_t>(data.bytes.size()));
    Give(sampleTime, ShownAt(record.samples, data.first).units);
    Give(durationPerSample, record.samples.DurationOf(data.first).units);
    Give(descriptionNumber, data.description + std::int64_t{1});
    Give(count, data.count);
    Give(flags, isSync ? 0 : mediaSampleNotSync);
    if (description != nullptr) {
      description->bytes = record.descriptions[data.description].Numbered();
    }
    out->bytes = std::move(data.bytes);
  });
}

OSErr BeginMediaEdits(Media media) {
  return Call("BeginMediaEdits", [&] { Valid(media).BeginEdits(); });
}

OSErr EndMediaEdits(Media media) {
  return Call("EndMediaEdits", [&] { Valid(media).EndEdits(); });
}

}  // namespace toolbox
