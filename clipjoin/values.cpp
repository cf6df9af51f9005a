#include "clipjoin/values.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string_view>

#include "utils/visible.h"

namespace clipjoin {
namespace {

using toolbox::RGBColor;

// Each of these reads a color: three values with any character between them. A color of the toolbox
// has 16 bits a component.
void ReadWords(std::istream& in, RGBColor& color) {
  char between;
  in >> color.red >> between >> color.green >> between >> color.blue;
}

void ReadBytes(std::istream& in, RGBColor& color) {
  ReadWords(in, color);
  for (std::uint16_t* part : {&color.red, &color.green, &color.blue}) {
    *part = static_cast<std::uint16_t>(*part << 8);
  }
}

void ReadProportions(std::istream& in, RGBColor& color) {
  char between;
  double first = 0, second = 0, third = 0;
  in >> first >> between >> second >> between >> third;
  const auto part = [](double proportion) {
    // Converting a number that an integer cannot hold is undefined.
    const double value = std::clamp(proportion * 65535.0, double{INT32_MIN}, double{INT32_MAX});
    return static_cast<std::uint16_t>(static_cast<std::int32_t>(value));
  };
  // The second proportion is blue, not green: users' scripts depend on it.
  color = {part(first), part(third), part(second)};
}

struct Transparency {
  std::string_view name;
  std::int32_t mode;  // a graphics transfer mode
  void (*readColor)(std::istream&, RGBColor&);  // null: the mode has no color
  const char* label;  // what messages call the color
  const char* help;
};

constexpr Transparency kTransparencies[] = {
    {"none", 0, nullptr, "", "\t\tNo transparency."},
    {"straight-alpha", 0x100, nullptr, "", "\n\tUse the alpha channel that's in the movie."},
    {"transparent", 0x24, ReadBytes, "transparent color",
     "red,green,blue\n"
     "\tThe specified color is transparent; all others\n"
     "\tare opaque. red, green, and blue should be between 0 and 255."},
    {"transparent16", 0x24, ReadWords, "transparent color",
     "red,green,blue\n"
     "\tThe specified color is transparent; all others\n"
     "\tare opaque. red, green, and blue should be between 0 and 65535."},
    {"blend", 0x20, ReadProportions, "blend proportions",
     "red-prop,green-prop,blue-prop\n"
     "\tBlend the two images using the\n"
     "\tspecified proportion for each channel. red-prop, green-prop, and\n"
     "\tblue-prop should be real numbers between 0 and 1."},
};

}  // namespace

// Fields are unsigned, because too many digits would make a signed number overflow.
double ParseDuration(const std::string& text) {
  std::uint32_t hours = 0, minutes = 0, current = 0;
  double fraction = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char character = text[i];
    if (character >= '0' && character <= '9') {
      current = current * 10 + static_cast<std::uint32_t>(character - '0');
    } else if (character == ':') {
      // All fields before the last three must be 0: 0:0:1:10 is a minute and ten seconds.
      if (hours != 0) throw BadDuration{text};
      hours = minutes;
      minutes = current;
      current = 0;
    } else if (character == '.') {
      // Whatever follows the fraction is ignored.
      fraction = std::atof(text.c_str() + i);
      break;
    } else {
      throw BadDuration{text};
    }
  }
  // Only the first field may be larger than 59. Leading zero fields do not count.
  const auto isAbove59 = [](std::uint32_t field) { return static_cast<std::int32_t>(field) > 59; };
  if (hours != 0 && isAbove59(minutes)) throw BadDuration{text};
  if ((hours != 0 || minutes != 0) && isAbove59(current)) throw BadDuration{text};
  return static_cast<std::int32_t>(hours * 3600 + minutes * 60 + current) + fraction;
}

void PrintDurationHelp(const std::string& text) {
  std::cerr << "Bad duration syntax: " << utils::Visible(text) << '\n'
            << "Duration should be of the form seconds.fractions or hh:mm:ss.fractions\n"
               "You can omit hh if the number of hours is 0. You can omit mm if the number\n"
               "of minutes is 0. The first field can be any number. Examples:\n"
               "01:10.4         1 minute, 10.4 seconds\n"
               "1:10            1 minute, 10 seconds\n"
               "3600            3600 seconds (1 hour)\n"
               "100.45          100.45 seconds\n"
               "61:10           61 minutes, 10 seconds\n"
               "1:01:10         1 hour, 1 minute, 10 seconds (same as above)\n"
               "48:00:00        48 hours.\n";
}

double ParseNumber(const std::string& text) {
  std::istringstream in(text);
  // A fraction has whole numbers. Dividing by 0 gives infinity, or NaN for 0/0.
  if (text.find('/') == std::string::npos) {
    double number = 0;
    in >> number;
    return number;
  }
  long numerator = 0, denominator = 0;
  char slash = 0;
  in >> numerator >> slash >> denominator;
  return static_cast<double>(numerator) / static_cast<double>(denominator);
}

toolbox::Fixed ParseFixed(const std::string& text) {
  return static_cast<toolbox::Fixed>(std::lrint(ParseNumber(text) * 65536.0));
}

Factor ParseFactor(Cursor& next) {
  Factor factor{.value = ParseFixed(next())};
  if (!next.Takes("-about")) return factor;
  try {
    factor.aboutX = ParseFixed(next());
    factor.aboutY = ParseFixed(next());
  } catch (const NeedMoreArguments&) {
    std::cerr << "Error: -about requires two arguments\n";
    factor.aboutX = factor.aboutY = 0;
  }
  return factor;
}

std::int32_t ParseTransparency(Cursor& next, RGBColor& color) {
  try {
    const std::string_view name = next();
    const auto* row = std::ranges::find(kTransparencies, name, &Transparency::name);
    if (row != std::end(kTransparencies)) {
      if (row->readColor == nullptr) return row->mode;
      std::istringstream text(next());
      row->readColor(text, color);
      if (text) return row->mode;
      std::cerr << "Error getting " << row->label << ".\n";
    } else if (name != "help" && name != "-help") {
      std::cerr << "Unrecognized transparency mode " << utils::Visible(name) << ".\n";
    }
  } catch (const NeedMoreArguments&) {
    std::cerr << "Need more arguments in -transparency-mode\n";
  }
  std::cerr << "Error getting transparency mode. Correct syntax is one of:\n";
  for (const Transparency& row : kTransparencies) {
    std::cerr << "-transparency-mode " << row.name << ' ' << row.help << '\n';
  }
  return 0;
}

}  // namespace clipjoin
