// Names for people: codecs, languages, kinds of files.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "toolbox/atoms/header_atoms.h"
#include "toolbox/bytes.h"

namespace clipinfo {

// The usual name of the codec of a sample entry, such as "H.264" or "PCM s16le". For an unknown one
// its four characters, and "unknown" without any. Encrypted samples have the name of their codec.
std::string CodecName(toolbox::ByteSpan entry, toolbox::FourCC mediaType);

// The language of a media header as a code of ISO 639-2: from the packed form, or for the number of
// a Macintosh language. "und" if it is not known.
std::string LanguageCode(std::uint16_t language);

// The kind of a movie file, such as "QuickTime". `type` is its 'ftyp'; old QuickTime files have
// none.
std::string KindOfFile(const std::optional<toolbox::FileType>& type);

// What a tag or a user data text of that type is called, such as "title"; null for an unknown type.
const char* TagName(toolbox::FourCC type);

}  // namespace clipinfo
