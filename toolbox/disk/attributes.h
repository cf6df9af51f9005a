// The attributes that a new file takes over from the file that it replaces.
#pragma once

#include "toolbox/disk/descriptor.h"

namespace toolbox {

// Copies owner, group, permissions and extended attributes from `old` to `file`, both open. Owner,
// group and the attributes of the system are copied if the process has the right to do so. The bits
// that set the user or group ID of a program are kept only if both owner and group could be copied.
// Throws Refused if the permissions or the attributes of the user ("user.*") cannot be copied.
void CopyAttributes(const Descriptor& old, const Descriptor& file);

}  // namespace toolbox
