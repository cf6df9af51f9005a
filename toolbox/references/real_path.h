// Real paths, without symbolic links.
#pragma once

#include <boost/filesystem/path.hpp>

namespace toolbox {

// Makes `path` absolute and resolves the symbolic links in that part of it that exists. An empty
// path stays empty. Never throws because of the file system: if links cannot be resolved, only the
// components "." and ".." are removed.
boost::filesystem::path RealPath(const boost::filesystem::path& path);

// Whether `path` is a regular file or a link to one. False also if that cannot be found out, for
// example without permission.
bool IsFile(const boost::filesystem::path& path);

}  // namespace toolbox
