#include "toolbox/references/data_references.h"

#include <memory>
#include <optional>
#include <utility>
#include <variant>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/references/aliases.h"
#include "toolbox/references/real_path.h"
#include "toolbox/references/sources.h"
#include "toolbox/references/urls.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

constexpr FourCC kAlias{"alis"}, kUrl{"url "}, kHandle{"hndl"};
constexpr std::uint32_t kInThisFile = 1;  // flag: the media data is in the same file

// The existing file that an entry refers to. Nothing if there is none, or for another kind of
// entry.
std::optional<fs::path> OtherFilePath(const DataReferenceEntry& entry, const fs::path& referrer) {
  if (entry.kind == kAlias) return ResolveAlias(entry.data, referrer);
  if (entry.kind != kUrl) return {};
  const auto path = ResolveUrl(entry.data, referrer);
  return path && IsFile(*path) ? path : std::nullopt;
}

}  // namespace

DataReference ReadDataReference(const DataReferenceEntry& entry, const fs::path& referrer,
                                bool resolve) {
  if ((entry.versionAndFlags & kInThisFile) != 0) return ThisFile{};
  if (entry.kind == kHandle) {
    if (auto data = InitialData(entry.data)) {
      return InMemory{std::make_shared<Bytes>(std::move(*data))};
    }
  } else if (resolve) {
    if (auto path = OtherFilePath(entry, referrer)) return FileAt(*path);
  }
  return entry;
}

DataReferenceEntry WriteDataReference(const DataReference& reference, const fs::path& referrer,
                                      bool isIso) {
  if (const auto* other = std::get_if<OtherFile>(&reference)) {
    const fs::path to = RealPath(other->path), from = RealPath(referrer);
    if (isIso) return {kUrl, 0, FileUrl(to, from)};
    return {kAlias, 0, AliasRecord(to, from)};
  }
  if (const auto* unresolved = std::get_if<Unresolved>(&reference)) return *unresolved;
  if (std::holds_alternative<InMemory>(reference)) throw Refused{invalidDataRef};
  return {isIso ? kUrl : kAlias, kInThisFile, {}};
}

}  // namespace toolbox
