#include "toolbox/movie/media.h"

#include <algorithm>

#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr std::size_t kReferenceAt = 14;  // size, format, six bytes

// What a reference of a media read from `sourceFile` is called in a movie read from `ownFile`.
DataReference SeenFrom(const std::optional<OtherFile>& ownFile, const DataReference& reference,
                       const std::optional<OtherFile>& sourceFile) {
  DataReference seen = reference;
  if (std::holds_alternative<ThisFile>(reference)) {
    if (!sourceFile) throw Refused{couldNotResolveDataRef};
    seen = *sourceFile;
  }
  return ownFile && seen == DataReference(*ownFile) ? DataReference(ThisFile{}) : seen;
}

}  // namespace

FourCC SampleDescription::Format() const {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i < 8 && i < bytes.size(); ++i) value = value << 8 | bytes[i];
  return FourCC(value);
}

bool SampleDescription::HoldsReference() const {
  if (bytes.size() < kReferenceAt + 2) return false;
  return std::all_of(bytes.begin() + 8, bytes.begin() + kReferenceAt,
                     [](std::uint8_t byte) { return byte == 0; });
}

bool SampleDescription::SameAs(const SampleDescription& other) const {
  if (!HoldsReference() || !other.HoldsReference()) return bytes == other.bytes;
  const ByteSpan a(bytes), b(other.bytes);
  return std::ranges::equal(a.first(kReferenceAt), b.first(kReferenceAt)) &&
         std::ranges::equal(a.subspan(kReferenceAt + 2), b.subspan(kReferenceAt + 2));
}

std::uint32_t MediaRecord::FindOrAdd(const DataReference& reference) {
  const auto found = std::ranges::find(dataReferences, reference);
  const auto index = static_cast<std::uint32_t>(found - dataReferences.begin());
  if (found == dataReferences.end()) dataReferences.push_back(reference);
  return index;
}

std::uint32_t MediaRecord::FindOrAdd(const SampleDescription& description) {
  const auto found = std::ranges::find_if(descriptions, [&](const SampleDescription& here) {
    return here.dataReference == description.dataReference && here.SameAs(description);
  });
  const auto index = static_cast<std::uint32_t>(found - descriptions.begin());
  if (found == descriptions.end()) descriptions.push_back(description);
  return index;
}

void MediaRecord::SetScale(std::int32_t newScale) {
  if (newScale == scale) return;
  samples = samples.Rescaled(scale, newScale);
  for (Joined& joined : joined_) joined.base.units = Rescale(joined.base.units, scale, newScale);
  scale = newScale;
}

MediaTime MediaRecord::Join(const MediaRecord& source, const std::optional<OtherFile>& sourceFile,
                            const std::optional<OtherFile>& ownFile) {
  const auto before = std::ranges::find_if(joined_, [&](const Joined& joined) {
    return joined.identity.lock() == source.identity_ && joined.samples == source.samples.Count();
  });
  if (before != joined_.end()) return before->base;

  std::vector<std::uint32_t> map;
  for (SampleDescription description : source.descriptions) {
    const DataReference& reference = source.dataReferences[description.dataReference];
    description.dataReference = FindOrAdd(SeenFrom(ownFile, reference, sourceFile));
    map.push_back(FindOrAdd(description));
  }
  const std::uint64_t count = source.samples.Count();
  const MediaTime base{samples.AppendSlice(source.samples, 0, count, map)};
  joined_.push_back({source.identity_, count, base});
  return base;
}

}  // namespace toolbox
