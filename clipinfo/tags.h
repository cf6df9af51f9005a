// Tags and user data as text.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/user_data.h"

namespace clipinfo {

// A tag: a text of user data, or an item of a 'meta'. All texts are UTF-8.
struct TagFacts {
  std::string type;  // the four characters, or the whole key of a key with a name
  std::string name;  // for people, such as "title"; else the type
  std::optional<std::string> text;  // nothing for pictures and for other binary values
  std::string language;  // ISO 639-2; empty if the tag has none
  toolbox::Bytes bytes;  // of a value without a text
  const char* media = nullptr;  // the media type of a picture, such as "image/jpeg"; else null
};

// The tags in user data and in the 'meta' atoms among `siblings`, in file order.
std::vector<TagFacts> TagsIn(const toolbox::UserDataRecord& data,
                             const toolbox::Siblings& siblings);

// The texts of one item of user data; empty if it holds none.
std::vector<TagFacts> TextsOf(const toolbox::UserDataItem& item);

// Text in UTF-8: `bytes` themselves or, if they are no UTF-8, read as Mac Roman.
std::string TextFrom(toolbox::ByteSpan bytes);
// The four characters of a type, with the copyright sign as such.
std::string TypeText(toolbox::FourCC type);

}  // namespace clipinfo
