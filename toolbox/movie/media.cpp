#include "toolbox/movie/media.h"

#include <algorithm>
#include <numeric>

#include "toolbox/movie/movie.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr std::size_t kReferenceAt = 14;  // size, format, six bytes

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

Bytes SampleDescription::Numbered() const {
  Bytes numbered = bytes;
  if (HoldsReference()) {
    const std::uint32_t number = dataReference + 1;
    numbered[kReferenceAt] = static_cast<std::uint8_t>(number >> 8);
    numbered[kReferenceAt + 1] = static_cast<std::uint8_t>(number);
  }
  return numbered;
}

bool SampleDescription::SameAs(const SampleDescription& other) const {
  if (!HoldsReference() || !other.HoldsReference()) return bytes == other.bytes;
  const ByteSpan a(bytes), b(other.bytes);
  return std::ranges::equal(a.first(kReferenceAt), b.first(kReferenceAt)) &&
         std::ranges::equal(a.subspan(kReferenceAt + 2), b.subspan(kReferenceAt + 2));
}

std::uint32_t MediaRecord::FindOrAdd(const DataReference& reference) {
  const auto count = static_cast<std::uint32_t>(dataReferences.size());
  const auto* file = std::get_if<OtherFile>(&reference);
  if (file == nullptr) {
    const auto found = std::ranges::find(dataReferences, reference);
    if (found != dataReferences.end()) {
      return static_cast<std::uint32_t>(found - dataReferences.begin());
    }
  } else {
    for (; indexed_ < count; ++indexed_) {
      if (const auto* other = std::get_if<OtherFile>(&dataReferences[indexed_])) {
        fileIndex_.try_emplace(other->path.native(), indexed_);
      }
    }
    const auto found = fileIndex_.find(file->path.native());
    if (found != fileIndex_.end()) return found->second;
  }
  dataReferences.push_back(reference);
  return count;
}

std::uint32_t MediaRecord::FindOrAdd(const SampleDescription& description, std::size_t first) {
  const auto from = descriptions.begin() + static_cast<std::ptrdiff_t>(first);
  const auto found = std::find_if(from, descriptions.end(), [&](const SampleDescription& here) {
    return here.dataReference == description.dataReference && here.SameAs(description);
  });
  const auto index = static_cast<std::uint32_t>(found - descriptions.begin());
  if (found == descriptions.end()) descriptions.push_back(description);
  return index;
}

void MediaRecord::SetScale(std::int32_t newScale) {
  if (newScale == scale) return;
  samples = samples.Rescaled(scale, newScale);
  for (auto& [media, joined] : joined_) {
    joined.base.units = Rescale(joined.base.units, scale, newScale);
  }
  scale = newScale;
}

std::optional<OtherFile> MediaRecord::OwnFile() const {
  return track == nullptr ? std::nullopt : track->movie->file;
}

DataReference MediaRecord::SeenFromElsewhere(const DataReference& reference) const {
  if (!std::holds_alternative<ThisFile>(reference)) return reference;
  const std::optional<OtherFile> file = OwnFile();
  if (!file) throw Refused{couldNotResolveDataRef};
  return *file;
}

DataReference MediaRecord::SeenFromHere(const DataReference& reference) const {
  const std::optional<OtherFile> file = OwnFile();
  return file && reference == DataReference(*file) ? DataReference(ThisFile{}) : reference;
}

std::vector<std::uint32_t> MediaRecord::Adopt(const std::vector<SampleDescription>& strangers,
                                              const std::vector<DataReference>& references) {
  std::vector<std::uint32_t> map;
  const std::size_t count = dataReferences.size(), known = descriptions.size();
  for (SampleDescription description : strangers) {
    description.dataReference = FindOrAdd(references[description.dataReference]);
    // Nothing that was here can name a reference that was not.
    const bool isNew = description.dataReference >= count;
    map.push_back(FindOrAdd(description, isNew ? known : 0));
  }
  return map;
}

SampleTableRecord MediaRecord::Copy(std::uint64_t from, std::uint64_t to) const {
  SampleTableRecord table{scale, {}, descriptions, {}};
  for (const DataReference& reference : dataReferences) {
    table.dataReferences.push_back(SeenFromElsewhere(reference));
  }
  std::vector<std::uint32_t> same(descriptions.size());
  std::iota(same.begin(), same.end(), 0U);
  table.samples.AppendSlice(samples, from, to, same);
  return table;
}

MediaTime MediaRecord::Append(const SampleTableRecord& table, std::uint64_t from,
                              std::uint64_t to) {
  std::vector<DataReference> seen;
  for (const DataReference& reference : table.dataReferences) {
    seen.push_back(SeenFromHere(reference));
  }
  if (!table.descriptions.empty()) {
    // A description that names no reference means the first.
    const DataReference& first =
        dataReferences.empty() ? seen[table.descriptions.front().dataReference] : dataReferences[0];
    for (const SampleDescription& description : table.descriptions) {
      if (!description.HoldsReference() && seen[description.dataReference] != first) {
        throw Refused{mediaTypesDontMatch};
      }
    }
  }
  const std::vector<std::uint32_t> map = Adopt(table.descriptions, seen);
  return {samples.AppendInStep(table.samples, from, to, map)};
}

MediaTime MediaRecord::Join(const MediaRecord& source) {
  const std::uint64_t count = source.samples.Count();
  const auto before = joined_.find(source.identity_.get());
  if (before != joined_.end() && before->second.identity.lock() == source.identity_ &&
      before->second.samples == count) {
    return before->second.base;
  }

  std::vector<DataReference> seen;
  for (const DataReference& reference : source.dataReferences) {
    seen.push_back(SeenFromHere(source.SeenFromElsewhere(reference)));
  }
  const std::vector<std::uint32_t> map = Adopt(source.descriptions, seen);
  const MediaTime base{samples.AppendSlice(source.samples, 0, count, map)};
  joined_[source.identity_.get()] = {source.identity_, count, base};
  return base;
}

}  // namespace toolbox
