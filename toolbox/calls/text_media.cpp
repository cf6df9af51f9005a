// Text media: adding samples of text and their style.
#include <cstring>

#include "toolbox/atoms/text_atoms.h"
#include "toolbox/calls/call.h"
#include "toolbox/calls/references.h"
#include "toolbox/movie/media.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

// The color, or black for null.
TextDescription::Color ColorOf(const RGBColor* color) {
  if (color == nullptr) return {};
  return {color->red, color->green, color->blue};
}

}  // namespace

OSErr TextMediaSetTextSampleData(MediaHandler handler, const void* data, FourCC kind) {
  return Call(__func__, [&] {
    MediaRecord& media = Valid(handler);
    if (data == nullptr || kind != TextEncodingMark::kType) throw Refused{paramErr};
    // Copied byte by byte, because `data` may be unaligned.
    std::memcpy(&media.textEncoding.emplace(), data, sizeof(std::uint32_t));
  });
}

OSErr TextMediaAddTextSample(MediaHandler handler, const char* text, std::uint32_t size,
                             std::int16_t font, std::int16_t, std::uint8_t face,
                             const RGBColor* textColor, const RGBColor* backColor,
                             std::int16_t justification, const Rect* box, std::int32_t displayFlags,
                             TimeValue, std::int16_t, std::int16_t, const RGBColor*,
                             TimeValue duration, TimeValue* sampleTime) {
  return Call(__func__, [&] {
    MediaRecord& media = Valid(handler);
    const ByteSpan bytes = BytesAt(text, size);
    TextDescription look;
    look.displayFlags = static_cast<std::uint32_t>(displayFlags);
    look.justification = justification;
    look.background = ColorOf(backColor);
    look.foreground = ColorOf(textColor);
    if (box != nullptr) look.box = {box->top, box->left, box->bottom, box->right};
    look.font = static_cast<std::uint16_t>(font);
    look.face = face;
    const MediaTime time =
        media.AddSample(EncodeTextSample(bytes, media.textEncoding), {Encode(look)}, {duration});
    SetResult(sampleTime, time.units);
  });
}

}  // namespace toolbox
