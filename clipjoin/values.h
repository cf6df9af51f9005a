// The values of options: texts to durations, numbers, factors and transparency modes.
#pragma once

#include <string>

#include "clipjoin/cursor.h"
#include "toolbox/toolbox.h"

namespace clipjoin {

// Seconds, from "seconds.fractions" or "hh:mm:ss.fractions". Throws BadDuration.
double ParseDuration(const std::string& text);
// What a bad duration should have looked like; prints it, starting with the offending text.
void PrintDurationHelp(const std::string& text);

// A number or a fraction n/d. Takes what it can read of anything.
double ParseNumber(const std::string& text);

// ParseNumber as 16.16, to the nearest.
toolbox::Fixed ParseFixed(const std::string& text);

// A factor or an angle, and the point it is about ("-about X Y"; else the origin).
struct Factor {
  toolbox::Fixed value = 0, aboutX = 0, aboutY = 0;
};
// Takes it from the arguments; a point that is cut short is reported and ignored. Throws
// NeedMoreArguments.
Factor ParseFactor(Cursor& next);

// Takes a transparency mode, and its colour if it has one, from the arguments. What is wrong is
// reported, with the modes there are, and gives mode 0.
std::int32_t ParseTransparency(Cursor& next, toolbox::RGBColor& color);

}  // namespace clipjoin
