// Samples: when they are shown, reading them, and adding new ones.
#include <bit>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_times.h"
#include "toolbox/references/sample_data.h"
#include "toolbox/toolbox.h"

namespace toolbox {

void GetTrackNextInterestingTime(Track track, std::int16_t flags, TimeValue from, Fixed rate,
                                 TimeValue* time, TimeValue* duration) {
  // Set before the call, so that they say "none" after a failure too.
  SetResult(time, -1);
  SetResult(duration, 0);
  Call(__func__, [&] {
    constexpr unsigned kKinds = 0x000F;  // the flags that say what to look for
    const unsigned kind = static_cast<std::uint16_t>(flags) & kKinds;
    if (!std::has_single_bit(kind)) throw Refused{paramErr};
    if (kind != nextTimeMediaSample || rate <= 0) throw Refused{featureUnsupported};
    const auto found =
        NextShownSample(Valid(track), MovieTime{from}, (flags & nextTimeEdgeOK) != 0);
    if (!found) return;
    SetResult(time, found->start.units);
    SetResult(duration, found->duration.units);
  });
}

TimeValue TrackTimeToMediaTime(TimeValue time, Track track) {
  return Call(__func__, [&] { return MediaTimeAt(Valid(track), MovieTime{time}); })
      .value_or(MediaTime{-1})
      .units;
}

OSErr GetMediaSample(Media media, Handle out, std::int32_t maxGrow, std::int32_t* size,
                     TimeValue at, TimeValue* sampleTime, TimeValue* durationPerSample,
                     Handle description, std::int32_t* descriptionNumber, std::int32_t,
                     std::int32_t* count, std::int16_t* flags) {
  return Call(__func__, [&] {
    const MediaRecord& record = Valid(media);
    HandleRecord& copy = Valid(out);
    if (maxGrow < 0) throw Refused{paramErr};
    // 0 allows any size, but the result `size` has room for no more than INT32_MAX.
    const std::uint64_t maxSize = maxGrow == 0 ? INT32_MAX : static_cast<std::uint32_t>(maxGrow);
    const SampleRange shown = SamplesShownIn(record.samples, {at}, {at + 1});
    if (at < 0 || shown.IsEmpty()) throw Refused{invalidTime};
    SampleData data = ReadSample(record, shown.from, maxSize);
    const bool isSync = record.samples.SyncAtOrBefore(data.first) == data.first;
    SetResult(size, data.bytes.size());
    SetResult(sampleTime, ShownAt(record.samples, data.first).units);
    SetResult(durationPerSample, record.samples.DurationOf(data.first).units);
    SetResult(descriptionNumber, data.description + 1);
    SetResult(count, data.count);
    SetResult(flags, isSync ? 0 : mediaSampleNotSync);
    if (description != nullptr) {
      description->bytes = record.descriptions[data.description].Numbered();
    }
    copy.bytes = std::move(data.bytes);
  });
}

OSErr BeginMediaEdits(Media media) {
  return Call(__func__, [&] { Valid(media).BeginEdits(); });
}

OSErr EndMediaEdits(Media media) {
  return Call(__func__, [&] { Valid(media).EndEdits(); });
}

}  // namespace toolbox
