// Failed system calls as refusals.
#pragma once

#include "toolbox/refused.h"

namespace toolbox {

// The refusal for a system call that failed with `errorNumber` (a value of errno).
Refused RefusedBy(int errorNumber);

}  // namespace toolbox
