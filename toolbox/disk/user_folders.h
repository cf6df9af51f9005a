// Where the user keeps settings and what lies on the desktop (XDG base and user directories).
#pragma once

#include <boost/filesystem/path.hpp>
#include <optional>

namespace toolbox {

// $XDG_CONFIG_HOME, else ~/.config. Nothing for a user without a home folder.
std::optional<boost::filesystem::path> ConfigurationFolder();

// The desktop folder that user-dirs.dirs names, else ~/Desktop; it need not exist.
std::optional<boost::filesystem::path> DesktopFolder();

}  // namespace toolbox
