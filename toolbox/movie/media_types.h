// The names of the kinds of media, and whether they are seen or heard.
#pragma once

#include <string>

#include "toolbox/atoms/fourcc.h"

namespace toolbox {

struct MediaType {
  FourCC type;
  std::string name;  // such as "Video"; for an unknown type its four characters
  bool isSeen = false;
  bool isHeard = false;
};

// For any type, known or not. In the name of an unknown one, unprintable characters become '?' and
// spaces at the end are removed.
MediaType DescribeMediaType(FourCC type);

}  // namespace toolbox
