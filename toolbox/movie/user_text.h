// Texts in user data: items that say one thing in several languages.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

struct UserDataRecord;

// One language of an item whose type begins with the copyright sign: its size, its language, each
// in 16 bits, and its text.
struct TextEntry {
  std::uint16_t language = 0;
  Bytes text;
  friend bool operator==(const TextEntry&, const TextEntry&) = default;
};

// Nothing when the payload is anything but entries, one behind the other.
std::optional<std::vector<TextEntry>> TextEntries(ByteSpan payload);

// The text of an item in that language. Where there is none for language 0 it is the one without a
// language, or else the first with an ISO code, put into Mac Roman with '?' for what does not fit.
// Throws Refused: userDataItemNotFound.
Bytes TextOf(const UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language);

// Replaces the text of an item in that language, or adds one behind the others; makes the first
// item. Of a text over 65535 bytes the end is lost. Throws Refused: paramErr (a type that holds no
// texts, or a payload that is something else), userDataItemNotFound.
void SetText(UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language,
             ByteSpan text);

}  // namespace toolbox
