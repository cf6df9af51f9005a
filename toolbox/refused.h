// A request that cannot be carried out. Thrown inside the toolbox; calls turn it into a result
// code.
#pragma once

#include "toolbox/codes.h"

namespace toolbox {

struct Refused {
  OSErr code;
};

}  // namespace toolbox
