// The user's settings of an application: an INI file in the configuration folder.
#pragma once

#include <optional>
#include <string>

namespace toolbox {

// The value of `key` in `application`.conf: true, yes or 1; false, no or 0. Nothing if there is no
// such file or key, if the file cannot be parsed, or if the value is none of these.
std::optional<bool> BooleanPreference(const std::string& application, const std::string& key);

}  // namespace toolbox
