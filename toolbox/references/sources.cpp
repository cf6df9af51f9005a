#include "toolbox/references/sources.h"

#include <variant>

#include "toolbox/disk/descriptor.h"
#include "toolbox/refused.h"

namespace toolbox {

std::optional<FileIdentity> IdentityOf(const boost::filesystem::path& path) {
  const std::optional<struct stat> status = StatusOf(path);
  if (!status) return std::nullopt;
  return FileIdentity{.device = status->st_dev, .inode = status->st_ino};
}

OtherFile FileAt(const boost::filesystem::path& path) { return {path, IdentityOf(path)}; }

std::unique_ptr<ByteSource> OpenSource(const DataReference& reference,
                                       const std::optional<OtherFile>& ownFile) {
  if (const auto* memory = std::get_if<InMemory>(&reference)) {
    return std::make_unique<MemorySource>(*memory->data);
  }
  const auto* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<ThisFile>(reference) && ownFile) file = &*ownFile;
  if (file == nullptr) throw Refused{couldNotResolveDataRef};
  return std::make_unique<FileSource>(file->path);
}

}  // namespace toolbox
