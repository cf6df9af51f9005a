#include "toolbox/atoms/alias_record.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

// The fixed fields of a record of version 2, 150 bytes. The ids, dates and attributes of volume and
// file stay 0, because only the file systems of the Macintosh have them.
struct AliasHeader {
  std::uint32_t application = 0;
  std::uint16_t size = 0;  // of the whole record
  std::uint16_t version = 2, kind = 0;
  std::array<std::uint8_t, 28> volume{};  // this and `name`: a length, the text, zeros
  std::uint32_t volumeCreated = 0;
  std::array<std::uint8_t, 2> fileSystem{'H', '+'};
  std::array<std::uint8_t, 6> diskTypeAndFolderId{};
  std::array<std::uint8_t, 64> name{};
  std::array<std::uint8_t, 8> fileIdAndDate{};
  FourCC creator{"TVOD"}, type{"MooV"};  // those of movie files
  std::int16_t levelsFrom = -1, levelsTo = -1;
  std::array<std::uint8_t, 16> volumeAttributes{};  // with reserved bytes

  static void Fields(auto& io, auto& header) {
    io("application", header.application);
    io("size", header.size);
    io("version", header.version);
    io("kind", header.kind);
    io("volume", header.volume);
    io("volumeCreated", header.volumeCreated);
    io("fileSystem", header.fileSystem);
    io("diskTypeAndFolderId", header.diskTypeAndFolderId);
    io("name", header.name);
    io("fileIdAndDate", header.fileIdAndDate);
    io("creator", header.creator);
    io("type", header.type);
    io("levelsFrom", header.levelsFrom);
    io("levelsTo", header.levelsTo);
    io("volumeAttributes", header.volumeAttributes);
  }
};

// Version 3 has wider dates, and its fixed fields have no names and no levels.
constexpr std::size_t kHeaderSizeVersion3 = 58;

// The kinds of values after the fixed fields. Each value has a tag and a length of 16 bits each,
// and a zero byte after it if its length is odd.
enum Tag : std::uint16_t {
  kFolderName = 0,
  kColonPath = 2,
  kName = 14,  // this and the next: a 16-bit count of units, then UTF-16
  kVolumeName = 15,
  kPosixPath = 18,
  kMountPoint = 19,
  kEnd = 0xFFFF,
};

std::string Text(ByteSpan bytes) { return {bytes.begin(), bytes.end()}; }

// A fixed field with a length byte and as many characters of `name` as fit. A character outside
// ASCII becomes one '?'.
template <std::size_t N>
std::array<std::uint8_t, N> ShortName(std::u16string_view name) {
  const auto isSecondOfPair = [](char16_t unit) { return unit >= 0xDC00 && unit < 0xE000; };
  std::array<std::uint8_t, N> field{};
  for (const char16_t unit : name) {
    if (isSecondOfPair(unit)) continue;
    if (field[0] == N - 1) break;
    field[++field[0]] = static_cast<std::uint8_t>(unit < 0x80 ? unit : u'?');
  }
  return field;
}

// A 16-bit count and the UTF-16 units of `name`.
Bytes UnicodeName(std::u16string_view name) {
  Bytes bytes;
  AppendBigEndian(bytes, static_cast<std::uint16_t>(name.size()));
  for (const char16_t unit : name) AppendBigEndian(bytes, static_cast<std::uint16_t>(unit));
  return bytes;
}

// The opposite of UnicodeName. Fewer units than the count are accepted; no bytes are an empty name.
std::u16string NameFromUnicode(ByteSpan bytes) {
  std::u16string units;
  if (bytes.size() < 2) return units;
  const std::size_t count = FromBigEndian<std::uint16_t>(bytes.data());
  for (std::size_t at = 2; at + 1 < bytes.size() && units.size() < count; at += 2) {
    units += static_cast<char16_t>(FromBigEndian<std::uint16_t>(&bytes[at]));
  }
  return units;
}

template <class Value>
void AppendTag(Bytes& record, Tag tag, const Value& value) {
  AppendBigEndian(record, static_cast<std::uint16_t>(tag));
  AppendBigEndian(record, static_cast<std::uint16_t>(value.size()));
  record.insert(record.end(), value.begin(), value.end());
  if (value.size() % 2 != 0) record.push_back(0);
}

// The values by their tags, as views into `bytes`. The first value with a tag wins. Throws
// Malformed if a value is longer than the rest of `bytes`.
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

}  // namespace

Alias ReadAlias(ByteSpan record) {
  if (record.size() < 8) throw Malformed("the alias record ends inside its header");
  const std::size_t size = FromBigEndian<std::uint16_t>(&record[4]);
  const auto version = FromBigEndian<std::uint16_t>(&record[6]);
  if (version != 2 && version != 3) throw Malformed("the alias record has an unknown version");
  // The bytes may be padded after the record, so the size in the record is the limit.
  record = record.first(std::min(size, record.size()));
  const std::size_t headerSize = version == 2 ? Alias::kShortestSize : kHeaderSizeVersion3;
  if (record.size() < headerSize) throw Malformed("the alias record ends inside its header");

  Alias alias;
  if (version == 2) {
    AliasHeader header;
    FieldReader reader(record);
    AliasHeader::Fields(reader, header);
    alias.levelsFrom = header.levelsFrom;
    alias.levelsTo = header.levelsTo;
    alias.shortName = Text(header.name).substr(1, header.name[0]);
  }
  auto values = TaggedValues(record.subspan(headerSize));
  if (values.contains(kName)) alias.name = NameFromUnicode(values[kName]);
  alias.volume = NameFromUnicode(values[kVolumeName]);
  alias.folder = Text(values[kFolderName]);
  alias.colonPath = Text(values[kColonPath]);
  alias.posixPath = Text(values[kPosixPath]);
  alias.mountPoint = Text(values[kMountPoint]);
  return alias;
}

std::optional<Bytes> EncodeAlias(const Alias& alias) {
  const std::u16string name = alias.name.value_or(std::u16string());
  Bytes values;
  AppendTag(values, kFolderName, alias.folder);
  AppendTag(values, kColonPath, alias.colonPath);
  AppendTag(values, kName, UnicodeName(name));
  AppendTag(values, kVolumeName, UnicodeName(alias.volume));
  AppendTag(values, kPosixPath, alias.posixPath);
  AppendTag(values, kMountPoint, alias.mountPoint);
  AppendTag(values, kEnd, std::string());

  const std::size_t size = Alias::kShortestSize + values.size();
  if (size > UINT16_MAX) return std::nullopt;
  AliasHeader header;
  header.size = static_cast<std::uint16_t>(size);
  header.volume = ShortName<28>(alias.volume);
  header.name = ShortName<64>(name);
  header.levelsFrom = alias.levelsFrom;
  header.levelsTo = alias.levelsTo;
  return Encoded([&](auto& io) {
    AliasHeader::Fields(io, header);
    io.Append(values);
  });
}

}  // namespace toolbox
