// The user's folders for settings and for the desktop (XDG base and user directories).
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

namespace toolbox {

// $XDG_CONFIG_HOME, or ~/.config if it is not set. Nothing if there is no home folder either.
std::optional<boost::filesystem::path> ConfigurationFolder();

// The desktop folder in user-dirs.dirs, or ~/Desktop if none is set there. It need not exist.
// Nothing if there is no home folder either.
std::optional<boost::filesystem::path> DesktopFolder();

}  // namespace toolbox
