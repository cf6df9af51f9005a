// Sample tables: samples copied from one media to another, by reference.
#include <algorithm>
#include <cstring>
#include <memory>

#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/media.h"
#include "toolbox/toolbox.h"

namespace toolbox {

OSErr QTSampleTableCreateMutable(const void*, TimeScale scale, const void*,
                                 QTMutableSampleTableRef* table) {
  *table = nullptr;
  return Call("QTSampleTableCreateMutable", [&] {
    if (scale <= 0) throw Refused{paramErr};
    *table = std::make_unique<SampleTableRecord>(SampleTableRecord{scale, {}, {}, {}}).release();
  });
}

std::int64_t QTSampleTableGetNumberOfSamples(QTMutableSampleTableRef table) {
  return Call("QTSampleTableGetNumberOfSamples",
              [&] { return static_cast<std::int64_t>(Valid(table).samples.Count()); });
}

OSErr QTSampleTableGetProperty(QTMutableSampleTableRef table, FourCC propertyClass, FourCC property,
                               std::size_t room, void* value, std::size_t* used) {
  return Call("QTSampleTableGetProperty", [&] {
    const TimeValue duration = Valid(table).samples.Duration().units;
    if (propertyClass != kQTPropertyClass_SampleTable ||
        property != kQTSampleTablePropertyID_TotalDecodeDuration) {
      throw Refused{featureUnsupported};
    }
    if (value == nullptr || room < sizeof(duration)) throw Refused{paramErr};
    std::memcpy(value, &duration, sizeof(duration));
    if (used != nullptr) *used = sizeof(duration);
  });
}

void QTSampleTableRelease(QTMutableSampleTableRef table) {
  Call("QTSampleTableRelease", [&] { delete table; });
}

OSErr CopyMediaMutableSampleTable(Media media, TimeValue start, TimeValue* actualStart,
                                  std::int64_t maxSamples, TimeValue maxDuration,
                                  QTMutableSampleTableRef* table) {
  return Call("CopyMediaMutableSampleTable", [&] {
    const MediaRecord& record = Valid(media);
    const SampleTable& samples = record.samples;
    if (start < 0 || start >= samples.Duration().units) throw Refused{invalidTime};
    // SampleAt finds the last sample at a time, and samples without a duration may be before it.
    const std::uint64_t from = start == 0 ? 0 : samples.SampleAt({start});
    const TimeValue time = samples.TimeOf(from).units;
    std::uint64_t to = samples.Count();
    if (maxSamples > 0) to = std::min(to, from + static_cast<std::uint64_t>(maxSamples));
    if (maxDuration > 0 && maxDuration < samples.Duration().units - time) {
      to = std::min(to, samples.SampleAt({time + maxDuration}));
    }
    auto copy = std::make_unique<SampleTableRecord>(record.Copy(from, std::max(to, from + 1)));
    if (actualStart != nullptr) *actualStart = time;
    *table = copy.release();
  });
}

OSErr AddSampleTableToMedia(Media media, QTMutableSampleTableRef table, std::int64_t first,
                            std::int64_t count, TimeValue* decodeTime) {
  return Call("AddSampleTableToMedia", [&] {
    MediaRecord& record = Valid(media);
    const SampleTableRecord& source = Valid(table);
    if (source.scale != record.header.scale || count < 0) throw Refused{paramErr};
    const auto all = static_cast<std::int64_t>(source.samples.Count());
    if (first < 1 || first - 1 > all || count > all - (first - 1)) throw Refused{invalidSampleNum};
    const auto from = static_cast<std::uint64_t>(first - 1);
    const MediaTime time = record.Append(source, from, from + static_cast<std::uint64_t>(count));
    if (decodeTime != nullptr) *decodeTime = time.units;
  });
}

}  // namespace toolbox
