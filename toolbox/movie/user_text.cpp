#include "toolbox/movie/user_text.h"

#include <algorithm>
#include <string_view>

#include "toolbox/movie/user_data.h"
#include "toolbox/refused.h"
#include "toolbox/text/language.h"
#include "toolbox/text/unicode.h"

namespace toolbox {
namespace {

constexpr std::size_t kHeaderSize = 4, kLongestText = 65535;
constexpr std::uint32_t kCopyrightSign = 0xA9;

void Append16(Bytes& bytes, std::size_t number) {
  bytes.push_back(static_cast<std::uint8_t>(number >> 8));
  bytes.push_back(static_cast<std::uint8_t>(number));
}

Bytes Payload(const std::vector<TextEntry>& entries) {
  Bytes payload;
  for (const TextEntry& entry : entries) {
    Append16(payload, entry.text.size());
    Append16(payload, entry.language);
    payload.insert(payload.end(), entry.text.begin(), entry.text.end());
  }
  return payload;
}

bool HasIsoCode(const TextEntry& entry) {
  return entry.language >= kFirstIsoLanguage && entry.language != kUnspecifiedLanguage;
}

// Of a text that is UTF-8 or, behind a byte-order mark, UTF-16.
Bytes InMacRoman(ByteSpan text) {
  const bool hasMark =
      text.size() >= 2 && std::min(text[0], text[1]) == 0xFE && std::max(text[0], text[1]) == 0xFF;
  const auto utf8 = hasMark ? Decoded(text, kUtf16, true) : std::nullopt;
  return Encoded(Utf16(utf8 ? std::string_view(*utf8)
                            : std::string_view(reinterpret_cast<const char*>(text.data()),
                                               text.size())),
                 kMacRoman, '?')
      .bytes;
}

}  // namespace

std::optional<std::vector<TextEntry>> TextEntries(ByteSpan payload) {
  std::vector<TextEntry> entries;
  while (!payload.empty()) {
    if (payload.size() < kHeaderSize) return std::nullopt;
    const auto size = static_cast<std::size_t>(payload[0] << 8 | payload[1]);
    const auto language = static_cast<std::uint16_t>(payload[2] << 8 | payload[3]);
    payload = payload.subspan(kHeaderSize);
    if (size > payload.size()) return std::nullopt;
    const ByteSpan text = payload.first(size);
    entries.push_back({language, Bytes(text.begin(), text.end())});
    payload = payload.subspan(size);
  }
  return entries;
}

Bytes TextOf(const UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language) {
  const auto entries = TextEntries(data.Item(type, number));
  if (!entries) throw Refused{userDataItemNotFound};
  for (const std::uint16_t wanted : {language, kUnspecifiedLanguage}) {
    const auto entry = std::ranges::find(*entries, wanted, &TextEntry::language);
    if (entry != entries->end()) return entry->text;
    if (language != 0) throw Refused{userDataItemNotFound};
  }
  const auto entry = std::ranges::find_if(*entries, HasIsoCode);
  if (entry == entries->end()) throw Refused{userDataItemNotFound};
  return InMacRoman(entry->text);
}

void SetText(UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language,
             ByteSpan text) {
  if (type.value >> 24 != kCopyrightSign) throw Refused{paramErr};
  const bool isNew = number == 1 && data.Count(type) == 0;
  auto entries = isNew ? std::vector<TextEntry>() : TextEntries(data.Item(type, number));
  if (!entries) throw Refused{paramErr};
  auto entry = std::ranges::find(*entries, language, &TextEntry::language);
  if (entry == entries->end()) entry = entries->insert(entry, {language, {}});
  const ByteSpan kept = text.first(std::min(text.size(), kLongestText));
  entry->text.assign(kept.begin(), kept.end());
  data.Set(type, number, Payload(*entries));
}

}  // namespace toolbox
