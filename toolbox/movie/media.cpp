#include "toolbox/movie/media.h"

#include <algorithm>
#include <numeric>

#include "toolbox/movie/movie.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/refused.h"

namespace toolbox {

namespace {

// The names by which references to a file are found: its path, which starts with a slash, and its
// identity, if that is known.
std::vector<std::string> NamesOf(const OtherFile& file) {
  std::vector<std::string> names{file.path.native()};
  if (file.state) {
    const FileIdentity& identity = file.state->identity;
    names.push_back(std::to_string(identity.device) + ' ' + std::to_string(identity.inode));
  }
  return names;
}

}  // namespace

bool MediaRecord::IsProtected() const {
  return std::ranges::any_of(descriptions, &SampleDescription::IsProtected);
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
      const auto* other = std::get_if<OtherFile>(&dataReferences[indexed_]);
      if (other == nullptr) continue;
      for (const std::string& name : NamesOf(*other)) fileIndex_.try_emplace(name, indexed_);
    }
    for (const std::string& name : NamesOf(*file)) {
      const auto found = fileIndex_.find(name);
      if (found != fileIndex_.end() && dataReferences[found->second] == reference)
        return found->second;
    }
  }
  dataReferences.push_back(reference);
  return count;
}

std::uint32_t MediaRecord::FindOrAdd(const SampleDescription& description, std::size_t first) {
  const auto from = descriptions.begin() + static_cast<std::ptrdiff_t>(first);
  const auto found = std::find_if(from, descriptions.end(), [&](const SampleDescription& here) {
    return here.dataReference == description.dataReference && here.SameAs(description, Type());
  });
  const auto index = static_cast<std::uint32_t>(found - descriptions.begin());
  if (found == descriptions.end()) descriptions.push_back(description);
  return index;
}

void MediaRecord::SetScale(std::int32_t newScale) {
  if (newScale == header.scale) return;
  samples = samples.Rescaled(header.scale, newScale);
  for (auto& [media, joined] : joined_) {
    joined.base.units = Rescale(joined.base.units, header.scale, newScale);
  }
  header.scale = newScale;
}

std::optional<OtherFile> MediaRecord::MovieFile() const {
  return track == nullptr ? std::nullopt : track->movie->file;
}

DataReference MediaRecord::SeenFromElsewhere(const DataReference& reference) const {
  if (!std::holds_alternative<ThisFile>(reference)) return reference;
  const std::optional<OtherFile> file = MovieFile();
  if (!file) throw Refused{couldNotResolveDataRef};
  return *file;
}

DataReference MediaRecord::SeenFromHere(const DataReference& reference) const {
  const std::optional<OtherFile> file = MovieFile();
  return file && reference == DataReference(*file) ? DataReference(ThisFile{}) : reference;
}

std::vector<std::uint32_t> MediaRecord::Adopt(const std::vector<SampleDescription>& strangers,
                                              const std::vector<DataReference>& references) {
  const auto isElsewhere = [](const DataReference& reference) {
    return !std::holds_alternative<ThisFile>(reference) &&
           !std::holds_alternative<InMemory>(reference);
  };
  // The bytes after the last atom of a file describe that file only.
  if (track != nullptr && std::ranges::any_of(references, isElsewhere)) track->movie->DropTrailer();
  std::vector<std::uint32_t> map;
  const std::size_t count = dataReferences.size(), known = descriptions.size();
  for (SampleDescription description : strangers) {
    description.dataReference = FindOrAdd(references[description.dataReference]);
    // No old description names a new reference.
    const bool isNew = description.dataReference >= count;
    map.push_back(FindOrAdd(description, isNew ? known : 0));
  }
  return map;
}

SampleTableRecord MediaRecord::Copy(std::uint64_t from, std::uint64_t to) const {
  if (IsProtected()) throw Refused{featureUnsupported};
  if (!IsLocated(samples, {from, to})) throw Refused{invalidSampleTable};
  SampleTableRecord table{header.scale, {}, descriptions, {}};
  for (const DataReference& reference : dataReferences) {
    table.dataReferences.push_back(SeenFromElsewhere(reference));
  }
  std::vector<std::uint32_t> same(descriptions.size());
  std::iota(same.begin(), same.end(), 0U);
  table.samples.AppendSlice(samples, {from, to}, same);
  return table;
}

MediaTime MediaRecord::Append(const SampleTableRecord& table, std::uint64_t from,
                              std::uint64_t to) {
  if (IsProtected()) throw Refused{featureUnsupported};
  std::vector<DataReference> seen;
  for (const DataReference& reference : table.dataReferences) {
    seen.push_back(SeenFromHere(reference));
  }
  if (!table.descriptions.empty()) {
    // A description without a reference means the first.
    const DataReference& first =
        dataReferences.empty() ? seen[table.descriptions.front().dataReference] : dataReferences[0];
    for (const SampleDescription& description : table.descriptions) {
      if (!description.HoldsReference() && seen[description.dataReference] != first) {
        throw Refused{mediaTypesDontMatch};
      }
    }
  }
  const std::vector<std::uint32_t> map = Adopt(table.descriptions, seen);
  return samples.AppendInStep(table.samples, {from, to}, map);
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
  const MediaTime base = samples.AppendSlice(source.samples, {0, count}, map);
  joined_[source.identity_.get()] = {source.identity_, count, base};
  return base;
}

}  // namespace toolbox
