// The user's folders and their paths.
#include <boost/filesystem/operations.hpp>
#include <cstring>

#include "toolbox/calls/call.h"
#include "toolbox/disk/user_folders.h"
#include "toolbox/refused.h"
#include "toolbox/toolbox.h"

namespace toolbox {

OSErr FSFindFolder(std::int16_t domain, FourCC type, bool create, FSRef* folder) {
  return Call(__func__, [&] {
    if (domain != kUserDomain || type != kDesktopFolderType) throw Refused{paramErr};
    const auto desktop = DesktopFolder();
    if (!desktop) throw Refused{fnfErr};
    // DesktopFolder() returns where the folder should be. The folder need not exist.
    if (create) {
      boost::filesystem::create_directories(*desktop);
    } else if (!boost::filesystem::is_directory(*desktop)) {
      throw Refused{fnfErr};
    }
    folder->path = desktop->native();
  });
}

OSErr FSRefMakePath(const FSRef* reference, unsigned char* path, std::uint32_t size) {
  return Call(__func__, [&] {
    if (reference == nullptr || reference->path.empty()) throw Refused{errFSBadFSRef};
    // The path needs room for a zero byte at its end.
    if (reference->path.size() >= size) throw Refused{pathTooLongErr};
    std::memcpy(path, reference->path.c_str(), reference->path.size() + 1);
  });
}

}  // namespace toolbox
