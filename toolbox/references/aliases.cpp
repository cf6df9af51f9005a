#include "toolbox/references/aliases.h"

#include <algorithm>
#include <boost/nowide/utf/utf.hpp>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "toolbox/atoms/alias_record.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/references/real_path.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
namespace utf = boost::nowide::utf;
using Names = std::vector<std::string>;  // the components of a path, outermost first

// The volume name in all records that we write. Its root is "/".
constexpr std::string_view kVolume = "Macintosh HD";

// The names in `path` between separators, without empty ones.
Names Split(std::string_view path, char separator) {
  Names names;
  while (!path.empty()) {
    const std::string_view name = path.substr(0, path.find(separator));
    if (!name.empty()) names.emplace_back(name);
    path.remove_prefix(std::min(name.size() + 1, path.size()));
  }
  return names;
}

std::string Join(const Names& names, char separator) {
  std::string path;
  for (const std::string& name : names) (path.empty() ? path : path += separator) += name;
  return path;
}

// Converts a name between colon paths and POSIX paths. In colon paths ':' separates names and '/'
// is an ordinary character. In POSIX paths it is the other way round.
std::string ColonName(std::string name) {
  std::ranges::replace(name, ':', '/');
  return name;
}
std::string PosixName(std::string name) {
  std::ranges::replace(name, '/', ':');
  return name;
}

// The code points of text in UTF-8 or UTF-16. Each unit that is not valid becomes U+FFFD.
template <class Char>
std::u32string CodePoints(std::basic_string_view<Char> text) {
  std::u32string points;
  for (const Char *at = text.data(), *end = at + text.size(); at != end;) {
    const Char* next = at;
    utf::code_point point = utf::utf_traits<Char>::decode(next, end);
    if (!utf::is_valid_codepoint(point)) {
      point = 0xFFFD;
      next = at + 1;
    }
    points += static_cast<char32_t>(point);
    at = next;
  }
  return points;
}

template <class Char>
std::basic_string<Char> FromCodePoints(const std::u32string& points) {
  std::basic_string<Char> text;
  for (const char32_t point : points)
    utf::utf_traits<Char>::encode(point, std::back_inserter(text));
  return text;
}

std::u16string Utf16Name(std::string_view name) {
  return FromCodePoints<char16_t>(CodePoints(name));
}

// The paths in a record, with names as in POSIX paths.
struct Target {
  // Folders up and names down on the relative path, see RelativeWay; -1 if unknown.
  int levelsFrom = -1, levelsTo = -1;
  std::string name;
  Names colonPath;  // without the volume
  Names posixPath;  // below the mount point
  Names mountPoint;
};

// Decodes a record. Throws Malformed.
Target ReadTarget(ByteSpan record) {
  const Alias alias = ReadAlias(record);
  Target target;
  target.levelsFrom = alias.levelsFrom;
  target.levelsTo = alias.levelsTo;
  target.name =
      PosixName(alias.name ? FromCodePoints<char>(CodePoints(std::u16string_view(*alias.name)))
                           : alias.shortName);
  target.colonPath = Split(alias.colonPath, ':');
  // The first name is the volume.
  if (!target.colonPath.empty()) target.colonPath.erase(target.colonPath.begin());
  std::ranges::transform(target.colonPath, target.colonPath.begin(), PosixName);
  target.posixPath = Split(alias.posixPath, '/');
  target.mountPoint = Split(alias.mountPoint, '/');
  return target;
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
// It is still right after the common folder has been moved.
//
//   levelsFrom 2   /media | out / ref.mov       up one folder: the movie itself is a level
//   levelsTo 2     /media | clips / a.mov       down two names
fs::path RelativeWay(const Target& target, fs::path folder) {
  const std::span<const std::string> names =
      target.posixPath.empty() ? target.colonPath : target.posixPath;
  if (target.levelsFrom < 1 || target.levelsTo < 1) return {};
  const auto down = static_cast<std::size_t>(target.levelsTo);
  if (down > names.size()) return {};
  for (int level = 1; level < target.levelsFrom; ++level) folder = folder.parent_path();
  return Below(folder, names.last(down));
}

}  // namespace

Bytes AliasRecord(const fs::path& target, const fs::path& referrer) {
  const Names names = Split(target.native(), '/');
  const Names from = Split(referrer.native(), '/');
  if (names.empty()) throw Refused{bdNamErr};
  Names colonNames{std::string(kVolume)};
  std::ranges::transform(names, std::back_inserter(colonNames), ColonName);

  Alias alias;
  if (!from.empty()) {
    // Only folders can be common, so the names of the files are not compared.
    const auto apart = std::mismatch(from.begin(), from.end() - 1, names.begin(), names.end() - 1);
    alias.levelsFrom = static_cast<std::int16_t>(from.end() - apart.first);
    alias.levelsTo = static_cast<std::int16_t>(names.end() - apart.second);
  }
  alias.name = Utf16Name(colonNames.back());
  alias.volume = Utf16Name(kVolume);
  alias.folder = colonNames[colonNames.size() - 2];
  alias.colonPath = Join(colonNames, ':');
  alias.posixPath = Join(names, '/');
  alias.mountPoint = "/";
  auto record = EncodeAlias(alias);
  if (!record) throw Refused{bdNamErr};
  return *std::move(record);
}

std::optional<fs::path> ResolveAlias(ByteSpan record, const fs::path& referrer) try {
  const Target target = ReadTarget(record);
  const fs::path folder = RealPath(referrer).parent_path();
  const fs::path ways[] = {
      RelativeWay(target, folder),
      Below(Below("/", target.mountPoint), target.posixPath),
      Below("/", target.colonPath),
      Below(folder, {&target.name, 1}),
  };
  const auto* way = std::ranges::find_if(ways, IsFile);
  return way == std::end(ways) ? std::nullopt : std::optional(*way);
} catch (const Malformed&) {
  return {};
}

std::optional<fs::path> AbsoluteAliasPath(ByteSpan record) try {
  const Target target = ReadTarget(record);
  if (target.posixPath.empty()) return {};
  fs::path path("/");
  for (const Names* names : {&target.mountPoint, &target.posixPath}) {
    for (const std::string& name : *names) path /= name;
  }
  return path;
} catch (const Malformed&) {
  return {};
}

}  // namespace toolbox
