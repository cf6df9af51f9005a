// Bytes of text in the numbered encodings of the toolbox.
#pragma once

#include <string>

#include "toolbox/toolbox.h"

namespace chapter {

// The text in another encoding. Bytes that are not valid in `from` are told on standard error;
// they, and a text that does not fit into `to`, come out empty. A zero ends the text.
std::string ConvertTextEncoding(const std::string& text, toolbox::CFStringEncoding from,
                                toolbox::CFStringEncoding to);
// The bytes of the string up to its first zero; none when it is null or does not fit.
std::string StringFromCFString(toolbox::CFStringRef string, toolbox::CFStringEncoding encoding);

}  // namespace chapter
