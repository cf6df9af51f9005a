// Where a path really leads.
#pragma once

#include <boost/filesystem/path.hpp>

namespace toolbox {

// `path`, absolute and free of symbolic links as far as it exists; an empty path stays empty.
boost::filesystem::path RealPath(const boost::filesystem::path& path);

// Whether a regular file is there; false also when that cannot be found out.
bool IsFile(const boost::filesystem::path& path);

}  // namespace toolbox
