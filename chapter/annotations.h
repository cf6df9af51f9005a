// Annotations: user-data texts of a movie, and the tags of MPEG-4 files converted to them.
#pragma once

#include <string>

#include "toolbox/toolbox.h"

namespace chapter {

// Converts the tags in the movie's 'meta' user data (an 'ilst' in it) to annotations that QuickTime
// knows. The tags stay. A malformed list is reported on standard error, and the tags before the
// fault are converted.
void ConvertMovieTags(toolbox::Movie movie);
// Converts the tags in the atoms of `bytes`. `length`, in bytes, is the size that the container
// claims; `bytes` may end earlier. With `insideItemList` the atoms are tags; otherwise they are
// searched for an item list.
void ConvertTagAtoms(toolbox::UserData data, toolbox::ByteSpan bytes, std::int64_t length,
                     bool insideItemList);
// Adds the UTF-8 text as item 1 of the type. User-data texts have the encoding of their language,
// so the text gets the first language whose encoding can represent all of it. If there is none, it
// gets the language whose encoding can represent the longest part from the start. If the encoding
// is not Mac Roman, also adds the text in Mac Roman. If no encoding can represent even the start,
// or the text is not valid UTF-8, its bytes are added unchanged.
void AddUserDataTextUtf8(toolbox::UserData data, toolbox::FourCC type, const std::string& text);

// The title in the movie's user data as UTF-8; empty if there is none.
std::string GetMovieFullName(toolbox::Movie movie);

}  // namespace chapter
