// The style sheet and the patterns of a picture of a time line.
#pragma once

namespace clipinfo {

// Goes to the start of the picture. The picture adapts itself to a dark page.
extern const char kPictureStyle[];

}  // namespace clipinfo
