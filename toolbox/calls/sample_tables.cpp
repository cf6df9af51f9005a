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
  return Call(__func__, [&] {
    if (scale <= 0) throw Refused{paramErr};
    *table = std::make_unique<SampleTableRecord>(SampleTableRecord{scale, {}, {}, {}}).release();
  });
}

std::int64_t QTSampleTableGetNumberOfSamples(QTMutableSampleTableRef table) {
  return Call(__func__, [&] { return static_cast<std::int64_t>(Valid(table).samples.Count()); });
}

OSErr QTSampleTableGetProperty(QTMutableSampleTableRef table, FourCC propertyClass, FourCC property,
                               std::size_t room, void* value, std::size_t* used) {
  return Call(__func__, [&] {
    const TimeValue duration = Valid(table).samples.Duration().units;
    if (propertyClass != kQTPropertyClass_SampleTable ||
        property != kQTSampleTablePropertyID_TotalDecodeDuration) {
      throw Refused{featureUnsupported};
    }
    if (value == nullptr || room < sizeof(duration)) throw Refused{paramErr};
    // Copied byte by byte, because `value` may be unaligned.
    std::memcpy(value, &duration, sizeof(duration));
    SetResult(used, sizeof(duration));
  });
}

void QTSampleTableRelease(QTMutableSampleTableRef table) {
  Call(__func__, [&] { delete table; });
}

OSErr CopyMediaMutableSampleTable(Media media, TimeValue start, TimeValue* actualStart,
                                  std::int64_t maxSamples, TimeValue maxDuration,
                                  QTMutableSampleTableRef* table) {
  return Call(__func__, [&] {
    const MediaRecord& record = Valid(media);
    const SampleRange range = record.samples.SamplesFrom({start}, maxSamples, {maxDuration});
    *table = std::make_unique<SampleTableRecord>(record.Copy(range.from, range.to)).release();
    SetResult(actualStart, record.samples.TimeOf(range.from).units);
  });
}

OSErr AddSampleTableToMedia(Media media, QTMutableSampleTableRef table, std::int64_t first,
                            std::int64_t count, TimeValue* decodeTime) {
  return Call(__func__, [&] {
    MediaRecord& record = Valid(media);
    const SampleTableRecord& source = Valid(table);
    if (source.scale != record.header.scale || count < 0) throw Refused{paramErr};
    const auto all = static_cast<std::int64_t>(source.samples.Count());
    if (first < 1 || count > all - (first - 1)) throw Refused{invalidSampleNum};
    const auto from = static_cast<std::uint64_t>(first - 1);
    const MediaTime time = record.Append(source, from, from + static_cast<std::uint64_t>(count));
    SetResult(decodeTime, time.units);
  });
}

}  // namespace toolbox
