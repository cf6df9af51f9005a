#include "clipinfo/options.h"

#include <string_view>

#include "clipjoin/cursor.h"
#include "clipjoin/values.h"

namespace clipinfo {
namespace {

// Takes the arguments one by one.
class Parser {
 public:
  explicit Parser(std::span<const char* const> arguments) : next_(arguments) {}

  // Returns nothing if the arguments are wrong.
  std::optional<Options> Parse() try {
    while (!next_.AtEnd()) {
      const std::string argument = next_();
      if (!isPlain_ && argument == "-") {
        isPlain_ = true;
      } else if (isPlain_ || argument.empty() || argument[0] != '-') {
        (isFrom_ ? options_.from : options_.movies).push_back({.file = argument});
      } else if (!Take(argument)) {
        return std::nullopt;
      }
    }
    if (options_.movies.empty() || !FitsMode()) return std::nullopt;
    return options_;
  } catch (const clipjoin::NeedMoreArguments&) {
    return std::nullopt;
  } catch (const clipjoin::BadDuration& bad) {
    clipjoin::PrintDurationHelp(bad.text);
    return std::nullopt;
  }

 private:
  // Takes an option and its value. Returns false if there is no such option, or not here.
  bool Take(std::string_view option) {
    if (option == "-json") {
      options_.isJson = true;
    } else if (option == "-check") {
      return SetMode(Mode::kCheck);
    } else if (option == "-atoms") {
      return SetMode(Mode::kAtoms);
    } else if (option == "-svg") {
      options_.picture = next_();
      return SetMode(Mode::kPicture);
    } else if (option == "-same") {
      return SetMode(Mode::kSame);
    } else if (option == "-from") {
      isFrom_ = options_.mode == Mode::kSame;
      return isFrom_;
    } else {
      return TakeTime(option);
    }
    return true;
  }
  // A time belongs to the last movie before it.
  bool TakeTime(std::string_view option) {
    auto& movies = isFrom_ ? options_.from : options_.movies;
    if (movies.empty()) return false;
    Subject& subject = movies.back();
    if (option == "-startAt") {
      subject.startAt = clipjoin::ParseDuration(next_());
    } else if (option == "-trimTo") {
      subject.trimTo = clipjoin::ParseDuration(next_());
    } else if (option == "-placeAt") {
      subject.placeAt = clipjoin::ParseDuration(next_());
    } else {
      return false;
    }
    return true;
  }
  bool SetMode(Mode mode) {
    if (options_.mode != Mode::kSummary) return false;
    options_.mode = mode;
    return true;
  }
  bool FitsMode() const {
    const bool isOne = options_.movies.size() == 1;
    if (options_.mode == Mode::kSame) {
      return isOne && !options_.from.empty() && !options_.isJson;
    }
    if (options_.mode == Mode::kPicture || options_.mode == Mode::kAtoms) {
      return isOne && !options_.isJson;
    }
    return true;
  }

  clipjoin::Cursor next_;
  Options options_;
  bool isFrom_ = false, isPlain_ = false;
};

}  // namespace

const char kUsage[] =
    "usage: clipinfo [-json] MOVIE...\n"
    "       clipinfo -check [-json] MOVIE...\n"
    "       clipinfo -same OUTPUT -from INPUT...\n"
    "       clipinfo -svg FILE MOVIE\n"
    "       clipinfo -atoms MOVIE\n"
    "With -same, each movie can be followed by -startAt TIME, -trimTo TIME and -placeAt TIME.\n";

std::optional<Options> ParseOptions(std::span<const char* const> arguments) {
  return Parser(arguments).Parse();
}

}  // namespace clipinfo
