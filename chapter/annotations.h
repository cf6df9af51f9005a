// Annotations of a movie: user-data texts, and the tags of MPEG-4 files that become such.
#pragma once

#include <string>

#include "toolbox/toolbox.h"

namespace chapter {

// Puts the tags that the movie's 'meta' item lists beside it, as annotations that QuickTime knows.
// A list that is malformed is told on standard error; what stood before the fault is kept.
void ConvertMovieTags(toolbox::Movie movie);
// Walks the atoms of [0, length) of `bytes`, those of an item list or those around it. `bytes` may
// end earlier.
void ConvertTagAtoms(toolbox::UserData data, toolbox::ByteSpan bytes, std::int64_t length,
                     bool insideItemList);
// Adds the text in the first language whose encoding has all of it, or else most from its start on;
// with it one in Mac Roman, where that is another.
void AddUserDataTextUtf8(toolbox::UserData data, toolbox::FourCC type, const std::string& text);

// The title by which the movie calls itself, as UTF-8; empty when it has none.
std::string GetMovieFullName(toolbox::Movie movie);
// Whether there are user data other than the place of the movie's window.
bool HasAnnotations(toolbox::Movie movie);

}  // namespace chapter
