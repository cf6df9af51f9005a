#include "clipinfo/svg.h"

#include <algorithm>
#include <cmath>

#include "toolbox/text/unicode.h"
#include "utils/visible.h"

namespace clipinfo {
namespace {

// More of a name than this is never shown, in bytes. A file can have names of megabytes.
constexpr std::size_t kLongest = 1024;

// The text as valid Unicode that XML allows, with visible control characters.
std::u16string Printable(std::string_view text) {
  std::u16string printable =
      toolbox::Repaired(toolbox::Utf16(utils::Visible(text.substr(0, kLongest))));
  const auto isNoCharacter = [](char16_t unit) { return unit >= 0xFFFE; };
  std::ranges::replace_if(printable, isNoCharacter, u'\xFFFD');
  return printable;
}

// The width of a character in parts of the font size. East Asian characters are square.
double WidthOf(char32_t character) {
  if (character >= 0x1100) return 1;
  constexpr std::string_view kNarrow = "ijlft.,:;'|!()[] ", kWide = "mwMW@";
  if (character < 0x80) {
    const char ascii = static_cast<char>(character);
    if (kNarrow.find(ascii) != std::string_view::npos) return 0.36;
    if (kWide.find(ascii) != std::string_view::npos) return 0.92;
    if (ascii >= 'A' && ascii <= 'Z') return 0.7;
  }
  return 0.58;
}

double WidthOf(std::u16string_view text, double size) {
  double width = 0;
  while (!text.empty()) {
    width += WidthOf(toolbox::FirstCodePoint(text)) * size;
    text.remove_prefix(toolbox::FirstCharacter(text));
  }
  return width;
}

}  // namespace

std::string XmlText(std::string_view text) {
  std::string escaped;
  for (const char character : toolbox::Utf8(Printable(text))) {
    switch (character) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      default:
        escaped += character;
    }
  }
  return escaped;
}

double WidthOf(std::string_view text, double size) { return WidthOf(Printable(text), size); }

std::string Fitted(std::string_view text, double width, double size) {
  const std::u16string whole = Printable(text);
  if (WidthOf(whole, size) <= width) return toolbox::Utf8(whole);
  std::u16string_view rest = whole;
  double left = width - size;  // the ellipsis
  std::size_t characters = 0;
  while (!rest.empty()) {
    left -= WidthOf(toolbox::FirstCodePoint(rest)) * size;
    if (left < 0) break;
    rest.remove_prefix(toolbox::FirstCharacter(rest));
    ++characters;
  }
  if (characters < 3) return {};
  return toolbox::Utf8(whole.substr(0, whole.size() - rest.size())) + "…";
}

std::string Pixels(double value) {
  const auto tenths = static_cast<long>(std::lround(value * 10));
  std::string text = tenths < 0 ? "-" : "";
  text += std::to_string(std::abs(tenths) / 10);
  if (tenths % 10 != 0) text += "." + std::to_string(std::abs(tenths) % 10);
  return text;
}

void Svg::Rect(std::string_view classes, const Box& box, const Hover& hover) {
  elements_.append("<rect class=\"").append(classes);
  elements_ += "\" x=\"" + Pixels(box.x) + "\" y=\"" + Pixels(box.y) + "\" width=\"" +
               Pixels(box.width) + "\" height=\"" + Pixels(box.height) + "\"";
  Finish("rect", "", hover);
}

void Svg::Path(std::string_view classes, std::string_view path, const Hover& hover) {
  elements_.append("<path class=\"").append(classes).append("\" d=\"").append(path).append("\"");
  Finish("path", "", hover);
}

void Svg::Text(std::string_view classes, double x, double y, std::string_view text,
               const Hover& hover) {
  elements_.append("<text class=\"").append(classes);
  elements_ += "\" x=\"" + Pixels(x) + "\" y=\"" + Pixels(y) + "\"";
  Finish("text", XmlText(text), hover);
}

void Svg::BeginGroup(std::string_view classes) {
  elements_.append("<g class=\"").append(classes).append("\">\n");
}

void Svg::EndGroup() { elements_ += "</g>\n"; }

void Svg::Finish(std::string_view name, std::string_view content, const Hover& hover) {
  if (content.empty() && hover.empty()) {
    elements_ += "/>\n";
    return;
  }
  elements_ += ">";
  if (!hover.empty()) {
    elements_ += "<title>";
    for (const std::string& line : hover) {
      if (&line != &hover.front()) elements_ += '\n';
      elements_ += XmlText(line);
    }
    elements_ += "</title>";
  }
  elements_.append(content).append("</").append(name).append(">\n");
}

}  // namespace clipinfo
