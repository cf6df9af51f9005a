// Texts in user data: one item has the same text in several languages.
#pragma once

#include <cstddef>
#include <cstdint>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/bytes.h"

namespace toolbox {

struct UserDataRecord;

// The text of an item in that language, in the encoding of the language. If language 0 has no text,
// this is the text without a language or else the first with an ISO code. Only the latter is
// converted, to Mac Roman, with '?' for characters that Mac Roman does not have.
// Throws Refused: userDataItemNotFound.
Bytes TextOf(const UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language);

// Replaces the text of an item in that language, or adds one after the others. If the type has no
// item, number 1 creates the first one. Cuts a text at 65,535 bytes. Throws Refused: paramErr (a
// type that holds no texts, or an item that is no list of texts), userDataItemNotFound.
void SetText(UserDataRecord& data, FourCC type, std::size_t number, std::uint16_t language,
             ByteSpan text);

}  // namespace toolbox
