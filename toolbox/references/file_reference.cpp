#include "toolbox/references/file_reference.h"

#include <algorithm>
#include <array>
#include <boost/algorithm/string/predicate.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/nowide/utf/utf.hpp>
#include <charconv>
#include <iterator>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/references/sources.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;
namespace utf = boost::nowide::utf;
using Names = std::vector<std::string>;  // the components of a path, outermost first

constexpr FourCC kAlias{"alis"}, kUrl{"url "}, kHandle{"hndl"};
constexpr std::uint32_t kInThisFile = 1;

// The volume that all our paths are said to lie on; its root is "/".
constexpr std::string_view kVolume = "Macintosh HD";

// The fixed part of an alias record of version 2. POSIX files have no ids and dates to put there.
struct AliasHeader {
  static constexpr std::size_t kSize = 150;

  std::uint32_t application = 0;
  std::uint16_t size = 0;  // of the whole record
  std::uint16_t version = 2, kind = 0;
  std::array<std::uint8_t, 28> volume{};  // this and `name`: a length, the text, zeros
  std::uint32_t volumeCreated = 0;
  std::uint16_t fileSystem = 'H' << 8 | '+', diskType = 0;
  std::uint32_t folderId = 0;
  std::array<std::uint8_t, 64> name{};
  std::uint32_t fileId = 0, created = 0;
  FourCC creator{"TVOD"}, type{"MooV"};
  // Components of the movie's and of the target's path below their common folder; -1 unknown.
  std::int16_t levelsFrom = -1, levelsTo = -1;
  std::uint32_t volumeAttributes = 0;
  std::uint16_t volumeFileSystem = 0;
  std::array<std::uint8_t, 10> reserved{};

  static void Fields(auto& io, auto& header) {
    io("application", header.application);
    io("size", header.size);
    io("version", header.version);
    io("kind", header.kind);
    io("volume", header.volume);
    io("volumeCreated", header.volumeCreated);
    io("fileSystem", header.fileSystem);
    io("diskType", header.diskType);
    io("folderId", header.folderId);
    io("name", header.name);
    io("fileId", header.fileId);
    io("created", header.created);
    io("creator", header.creator);
    io("type", header.type);
    io("levelsFrom", header.levelsFrom);
    io("levelsTo", header.levelsTo);
    io("volumeAttributes", header.volumeAttributes);
    io("volumeFileSystem", header.volumeFileSystem);
    io("reserved", header.reserved);
  }
};

// Version 3 holds wider dates and no names or levels before its tagged values.
constexpr std::size_t kHeaderSizeVersion3 = 58;

enum Tag : std::uint16_t {
  kFolderName = 0,
  kColonPath = 2,  // "volume:folder:file"
  kName = 14,  // this and the next: UTF-16 after a count of units
  kVolumeName = 15,
  kPosixPath = 18,  // below the mount point, without a leading slash
  kMountPoint = 19,
  kEnd = 0xFFFF,
};

