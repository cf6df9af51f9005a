// The command line of clipinfo.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace clipinfo {

// What clipinfo is asked for.
enum class Mode {
  kSummary,
  kCheck,
  kSame,
  kPicture,  // SVG
  kAtoms,
};

// A movie of the command line. The times are in seconds, and only -same uses them: the part of the
// movie that is meant, and where it starts in the output.
struct Subject {
  std::string file;
  double startAt = 0;
  std::optional<double> trimTo, placeAt;
};

struct Options {
  Mode mode = Mode::kSummary;
  bool isJson = false;
  std::vector<Subject> movies;  // with -same: the output
  std::vector<Subject> from;  // the inputs of -same
  std::string picture;  // the file for -svg
};

// Reads the arguments, without the name of the program. Returns nothing if they are wrong; then the
// usage has to be printed.
std::optional<Options> ParseOptions(std::span<const char* const> arguments);

// The usage, with a line end.
extern const char kUsage[];

}  // namespace clipinfo
