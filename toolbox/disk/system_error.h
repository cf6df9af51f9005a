// Turns errors of system calls into refusals.
#pragma once

#include "toolbox/refused.h"

namespace toolbox {

// The refusal for a system call that failed with `errorNumber`, a value of errno. Errors without a
// code of their own become ioErr.
Refused RefusedBy(int errorNumber);

}  // namespace toolbox
