// Writes the elements of an SVG picture.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace clipinfo {

// The text as valid XML: control characters are visible, bytes that are not UTF-8 become U+FFFD,
// and characters of markup are escaped.
std::string XmlText(std::string_view text);

// As much of the start of the text as has room in `width` pixels, with an ellipsis if it is not all
// of it; empty if there is hardly any room. `size` is that of the font. The width of characters is
// estimated.
std::string Fitted(std::string_view text, double width, double size);
// The estimated width of a text in pixels.
double WidthOf(std::string_view text, double size);

// A number of pixels with at most one decimal.
std::string Pixels(double value);

// A rectangle, in pixels.
struct Box {
  double x = 0, y = 0, width = 0, height = 0;
};

// The lines that a browser shows while the pointer is on an element; any bytes.
using Hover = std::vector<std::string>;

// The elements of a picture, in drawing order. Texts can have any bytes; names of classes and paths
// are our own.
class Svg {
 public:
  void Rect(std::string_view classes, const Box& box, const Hover& hover = {});
  void Path(std::string_view classes, std::string_view path, const Hover& hover = {});
  void Text(std::string_view classes, double x, double y, std::string_view text,
            const Hover& hover = {});
  // Elements up to the matching EndGroup have these classes.
  void BeginGroup(std::string_view classes);
  void EndGroup();

  const std::string& Elements() const { return elements_; }

 private:
  // Ends a start tag, adds `content` and the hover text, and closes the element.
  void Finish(std::string_view name, std::string_view content, const Hover& hover);

  std::string elements_;
};

}  // namespace clipinfo
