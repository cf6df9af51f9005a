#include "toolbox/references/sources.h"

#include <variant>

#include "toolbox/disk/descriptor.h"
#include "toolbox/refused.h"

namespace toolbox {

OtherFile FileAt(const boost::filesystem::path& path) { return {path, StateOf(path)}; }

std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile) {
  if (const auto* memory = std::get_if<InMemory>(&reference)) {
    return std::make_unique<MemorySource>(*memory->data);
  }
  const auto* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<ThisFile>(reference) && ownFile) file = &*ownFile;
  if (file == nullptr) throw Refused{couldNotResolveDataRef, "its media cannot be found"};
  auto source = std::make_unique<FileSource>(file->path);
  file->CheckUnchanged(source->State());
  return source;
}

}  // namespace toolbox
