// A request that cannot be carried out: thrown inside the toolbox, a result code at its boundary.
#pragma once

#include "toolbox/codes.h"

namespace toolbox {

struct Refused {
  OSErr code;
};

}  // namespace toolbox
