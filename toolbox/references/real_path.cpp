#include "toolbox/references/real_path.h"

#include <boost/filesystem/operations.hpp>

namespace toolbox {

namespace fs = boost::filesystem;

fs::path RealPath(const fs::path& path) {
  if (path.empty()) return {};
  boost::system::error_code error;
  const fs::path whole = path.is_absolute() ? path : fs::current_path(error) / path;
  const fs::path real = fs::weakly_canonical(whole, error);
  return error ? whole.lexically_normal() : real;
}

bool IsFile(const fs::path& path) {
  boost::system::error_code error;
  return fs::is_regular_file(path, error);
}

}  // namespace toolbox
