// Texts in user data: items that say one thing in several languages.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

struct UserDataRecord;

// The text of an item in that language. When there is none for language 0, it is the one
// without a language, or else the first with an ISO code, converted to Mac Roman with '?' for what
// does not convert.
// Throws Refused: userDataItemNotFound.
Bytes TextOf(const UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language);

// Replaces the text of an item in that language, or adds one after the others; makes the first
// item. Cuts a text at 65,535 bytes. Throws Refused: paramErr (a type that holds no
// texts, or a payload that is something else), userDataItemNotFound.
void SetText(UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language,
             ByteSpan text);

}  // namespace toolbox
