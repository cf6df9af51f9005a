// URLs of files to paths.
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

#include "toolbox/bytes.h"

namespace toolbox {

// The path that a URL (file: on this host, or relative; percent-decoded) leads to, whether or not
// the file exists: absolute and without "." and "..". Relative URLs start in the folder where
// `referrer` really is. '?' and '#' count as parts of the name, because writers often leave them
// unescaped. Nothing for any other scheme or host, or without a path.
std::optional<boost::filesystem::path> ResolveUrl(ByteSpan url,
                                                  const boost::filesystem::path& referrer);

}  // namespace toolbox
