#include "toolbox/mpeg4/export_settings.h"

#include "toolbox/atoms/export_settings.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/refused.h"

namespace toolbox {

Mpeg4Settings ReadMpeg4Settings(ByteSpan container) try {
  // All settings are children of 'sean'. The coding 'past' means that samples are copied.
  constexpr FourCC kRoot{"sean"}, kPassThrough{"past"};
  Mpeg4Settings settings;
  for (const auto& [parent, type, number] : ReadNumberSettings(container)) {
    if (parent != kRoot) continue;
    if (type == FourCC{"hint"}) settings.hasHints = number != 0;
    if (type == FourCC{"psiz"}) settings.packetSize = number;
    if (type == FourCC{"pdur"}) settings.packetDuration = number;
    const bool isCoding = type == FourCC{"envi"} || type == FourCC{"enso"};
    if (isCoding && number != kPassThrough.value) settings.keepsCoding = false;
  }
  return settings;
} catch (const Malformed& fault) {
  throw Refused{paramErr, fault.reason};
}

}  // namespace toolbox
