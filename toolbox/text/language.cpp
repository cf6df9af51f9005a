#include "toolbox/text/language.h"

#include <algorithm>
#include <iterator>

namespace toolbox {
namespace {

// The languages [first, last] share an encoding.
struct Run {
  std::int16_t first, last;  // language numbers
  TextEncoding encoding;
};

// In order. The encoding of a language is that of the script it is written in, or a variant of that
// encoding with its own letters: Turkish, Icelandic, Croatian and Romanian differ from the other
// Roman languages. Languages are missing if their encoding has no converter.
constexpr Run kRuns[] = {
    {0, 9, 0},     {10, 10, 5},   {11, 11, 1},   {12, 12, 4},   {13, 13, 0},   {14, 14, 6},
    {15, 15, 37},  {16, 16, 0},   {17, 17, 35},  {18, 18, 36},  {19, 19, 2},   {20, 20, 4},
    {22, 22, 21},  {23, 23, 3},   {24, 28, 29},  {29, 29, 0},   {30, 30, 37},  {31, 31, 140},
    {32, 32, 7},   {33, 33, 25},  {34, 34, 0},   {36, 36, 0},   {37, 37, 38},  {38, 39, 29},
    {40, 40, 36},  {41, 41, 5},   {42, 49, 7},   {50, 50, 4},   {53, 56, 7},   {58, 58, 7},
    {59, 62, 4},   {81, 83, 0},   {84, 84, 4},   {88, 94, 0},   {129, 134, 0}, {135, 135, 7},
    {136, 136, 4}, {138, 141, 0}, {147, 147, 0}, {148, 148, 6}, {149, 151, 0},
};

}  // namespace

std::optional<TextEncoding> EncodingOf(std::int16_t script, std::int16_t language) {
  // Scripts and their encodings share their numbers. A negative script becomes a large number that
  // no encoding has.
  auto encoding = static_cast<TextEncoding>(script);
  if (language != kAnyScriptOrLanguage) {
    const auto* run = std::ranges::lower_bound(kRuns, language, {}, &Run::last);
    if (run == std::end(kRuns) || language < run->first) return std::nullopt;
    encoding = run->encoding;
  }
  return HasConverter(encoding) ? std::optional(encoding) : std::nullopt;
}

}  // namespace toolbox
