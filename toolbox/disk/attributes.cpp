#include "toolbox/disk/attributes.h"

#include <unistd.h>

#ifdef __linux__
#include <sys/xattr.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <string_view>

#include "toolbox/disk/system_error.h"

namespace toolbox {
namespace {

#ifdef __linux__
// Calls `get(buffer, size)` twice: to ask for the size of its result, then for the result.
std::string Sized(auto&& get) {
  const ssize_t size = get(nullptr, 0);
  std::string result(static_cast<std::size_t>(std::max<ssize_t>(size, 0)), '\0');
  const ssize_t got = size > 0 ? get(result.data(), result.size()) : size;
  if (got < 0 && errno != EOPNOTSUPP) throw RefusedBy(errno);
  return result;
}

void CopyExtendedAttributes(int old, int file) {
  const std::string names =
      Sized([old](char* list, std::size_t size) { return flistxattr(old, list, size); });
  // Each name ends with a 0 byte.
  for (std::size_t at = 0; at < names.size();) {
    const char* const name = &names[at];
    at += std::strlen(name) + 1;
    try {
      const std::string value =
          Sized([&](char* bytes, std::size_t size) { return fgetxattr(old, name, bytes, size); });
      Required([&] { return fsetxattr(file, name, value.data(), value.size(), 0); });
    } catch (const Refused&) {
      if (std::string_view(name).starts_with("user.")) throw;
    }
  }
}
#else
void CopyExtendedAttributes(int, int) {}
#endif

}  // namespace

void CopyAttributes(const Descriptor& old, const Descriptor& file) {
  constexpr mode_t kSetIds = S_ISUID | S_ISGID, kAll = 07777;
  const struct stat wanted = StatusOf(old.Number());
  // This comes before the permissions, because a change of owner clears the bits that set IDs.
  const bool isOwned = fchown(file.Number(), wanted.st_uid, wanted.st_gid) == 0;
  const bool hasGroup = isOwned || fchown(file.Number(), uid_t(-1), wanted.st_gid) == 0;
  CopyExtendedAttributes(old.Number(), file.Number());
  // If the group could not be copied, the new group must not get the rights of the old one. It gets
  // those of all others.
  mode_t mode = wanted.st_mode & kAll;
  if (!isOwned) mode &= ~kSetIds;
  if (!hasGroup) mode = (mode & ~mode_t{S_IRWXG}) | (mode & S_IRWXO) << 3;
  Required([&] { return fchmod(file.Number(), mode); });
}

}  // namespace toolbox
