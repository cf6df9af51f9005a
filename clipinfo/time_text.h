// Times as people write them.
#pragma once

#include <cstdint>
#include <string>

namespace clipinfo {

// A time in units of `scale` per second (> 0) as the commands take it: "0:03.5", "1:00:05". It has
// as many decimals as it takes to mean this unit and no other.
std::string TimeText(std::int64_t units, std::int32_t scale);

}  // namespace clipinfo
