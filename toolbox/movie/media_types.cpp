#include "toolbox/movie/media_types.h"

#include <algorithm>
#include <iterator>

namespace toolbox {

MediaType DescribeMediaType(FourCC type) {
  static const MediaType kKnown[] = {
      {FourCC{"vide"}, "Video", true, false},
      {FourCC{"soun"}, "Sound", false, true},
      {FourCC{"text"}, "Text", true, false},
      {FourCC{"tmcd"}, "Timecode", true, false},
      {FourCC{"MPEG"}, "MPEG", true, true},
      {FourCC{"musi"}, "Music", false, true},
      {FourCC{"sprt"}, "Sprite", true, false},
      {FourCC{"flsh"}, "Flash", true, false},
      {FourCC{"qd3d"}, "3D", true, false},
      {FourCC{"sbtl"}, "Subtitle", true, false},
      {FourCC{"clcp"}, "Closed Caption", true, false},
      {FourCC{"subp"}, "Subpicture", true, false},
      {FourCC{"twen"}, "Tween", false, false},
      {FourCC{"strm"}, "Streaming", true, true},
      {FourCC{"hint"}, "Hint", false, false},
      {FourCC{"meta"}, "Metadata", false, false},
      {FourCC{"odsm"}, "MPEG-4", false, false},
      {FourCC{"sdsm"}, "MPEG-4", false, false},
  };
  const auto* known = std::ranges::find(kKnown, type, &MediaType::type);
  if (known != std::end(kKnown)) return *known;
  MediaType described{type};
  for (int shift = 24; shift >= 0; shift -= 8) {
    const auto byte = static_cast<std::uint8_t>(type.value >> shift);
    described.name += byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  described.name.erase(described.name.find_last_not_of(' ') + 1);
  return described;
}

}  // namespace toolbox
