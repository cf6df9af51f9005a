#include "toolbox/atoms/export_settings.h"

#include "toolbox/atoms/fields.h"

namespace toolbox {
namespace {

// Each setting has a head of 20 bytes. Its children come after it, or its value if it has none.
void AddNumbers(ByteSpan settings, FourCC parent, int depth, std::vector<NumberSetting>& numbers) {
  constexpr std::size_t kHead = 20;
  // Real settings have two or three levels. The limit keeps damaged ones from using up the stack.
  constexpr int kDeepest = 16;
  if (depth > kDeepest) throw Malformed("the settings are nested too deep");
  for (FieldReader io(settings); !io.Remaining().empty();) {
    std::uint32_t size = 0;  // with the head
    FourCC type;
    std::uint16_t children = 0;
    io("size", size);
    io("type", type);
    io.Take("id", 6);  // and two reserved bytes
    io("children", children);
    io.Take("reserved", 4);
    if (size < kHead) throw Malformed("a setting has an impossible size");
    const ByteSpan content = io.Take("setting", size - kHead);
    if (children != 0) {
      AddNumbers(content, type, depth + 1, numbers);
    } else if (content.size() == sizeof(std::uint32_t)) {
      numbers.push_back({parent, type, FromBigEndian<std::uint32_t>(content.data())});
    }
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
