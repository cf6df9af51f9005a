#include "toolbox/mpeg4/export_settings.h"

#include "toolbox/atoms/fields.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kRoot{"sean"};

// The head of a setting; its children or its value follow.
struct Setting {
  static constexpr std::size_t kHead = 20;
  std::uint32_t size = 0;
  FourCC type;
  std::uint32_t id = 0;
  std::uint16_t reserved = 0, children = 0;
  std::uint32_t reserved2 = 0;

  static void Fields(auto& io, auto& setting) {
    io("size", setting.size);
    io("type", setting.type);
    io("id", setting.id);
    io("reserved", setting.reserved);
    io("children", setting.children);
    io("reserved", setting.reserved2);
  }
};

// Calls visit(parent, type, value) for every setting without children.
template <class Visit>
void ForEachValue(ByteSpan settings, FourCC parent, int depth, const Visit& visit) {
  constexpr int kDeepest = 16;
  if (depth > kDeepest) throw Refused{paramErr};
  while (!settings.empty()) {
    if (settings.size() < Setting::kHead) throw Refused{paramErr};
    Setting setting;
    FieldReader reader(settings);
    Setting::Fields(reader, setting);
    if (setting.size < Setting::kHead || setting.size > settings.size()) throw Refused{paramErr};
    const ByteSpan content = settings.subspan(Setting::kHead, setting.size - Setting::kHead);
    if (setting.children == 0) {
      visit(parent, setting.type, content);
    } else {
      ForEachValue(content, setting.type, depth + 1, visit);
    }
    settings = settings.subspan(setting.size);
  }
}

}  // namespace

Mpeg4Settings ReadMpeg4Settings(ByteSpan container) {
  constexpr std::size_t kContainerHead = 12;
  if (container.size() < kContainerHead) throw Refused{paramErr};
  Mpeg4Settings settings;
  ForEachValue(container.subspan(kContainerHead), {}, 0,
               [&](FourCC parent, FourCC type, ByteSpan value) {
                 if (parent != kRoot || value.size() != 4) return;
                 const auto number = FromBigEndian<std::uint32_t>(value.data());
                 if (type == FourCC{"hint"}) settings.hasHints = number != 0;
                 if (type == FourCC{"psiz"}) settings.packetSize = number;
                 if (type == FourCC{"pdur"}) settings.packetDuration = number;
                 if (type == FourCC{"envi"} || type == FourCC{"enso"}) {
                   const bool passesThrough = number == FourCC{"past"}.value;
                   settings.keepsCoding = settings.keepsCoding && passesThrough;
                 }
               });
  return settings;
}

}  // namespace toolbox
