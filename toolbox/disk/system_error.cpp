#include "toolbox/disk/system_error.h"

#include <system_error>
#include <utility>

namespace toolbox {
namespace {

OSErr CodeOf(int errorNumber) {
  switch (errorNumber) {
    case ENOSPC:
    case EDQUOT:
      return dskFulErr;
    case ENAMETOOLONG:
    case EILSEQ:
      return bdNamErr;
    case EMFILE:
    case ENFILE:
      return tmfoErr;
    case ENOENT:
    case ENOTDIR:
      return fnfErr;
    case EROFS:
      return vLckdErr;
    case ETXTBSY:
    case EBUSY:
    case EWOULDBLOCK:
      return fBsyErr;  // somebody else uses the file
    case EEXIST:
      return dupFNErr;
    case ENOMEM:
      return memFullErr;
    case EISDIR:
      return notAFileErr;
    case EACCES:
    case EPERM:
      return afpAccessDenied;
    default:
      return ioErr;
  }
}

}  // namespace

Refused RefusedBy(int errorNumber, std::string file) {
  // For a locked file, the system only says "Resource temporarily unavailable".
  const std::string reason = errorNumber == EWOULDBLOCK
                                 ? "another program uses it"
                                 : std::generic_category().message(errorNumber);
  return {CodeOf(errorNumber), reason, std::move(file)};
}

}  // namespace toolbox
