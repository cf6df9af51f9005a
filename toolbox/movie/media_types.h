// What the kinds of media are called, and whether they are seen or heard.
#pragma once

#include <string>

#include "toolbox/atoms/fourcc.h"

namespace toolbox {

struct MediaType {
  std::string name;  // "Video"; for an unknown type its four characters
  bool isSeen = false;
  bool isHeard = false;
};

MediaType DescribeMediaType(FourCC type);

}  // namespace toolbox
