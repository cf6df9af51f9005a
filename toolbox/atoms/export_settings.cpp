#include "toolbox/atoms/export_settings.h"

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

// The head of a setting. Its children come after it, or its value if it has none.
struct SettingHead {
  static constexpr std::size_t kSize = 20;
  std::uint32_t size = 0;  // with the head
  FourCC type;
  std::uint32_t id = 0;
  std::uint16_t reserved = 0, children = 0;
  std::uint32_t reserved2 = 0;

  static void Fields(auto& io, auto& head) {
    io("size", head.size);
    io("type", head.type);
    io("id", head.id);
    io("reserved", head.reserved);
    io("children", head.children);
    io("reserved", head.reserved2);
  }
};

void AddNumbers(ByteSpan settings, FourCC parent, int depth, std::vector<NumberSetting>& numbers) {
  // Real settings have two or three levels. The limit keeps damaged ones from using up the stack.
  constexpr int kDeepest = 16;
  if (depth > kDeepest) throw Malformed("the settings are nested too deep");
  while (!settings.empty()) {
    SettingHead head;
    FieldReader reader(settings);
    SettingHead::Fields(reader, head);
    if (head.size < SettingHead::kSize || head.size > settings.size()) {
      throw Malformed("a setting has an impossible size");
    }
    const ByteSpan content = settings.first(head.size).subspan(SettingHead::kSize);
    if (head.children != 0) {
      AddNumbers(content, head.type, depth + 1, numbers);
    } else if (content.size() == sizeof(std::uint32_t)) {
      numbers.push_back({parent, head.type, FromBigEndian<std::uint32_t>(content.data())});
    }
    settings = settings.subspan(head.size);
  }
}

}  // namespace

std::vector<NumberSetting> ReadNumberSettings(ByteSpan container) {
  constexpr std::size_t kContainerHead = 12;
  if (container.size() < kContainerHead) throw Malformed("the container ends inside its head");
  std::vector<NumberSetting> numbers;
  AddNumbers(container.subspan(kContainerHead), {}, 0, numbers);
  return numbers;
}

}  // namespace toolbox
