#include "toolbox/movie/user_text.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "toolbox/atoms/text_atoms.h"
#include "toolbox/movie/user_data.h"
#include "toolbox/refused.h"
#include "toolbox/text/language.h"
#include "toolbox/text/unicode.h"

namespace toolbox {
namespace {

constexpr std::size_t kLongestText = 65535;
constexpr std::uint32_t kCopyrightSign = 0xA9;

// A text in UTF-8 or, after a byte-order mark, in UTF-16.
Bytes InMacRoman(ByteSpan text) {
  const bool hasMark =
      text.size() >= 2 && std::min(text[0], text[1]) == 0xFE && std::max(text[0], text[1]) == 0xFF;
  const auto utf8 = hasMark ? DecodeText(text, kUtf16, true) : std::nullopt;
  return EncodeText(Utf16(utf8 ? std::string_view(*utf8)
                               : std::string_view(reinterpret_cast<const char*>(text.data()),
                                                  text.size())),
                    kMacRoman, '?')
      .bytes;
}

}  // namespace

Bytes TextOf(const UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language) {
  const auto entries = ReadTextEntries(data.Item(type, number));
  if (!entries) throw Refused{userDataItemNotFound};
  for (const std::uint16_t wanted : {language, kUnspecifiedLanguage}) {
    const auto entry = std::ranges::find(*entries, wanted, &TextEntry::language);
    if (entry != entries->end()) return entry->text;
    if (language != 0) throw Refused{userDataItemNotFound};
  }
  const auto entry = std::ranges::find_if(
      *entries, [](std::uint16_t code) { return code >= kFirstIsoLanguage; }, &TextEntry::language);
  if (entry == entries->end()) throw Refused{userDataItemNotFound};
  return InMacRoman(entry->text);
}

void SetText(UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language,
             ByteSpan text) {
  if (type.value >> 24 != kCopyrightSign) throw Refused{paramErr};
  const bool isNew = number == 1 && data.Count(type) == 0;
  auto entries = isNew ? std::vector<TextEntry>() : ReadTextEntries(data.Item(type, number));
  if (!entries) throw Refused{paramErr};
  auto entry = std::ranges::find(*entries, language, &TextEntry::language);
  if (entry == entries->end()) entry = entries->insert(entry, {language, {}});
  const ByteSpan kept = text.first(std::min(text.size(), kLongestText));
  entry->text.assign(kept.begin(), kept.end());
  data.Set(type, number, EncodeTextEntries(*entries));
}

}  // namespace toolbox
