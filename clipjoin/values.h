// Option values: text to durations, numbers, factors and transparency modes.
#pragma once

#include <string>

#include "clipjoin/cursor.h"
#include "toolbox/toolbox.h"

namespace clipjoin {

// Parses "seconds.fractions" or "hh:mm:ss.fractions" and returns seconds. Throws BadDuration.
double ParseDuration(const std::string& text);
// Prints what a duration has to look like, starting with the bad `text`.
void PrintDurationHelp(const std::string& text);

// Parses a number or a fraction n/d. Characters after it are ignored. Text that is not a number
// is 0.
double ParseNumber(const std::string& text);

// Parses the same and rounds it to the nearest 16.16 number.
toolbox::Fixed ParseFixed(const std::string& text);

// A factor or an angle in degrees, and its center in pixels.
struct Factor {
  toolbox::Fixed value = 0, aboutX = 0, aboutY = 0;
};
// Takes a factor and, if "-about X Y" follows, its center; the center is otherwise the origin. If X
// or Y is missing, this is reported and the origin is used. Throws NeedMoreArguments if there is no
// factor.
Factor ParseFactor(Cursor& next);

// Takes a transparency mode and, if it needs one, a color, and returns the graphics mode. On an
// error, prints it with the list of modes and returns 0.
std::int32_t ParseTransparency(Cursor& next, toolbox::RGBColor& color);

}  // namespace clipjoin
