// Converts URLs of files (the data of 'url ' entries, ISO/IEC 14496-12 8.7.2) to paths and back.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// The path of a URL, absolute and without "." and "..", whether or not the file exists. The URL is
// "file:" on this host, or relative to the folder where the movie file `referrer` really is. It
// ends at the first zero byte. Percent escapes are decoded. '?' and '#' are parts of the name,
// because writers often leave them unescaped. Nothing for another scheme or host, for a URL without
// a path, and for a relative URL if `referrer` is empty.
std::optional<boost::filesystem::path> ResolveUrl(ByteSpan url,
                                                  const boost::filesystem::path& referrer);

// The URL of the file at `path` for a movie file at `referrer`, with a zero byte at the end. Both
// paths are real. If the file is in the folder of the movie or below, the URL is relative, so that
// the folder can be moved. Otherwise it is a "file:" URL.
Bytes FileUrl(const boost::filesystem::path& path, const boost::filesystem::path& referrer);

}  // namespace toolbox
