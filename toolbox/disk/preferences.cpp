#include "toolbox/disk/preferences.h"

#include <boost/property_tree/ini_parser.hpp>
#include <boost/property_tree/ptree.hpp>

#include "toolbox/disk/user_folders.h"

namespace toolbox {

std::optional<bool> BooleanPreference(const std::string& application, const std::string& key) {
  const auto folder = ConfigurationFolder();
  if (!folder) return std::nullopt;
  boost::property_tree::ptree settings;
  try {
    boost::property_tree::read_ini((*folder / (application + ".conf")).native(), settings);
  } catch (const boost::property_tree::ini_parser_error&) {
    return std::nullopt;
  }
  // Any other value counts as no setting.
  const auto text = settings.get<std::string>(key, {});
  if (text == "true" || text == "yes" || text == "1") return true;
  if (text == "false" || text == "no" || text == "0") return false;
  return std::nullopt;
}

}  // namespace toolbox