std::string_view Text(ByteSpan bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

ByteSpan AsBytes(std::string_view text) {
  return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

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

// A name as colon paths spell it: there ':' separates and '/' is an ordinary character, in POSIX
// paths it is the other way round.
std::string ColonName(std::string name) {
  std::ranges::replace(name, ':', '/');
  return name;
}
std::string PosixName(std::string name) {
  std::ranges::replace(name, '/', ':');
  return name;
}

// The code points of text in UTF-8 or UTF-16; U+FFFD for each unit that is part of none.
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
std::basic_string<Char> Encoded(const std::u32string& points) {
  std::basic_string<Char> text;
  for (const char32_t point : points)
    utf::utf_traits<Char>::encode(point, std::back_inserter(text));
  return text;
}

// A length and the ASCII characters of `name`, as many as fit; '?' for any other character. The
// whole name is left to kName.
template <std::size_t N>
std::array<std::uint8_t, N> ShortName(std::string_view name) {
  std::array<std::uint8_t, N> field{};
  for (const char32_t point : CodePoints(name)) {
    if (field[0] == N - 1) break;
    field[++field[0]] = static_cast<std::uint8_t>(point < 0x80 ? point : U'?');
  }
  return field;
}

Bytes UnicodeName(std::string_view name) {
  const std::u16string units = Encoded<char16_t>(CodePoints(name));
  Bytes bytes;
  AppendBigEndian(bytes, static_cast<std::uint16_t>(units.size()));
  for (const char16_t unit : units) AppendBigEndian(bytes, static_cast<std::uint16_t>(unit));
  return bytes;
}

std::string NameFromUnicode(ByteSpan bytes) {
  if (bytes.size() < 2) return {};
  const std::size_t count = FromBigEndian<std::uint16_t>(bytes.data());
  std::u16string units;
  for (std::size_t at = 2; at + 1 < bytes.size() && units.size() < count; at += 2) {
    units += static_cast<char16_t>(FromBigEndian<std::uint16_t>(&bytes[at]));
  }
  return Encoded<char>(CodePoints(std::u16string_view(units)));
}

void AppendTag(Bytes& record, Tag tag, ByteSpan value) {
  AppendBigEndian(record, static_cast<std::uint16_t>(tag));
  AppendBigEndian(record, static_cast<std::uint16_t>(value.size()));
  record.insert(record.end(), value.begin(), value.end());
  if (value.size() % 2 != 0) record.push_back(0);
}

// What a record says of its target.
struct Alias {
  int levelsFrom = -1, levelsTo = -1;
  std::string name;  // as it would stand in a POSIX folder
  Names colonPath;  // without the volume
  Names posixPath;  // below the mount point
  Names mountPoint;
};

// The values by their tags; they point into `bytes`. Throws Malformed when one is longer than that.
std::map<std::uint16_t, ByteSpan> TaggedValues(ByteSpan bytes) {
  std::map<std::uint16_t, ByteSpan> values;
  while (bytes.size() >= 4) {
    const auto tag = FromBigEndian<std::uint16_t>(bytes.data());
    const std::size_t length = FromBigEndian<std::uint16_t>(&bytes[2]);
    if (tag == kEnd) break;
    bytes = bytes.subspan(4);
    if (length > bytes.size()) throw Malformed("the alias record ends inside a tagged value");
    values.emplace(tag, bytes.first(length));
    bytes = bytes.subspan(std::min(length + length % 2, bytes.size()));
  }
  return values;
}

// Throws Malformed.
Alias ReadAlias(ByteSpan record) {
  if (record.size() < 8) throw Malformed("the alias record ends inside its header");
  const std::size_t size = FromBigEndian<std::uint16_t>(&record[4]);
  const auto version = FromBigEndian<std::uint16_t>(&record[6]);
  if (version != 2 && version != 3) throw Malformed("the alias record has an unknown version");
  record = record.first(std::min(size, record.size()));

  Alias alias;
  const std::size_t headerSize = version == 2 ? AliasHeader::kSize : kHeaderSizeVersion3;
  if (record.size() < headerSize) throw Malformed("the alias record ends inside its header");
  if (version == 2) {
    AliasHeader header;
    FieldReader reader(record);
    AliasHeader::Fields(reader, header);
    alias.levelsFrom = header.levelsFrom;
    alias.levelsTo = header.levelsTo;
    const std::string_view name = Text(header.name);
    alias.name = PosixName(std::string(name.substr(1, header.name[0])));
  }
  auto values = TaggedValues(record.subspan(headerSize));
  if (values.contains(kName)) alias.name = PosixName(NameFromUnicode(values[kName]));
  alias.colonPath = Split(Text(values[kColonPath]), ':');
  if (!alias.colonPath.empty()) alias.colonPath.erase(alias.colonPath.begin());
  std::ranges::transform(alias.colonPath, alias.colonPath.begin(), PosixName);
  alias.posixPath = Split(Text(values[kPosixPath]), '/');
  alias.mountPoint = Split(Text(values[kMountPoint]), '/');
  return alias;
}

// `path`, absolute and free of symbolic links as far as it exists; an empty path stays empty.
fs::path RealPath(const fs::path& path) {
  if (path.empty()) return {};
  boost::system::error_code error;
  const fs::path whole = path.is_absolute() ? path : fs::current_path(error) / path;
  const fs::path real = fs::weakly_canonical(whole, error);
  return error ? whole.lexically_normal() : real;
}

bool IsFile(const fs::path& path) {
  boost::system::error_code error;
  return fs::is_regular_file(path, error);
}

// `names` below `folder`; an empty path when there is no such folder or a name is none.
fs::path Below(fs::path folder, std::span<const std::string> names) {
  const auto isNoName = [](const std::string& name) {
    return name == ".." || name.find('\0') != std::string::npos;
  };
  if (folder.empty() || std::ranges::any_of(names, isNoName)) return {};
  for (const std::string& name : names) folder /= name;
  return folder;
}

// The way up from the movie's folder to the common one and down again; it survives a move of the
// common folder.
//
//   levelsFrom 2   /media | out / ref.mov       up one folder, for the movie is itself a level
//   levelsTo 2     /media | clips / a.mov       down two names
fs::path RelativeWay(const Alias& alias, fs::path folder) {
  const std::span<const std::string> names =
      alias.posixPath.empty() ? alias.colonPath : alias.posixPath;
  if (alias.levelsFrom < 1 || alias.levelsTo < 1) return {};
  const auto down = static_cast<std::size_t>(alias.levelsTo);
  if (down > names.size()) return {};
  for (int level = 1; level < alias.levelsFrom; ++level) folder = folder.parent_path();
  return Below(folder, names.last(down));
}

// The bytes after `%`-escapes are undone; a '%' that starts none stands for itself.
std::string PercentDecoded(std::string_view text) {
  std::string decoded;
  while (!text.empty()) {
    std::uint8_t byte = 0;
    const char* digits = text.data() + 1;
    if (text[0] == '%' && text.size() > 2 &&
        std::from_chars(digits, digits + 2, byte, 16).ptr == digits + 2) {
      decoded += static_cast<char>(byte);
      text.remove_prefix(3);
    } else {
      decoded += text[0];
      text.remove_prefix(1);
    }
  }
  return decoded;
}

// The bytes that a handle reference starts its memory block with: { 32-bit handle, file name after
// its length, atoms }, in the atom 'data'.
std::optional<Bytes> InitialData(ByteSpan handle) {
  if (handle.size() < 5) return {};
  const std::size_t atoms = std::size_t{5} + handle[4];
  for (handle = handle.subspan(std::min(atoms, handle.size())); handle.size() >= 8;) {
    const std::size_t size = FromBigEndian<std::uint32_t>(handle.data());
    if (size < 8 || size > handle.size()) return {};
    if (FourCC(FromBigEndian<std::uint32_t>(&handle[4])) == FourCC{"data"}) {
      return Bytes(handle.begin() + 8, handle.begin() + static_cast<std::ptrdiff_t>(size));
    }
    handle = handle.subspan(size);
  }
  return {};
}

std::optional<fs::path> OtherFilePath(const DataReferenceEntry& entry, const fs::path& referrer) {
  if (entry.kind == kAlias) return ResolveAlias(entry.data, referrer);
  if (entry.kind != kUrl) return {};
  const auto path = ResolveUrl(entry.data, referrer);
  return path && IsFile(*path) ? path : std::nullopt;
}

}  // namespace

Bytes AliasRecord(const fs::path& target, const fs::path& referrer) {
  const Names names = Split(target.native(), '/');
  const Names from = Split(referrer.native(), '/');
  if (names.empty()) throw Refused{bdNamErr};
  Names colonNames{std::string(kVolume)};
  std::ranges::transform(names, std::back_inserter(colonNames), ColonName);

  AliasHeader header;
  header.volume = ShortName<28>(kVolume);
  header.name = ShortName<64>(colonNames.back());
  if (!from.empty()) {
    const auto apart = std::mismatch(from.begin(), from.end() - 1, names.begin(), names.end() - 1);
    header.levelsFrom = static_cast<std::int16_t>(from.end() - apart.first);
    header.levelsTo = static_cast<std::int16_t>(names.end() - apart.second);
  }

  Bytes values;
  AppendTag(values, kFolderName, AsBytes(colonNames[colonNames.size() - 2]));
  AppendTag(values, kColonPath, AsBytes(Join(colonNames, ':')));
  AppendTag(values, kName, UnicodeName(colonNames.back()));
  AppendTag(values, kVolumeName, UnicodeName(kVolume));
  AppendTag(values, kPosixPath, AsBytes(Join(names, '/')));
  AppendTag(values, kMountPoint, AsBytes("/"));
  AppendTag(values, kEnd, {});

  const std::size_t size = AliasHeader::kSize + values.size();
  if (size > UINT16_MAX) throw Refused{bdNamErr};
  header.size = static_cast<std::uint16_t>(size);
  return Encoded([&](auto& io) {
    AliasHeader::Fields(io, header);
    io.Append(values);
  });
}

std::optional<fs::path> ResolveAlias(ByteSpan record, const fs::path& referrer) try {
  const Alias alias = ReadAlias(record);
  const fs::path folder = RealPath(referrer).parent_path();
  const fs::path ways[] = {
      RelativeWay(alias, folder),
      Below(Below("/", alias.mountPoint), alias.posixPath),
      Below("/", alias.colonPath),
      Below(folder, {&alias.name, 1}),
  };
  const auto* way = std::ranges::find_if(ways, IsFile);
  return way == std::end(ways) ? std::nullopt : std::optional(*way);
} catch (const Malformed&) {
  return {};
}

std::optional<fs::path> AbsoluteAliasPath(ByteSpan record) try {
  const Alias alias = ReadAlias(record);
  if (alias.posixPath.empty()) return {};
  fs::path path("/");
  for (const Names* names : {&alias.mountPoint, &alias.posixPath}) {
    for (const std::string& name : *names) path /= name;
  }
  return path;
} catch (const Malformed&) {
  return {};
}

std::optional<fs::path> ResolveUrl(ByteSpan url, const fs::path& referrer) {
  std::string_view text = Text(url);
  text = text.substr(0, text.find('\0'));
  const std::size_t mark = text.find_first_of(":/");
  const bool hasScheme = mark != std::string_view::npos && text[mark] == ':';
  if (hasScheme) {
    if (!boost::iequals(text.substr(0, mark), "file")) return {};
    text.remove_prefix(mark + 1);
  }
  if (text.starts_with("//")) {
    text.remove_prefix(2);
    const std::string_view host = text.substr(0, text.find('/'));
    if (!host.empty() && !boost::iequals(host, "localhost")) return {};
    text.remove_prefix(host.size());
  }
  const std::string path = PercentDecoded(text);
  if (path.empty() || path.find('\0') != std::string::npos) return {};
  if (path[0] == '/') return fs::path(path).lexically_normal();
  if (hasScheme || referrer.empty()) return {};
  return (RealPath(referrer).parent_path() / path).lexically_normal();
}

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
  return Unresolved{entry.kind, entry.versionAndFlags, entry.data};
}

DataReferenceEntry WriteDataReference(const DataReference& reference, const fs::path& referrer) {
  if (const auto* other = std::get_if<OtherFile>(&reference)) {
    return {kAlias, 0, AliasRecord(RealPath(other->path), RealPath(referrer))};
  }
  if (const auto* unresolved = std::get_if<Unresolved>(&reference)) {
    return {unresolved->kind, unresolved->versionAndFlags, unresolved->record};
  }
  if (std::holds_alternative<InMemory>(reference)) throw Refused{invalidDataRef};
  return {kAlias, kInThisFile, {}};
}

}  // namespace toolbox
