#include "toolbox/disk/user_folders.h"

#include <boost/filesystem/fstream.hpp>
#include <cstdlib>
#include <string>
#include <string_view>

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

// The folder in an environment variable. A relative path is ignored, as XDG requires.
std::optional<fs::path> FolderIn(const char* variable) {
  const char* value = std::getenv(variable);
  if (value == nullptr || value[0] != '/') return std::nullopt;
  return fs::path(value);
}

}  // namespace

std::optional<fs::path> ConfigurationFolder() {
  if (auto folder = FolderIn("XDG_CONFIG_HOME")) return folder;
  const auto home = FolderIn("HOME");
  return home ? std::optional(*home / ".config") : std::nullopt;
}

std::optional<fs::path> DesktopFolder() {
  // The line is XDG_DESKTOP_DIR="$HOME/name", or has an absolute path in the quotes. Characters are
  // escaped as for the shell. The last such line counts.
  constexpr std::string_view kStart = "XDG_DESKTOP_DIR=\"", kHome = "$HOME";
  const auto home = FolderIn("HOME");
  std::optional<fs::path> desktop;
  if (home) desktop = *home / "Desktop";
  const auto configuration = ConfigurationFolder();
  if (!configuration) return desktop;
  fs::ifstream lines(*configuration / "user-dirs.dirs");
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with(kStart)) continue;
    std::string value;
    for (std::size_t i = kStart.size(); i < line.size() && line[i] != '"'; ++i) {
      if (line[i] == '\\' && i + 1 < line.size()) ++i;
      value += line[i];
    }
    if (value.starts_with(kHome) && home) {
      desktop = *home / value.substr(kHome.size());
    } else if (value.starts_with('/')) {
      desktop = value;
    }
  }
  return desktop;
}

}  // namespace toolbox
