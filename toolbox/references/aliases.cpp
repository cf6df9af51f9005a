#include "toolbox/references/aliases.h"

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "toolbox/atoms/alias_record.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/references/real_path.h"
#include "toolbox/refused.h"
#include "toolbox/text/unicode.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
using Names = std::vector<std::string>;  // the components of a path, outermost first

// The names in a POSIX path, without empty ones.
Names Split(std::string_view path) {
  Names names;
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find('/'));
    if (!name.empty()) names.emplace_back(name);
    path.remove_prefix(std::min(name.size() + 1, path.size()));
  }
  return names;
}

// Converts a colon path to a POSIX path or back. In colon paths ':' separates names and '/' is an
// ordinary character. In POSIX paths it is the reverse.
std::string WithOtherSeparators(std::string path) {
  for (char& character : path) {
    if (character == ':' || character == '/') character = character == ':' ? '/' : ':';
  }
  return path;
}

// The path `folder`/`names`. Empty if `folder` is empty or a name is ".." or has a zero byte.
fs::path Below(fs::path folder, std::span<const std::string> names) {
  const auto isNoName = [](const std::string& name) {
    return name == ".." || name.find('\0') != std::string::npos;
  };
  if (folder.empty() || std::ranges::any_of(names, isNoName)) return {};
  for (const std::string& name : names) folder /= name;
  return folder;
}

// The relative path: from the folder of the movie up to the common folder, then down to the file.
// It is still right after the common folder has been moved. Empty if the record has none. `names`
// is the absolute path of the file. Only the last names are used.
//
//   levelsFrom 2   /media | out / ref.mov       up one folder: the movie itself is a level
//   levelsTo 2     /media | clips / a.mov       down two names
fs::path RelativeWay(const Alias& alias, std::span<const std::string> names, fs::path folder) {
  if (alias.levelsFrom < 1 || alias.levelsTo < 1) return {};
  const auto down = static_cast<std::size_t>(alias.levelsTo);
  if (down > names.size()) return {};
  for (int level = 1; level < alias.levelsFrom; ++level) folder = folder.parent_path();
  return Below(folder, names.last(down));
}

}  // namespace

Bytes AliasRecord(const fs::path& target, const fs::path& referrer) {
  const Names names = Split(target.native());
  const Names from = Split(referrer.native());
  if (names.empty()) throw Refused{bdNamErr};
  // The volume in all records that are written here. Its root is "/".
  const std::string volume = "Macintosh HD";
  Alias alias;
  if (!from.empty()) {
    // Only folders can be common, so the names of the files are not compared.
    const auto apart = std::mismatch(from.begin(), from.end() - 1, names.begin(), names.end() - 1);
    alias.levelsFrom = static_cast<std::int16_t>(from.end() - apart.first);
    alias.levelsTo = static_cast<std::int16_t>(names.end() - apart.second);
  }
  alias.name = Repaired(Utf16(WithOtherSeparators(names.back())));
  alias.volume = Utf16(volume);
  alias.folder = names.size() == 1 ? volume : WithOtherSeparators(names[names.size() - 2]);
  alias.posixPath = boost::algorithm::join(names, "/");
  alias.colonPath = volume + ":" + WithOtherSeparators(alias.posixPath);
  alias.mountPoint = "/";
  auto record = EncodeAlias(alias);
  if (!record) throw Refused{bdNamErr};
  return *std::move(record);
}

std::optional<fs::path> ResolveAlias(ByteSpan record, const fs::path& referrer) try {
  const Alias alias = ReadAlias(record);
  const Names posixPath = Split(alias.posixPath);
  Names colonPath = Split(WithOtherSeparators(alias.colonPath));
  // The first name is the volume.
  if (!colonPath.empty()) colonPath.erase(colonPath.begin());
  std::string name = alias.name ? Utf8(Repaired(*alias.name)) : alias.shortName;
  std::ranges::replace(name, '/', ':');
  const fs::path folder = RealPath(referrer).parent_path();
  const fs::path ways[] = {
      RelativeWay(alias, posixPath.empty() ? colonPath : posixPath, folder),
      Below("/", Split(alias.mountPoint + '/' + alias.posixPath)),
      Below("/", colonPath),
      Below(folder, {&name, 1}),
  };
  const auto* way = std::ranges::find_if(ways, IsFile);
  return way == std::end(ways) ? std::nullopt : std::optional(*way);
} catch (const Malformed&) {
  return {};
}

std::optional<fs::path> AbsoluteAliasPath(ByteSpan record) try {
  const Alias alias = ReadAlias(record);
  if (Split(alias.posixPath).empty()) return {};
  fs::path path("/");
  for (const std::string& name : Split(alias.mountPoint + '/' + alias.posixPath)) path /= name;
  return path;
} catch (const Malformed&) {
  return {};
}

}  // namespace toolbox
