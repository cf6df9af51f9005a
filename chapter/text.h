// Conversion of text between encodings.
#pragma once

#include <string>

#include "toolbox/toolbox.h"

namespace chapter {

// Converts the text to another encoding. The result ends at the first zero character. Returns an
// empty string if `to` cannot represent the text, or if the text is not valid in `from`. In the
// second case it also prints a message on standard error.
std::string ConvertTextEncoding(const std::string& text, toolbox::CFStringEncoding from,
                                toolbox::CFStringEncoding to);
// The text of the string in `encoding`, up to its first zero character. Empty for null, or if the
// encoding cannot represent the string. Does not release the string.
std::string StringFromCFString(toolbox::CFStringRef string, toolbox::CFStringEncoding encoding);

}  // namespace chapter
