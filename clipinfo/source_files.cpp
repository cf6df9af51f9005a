#include "clipinfo/source_files.h"

#include <algorithm>
#include <variant>

#include "toolbox/movie/presentation.h"

namespace clipinfo {
namespace {

// Adds a run that starts at `time`. Runs stay in order of time, even if samples are not.
void AddRun(std::vector<FileRun>& runs, toolbox::MediaTime time, std::optional<std::size_t> file) {
  if (runs.empty()) {
    runs.push_back({{}, file});
    return;
  }
  if (runs.back().file == file) return;
  time = std::max(time, runs.back().from);
  if (time == runs.back().from) runs.pop_back();
  if (runs.empty() || runs.back().file != file) runs.push_back({time, file});
}

}  // namespace

std::vector<FileRun> SourceFiles::RunsOf(const toolbox::MediaRecord& media) {
  std::vector<std::optional<std::size_t>> files;  // by description of the media
  for (const toolbox::SampleDescription& description : media.descriptions) {
    files.emplace_back();
    if (description.dataReference < media.dataReferences.size()) {
      files.back() = IndexOf(media.dataReferences[description.dataReference]);
    }
  }
  std::vector<FileRun> runs;
  for (const toolbox::SampleSlice& slice : media.samples.Slices()) {
    const auto add = [&](std::uint32_t row, std::optional<std::size_t> file) {
      AddRun(runs, slice.ShownAt(row), file);
    };
    const auto fileOf = [&](std::uint32_t index) { return files[(*slice.descriptions)[index]]; };
    const std::uint32_t located = std::min(slice.part.to, slice.rows->Located());
    if (slice.part.from < located) {
      const std::uint32_t count = slice.rows->chunkRuns.Descriptions();
      bool isOneFile = true;
      for (std::uint32_t i = 1; i < count; ++i) isOneFile &= fileOf(i) == fileOf(0);
      auto run = slice.rows->chunkRuns.From(slice.part.from);
      add(slice.part.from, fileOf(run->description));
      for (run.Next(); !isOneFile && !run.IsAtEnd() && run->sample < located; run.Next()) {
        if (run->end != run->sample) add(run->sample, fileOf(run->description));
      }
    }
    if (located < slice.part.to) add(std::max(located, slice.part.from), std::nullopt);
  }
  return runs;
}

std::size_t SourceFiles::IndexOf(const toolbox::DataReference& reference) {
  SourceFile file = FileOf(reference);
  const auto [found, isNew] = known_.try_emplace({file.path, file.name}, files_.size());
  if (isNew) {
    if (!names_.insert(file.name).second) {
      const boost::filesystem::path path(file.path);
      file.name = (path.parent_path().filename() / path.filename()).native();
    }
    files_.push_back(std::move(file));
  }
  return found->second;
}

SourceFile SourceFiles::FileOf(const toolbox::DataReference& reference) const {
  if (std::holds_alternative<toolbox::InMemory>(reference)) return {"data in the movie header", ""};
  SourceFile file;
  if (const auto* entry = std::get_if<toolbox::Unresolved>(&reference)) {
    file.path = StatedPlace(*entry, opened_.path);
    file.isMissing = true;
  } else if (const auto* other = std::get_if<toolbox::OtherFile>(&reference)) {
    file.path = other->path.native();
  } else {
    file.path = opened_.path.native();
  }
  const boost::filesystem::path path(file.path);
  file.name = path.filename().native();
  if (path.parent_path() == opened_.path.parent_path()) file.path = file.name;
  if (file.name.empty()) file.name = file.path.empty() ? "unknown file" : file.path;
  return file;
}

}  // namespace clipinfo
