// Adds new samples to a media, one at a time.
#include <numeric>
#include <utility>

#include "toolbox/movie/media.h"
#include "toolbox/refused.h"

namespace toolbox {

void MediaRecord::BeginEdits() {
  if (newSamples) throw Refused{dataAlreadyOpenForWrite};
  if (dataReferences.empty()) throw Refused{noDefaultDataRef};
  if (std::holds_alternative<Unresolved>(dataReferences[0])) throw Refused{dataNotOpenForWrite};
  const auto* block = std::get_if<InMemory>(&dataReferences[0]);
  NewSamples added{block != nullptr ? *block : InMemory{std::make_shared<Bytes>()}, 0, {}};
  added.dataReference = FindOrAdd(added.block);
  newSamples = std::move(added);
}

MediaTime MediaRecord::AddSample(ByteSpan bytes, SampleDescription description,
                                 MediaTime duration) {
  if (!newSamples) throw Refused{dataNotOpenForWrite};
  if (duration < MediaTime{} || duration > MediaTime{UINT32_MAX}) throw Refused{invalidDuration};
  if (bytes.size() > UINT32_MAX || newSamples->rows.count == UINT32_MAX) throw Refused{paramErr};
  description.dataReference = newSamples->dataReference;
  const std::uint32_t number = FindOrAdd(description);
  SampleRows& rows = newSamples->rows;
  const MediaTime time = samples.Duration() + rows.duration;
  Bytes& data = *newSamples->block.data;
  rows.AddSample(static_cast<std::uint32_t>(duration.units),
                 static_cast<std::uint32_t>(bytes.size()), data.size(), number);
  data.insert(data.end(), bytes.begin(), bytes.end());
  return time;
}

void MediaRecord::EndEdits() {
  if (!newSamples) throw Refused{dataAlreadyClosed};
  std::vector<std::uint32_t> same(descriptions.size());
  std::iota(same.begin(), same.end(), 0U);
  const SampleTable added(std::make_shared<const SampleRows>(std::move(newSamples->rows)));
  newSamples.reset();
  samples.AppendSlice(added, {0, added.Count()}, same);
}

}  // namespace toolbox
