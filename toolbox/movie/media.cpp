#include "toolbox/movie/media.h"

#include <algorithm>
#include <utility>

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
      if (found != fileIndex_.end() && dataReferences[found->second] == reference) {
        return found->second;
      }
    }
  }
  dataReferences.push_back(reference);
  return count;
}

std::uint32_t MediaRecord::FindOrAdd(const SampleDescription& description, std::size_t first) {
  const auto from = descriptions.begin() + static_cast<std::ptrdiff_t>(first);
  const auto found = std::find_if(from, descriptions.end(), [&](const SampleDescription& here) {
    return here.dataReference == description.dataReference &&
           DecodeAlike(here.bytes, description.bytes, Type());
  });
  const auto index = static_cast<std::uint32_t>(found - descriptions.begin());
  if (found == descriptions.end()) descriptions.push_back(description);
  return index;
}

void MediaRecord::BeginEdits() {
  if (!newSamples.empty()) throw Refused{dataAlreadyOpenForWrite};
  if (dataReferences.empty()) throw Refused{noDefaultDataRef};
  if (std::holds_alternative<Unresolved>(dataReferences[0])) throw Refused{dataNotOpenForWrite};
  const auto* block = std::get_if<InMemory>(&dataReferences[0]);
  NewSamples added{block != nullptr ? *block : InMemory{std::make_shared<Bytes>()}, 0, {}};
  added.dataReference = FindOrAdd(added.block);
  newSamples.push_back(std::move(added));
}

MediaTime MediaRecord::AddSample(ByteSpan bytes, SampleDescription description,
                                 MediaTime duration) {
  if (newSamples.empty()) throw Refused{dataNotOpenForWrite};
  auto& [block, dataReference, rows] = newSamples.front();
  if (duration < MediaTime{} || duration > MediaTime{UINT32_MAX}) throw Refused{invalidDuration};
  if (bytes.size() > UINT32_MAX || rows.count == UINT32_MAX) throw Refused{paramErr};
  description.dataReference = dataReference;
  const std::uint32_t number = FindOrAdd(description);
  const MediaTime time = samples.Duration() + rows.duration;
  Bytes& data = *block.data;
  rows.AddSample(static_cast<std::uint32_t>(duration.units),
                 static_cast<std::uint32_t>(bytes.size()), data.size(), number);
  data.insert(data.end(), bytes.begin(), bytes.end());
  return time;
}

void MediaRecord::EndEdits() {
  if (newSamples.empty()) throw Refused{dataAlreadyClosed};
  const SampleTable added(std::make_shared<const SampleRows>(std::move(newSamples.front().rows)));
  newSamples.clear();
  samples.AppendSlice(added, {0, added.Count()});
}

void MediaRecord::SetScale(std::int32_t newScale) {
  if (newScale == header.scale) return;
  samples = samples.Rescaled(header.scale, newScale);
  const ScaleChange place{header.scale, newScale};
  for (auto& [media, joined] : joined_) joined.base = place(joined.base);
  header.scale = newScale;
}

std::optional<OtherFile> MediaRecord::MovieFile() const {
  return track == nullptr ? std::nullopt : track->movie->file;
}

std::vector<DataReference> MediaRecord::ReferencesForOthers() const {
  std::vector<DataReference> seen = dataReferences;
  const std::optional<OtherFile> file = MovieFile();
  for (DataReference& reference : seen) {
    if (!std::holds_alternative<ThisFile>(reference)) continue;
    if (!file) throw Refused{couldNotResolveDataRef};
    reference = *file;
  }
  return seen;
}

std::vector<DataReference> MediaRecord::ReferencesForThis(
    std::vector<DataReference> references) const {
  const std::optional<OtherFile> file = MovieFile();
  if (file) std::ranges::replace(references, DataReference(*file), DataReference(ThisFile{}));
  return references;
}

std::vector<std::uint32_t> MediaRecord::AddDescriptions(
    const std::vector<SampleDescription>& others, const std::vector<DataReference>& references) {
  const auto isElsewhere = [](const DataReference& reference) {
    return !std::holds_alternative<ThisFile>(reference) &&
           !std::holds_alternative<InMemory>(reference);
  };
  if (track != nullptr && std::ranges::any_of(references, isElsewhere)) {
    // The bytes after the last atom describe the whole file, so they are wrong once the movie has
    // media of other files.
    std::erase_if(track->movie->fileAtoms,
                  [](const FileAtom& atom) { return atom.type == FileAtom::kTrailer; });
  }
  std::vector<std::uint32_t> map;
  const std::size_t count = dataReferences.size(), known = descriptions.size();
  for (SampleDescription description : others) {
    description.dataReference = FindOrAdd(references[description.dataReference]);
    // No old description names a new reference.
    const bool isNew = description.dataReference >= count;
    map.push_back(FindOrAdd(description, isNew ? known : 0));
  }
  return map;
}

SampleTableRecord MediaRecord::Copy(std::uint64_t from, std::uint64_t to) const {
  if (IsProtected()) throw Refused{featureUnsupported, "encrypted samples cannot be copied"};
  CheckLocated(samples, {from, to});
  SampleTableRecord table{header.scale, ReferencesForOthers(), descriptions, {}};
  table.samples.AppendSlice(samples, {from, to});
  return table;
}

MediaTime MediaRecord::Append(const SampleTableRecord& table, std::uint64_t from,
                              std::uint64_t to) {
  if (IsProtected()) throw Refused{featureUnsupported, "encrypted samples cannot be copied"};
  const std::vector<DataReference> seen = ReferencesForThis(table.dataReferences);
  for (const SampleDescription& description : table.descriptions) {
    // A description that names no data reference means the first one of its media.
    const DataReference& first =
        dataReferences.empty() ? seen[table.descriptions.front().dataReference] : dataReferences[0];
    if (!description.HoldsReference() && seen[description.dataReference] != first) {
      throw Refused{mediaTypesDontMatch};
    }
  }
  const std::vector<std::uint32_t> map = AddDescriptions(table.descriptions, seen);
  return samples.AppendWithoutDelay(table.samples, {from, to}, map);
}

MediaTime MediaRecord::Join(const MediaRecord& source) {
  const std::uint64_t count = source.samples.Count();
  const auto before = joined_.find(source.identity_.get());
  if (before != joined_.end() && before->second.identity.lock() == source.identity_ &&
      before->second.samples == count) {
    return before->second.base;
  }
  const std::vector<std::uint32_t> map =
      AddDescriptions(source.descriptions, ReferencesForThis(source.ReferencesForOthers()));
  const MediaTime base = samples.AppendSlice(source.samples, {0, count}, map);
  joined_[source.identity_.get()] = {source.identity_, count, base};
  return base;
}

}  // namespace toolbox
