// moviedump [-atoms | -model] [-dates] FILE: prints the atoms of a movie file, and the movie that
// is read from them. Dates differ from run to run, so they are printed only with -dates.
//
// Exit status: 0, 1 if the file cannot be read, 2 if the arguments are wrong.
#include <boost/filesystem/exception.hpp>
#include <boost/filesystem/operations.hpp>
#include <iostream>
#include <new>
#include <string_view>

#include "toolbox/atoms/malformed.h"
#include "toolbox/read/read_movie.h"
#include "tools/dump.h"

namespace {

// The command line.
struct Options {
  const char* file = nullptr;
  bool showsAtoms = true, showsModel = true, showsDates = false;
};

// Fills `options`, which point into `arguments`. Returns false if the arguments are wrong.
bool Parse(std::span<const char* const> arguments, Options& options) {
  for (const std::string_view argument : arguments) {
    if (argument == "-atoms") {
      options.showsModel = false;
    } else if (argument == "-model") {
      options.showsAtoms = false;
    } else if (argument == "-dates") {
      options.showsDates = true;
    } else if (options.file == nullptr) {
      options.file = argument.data();
    } else {
      return false;
    }
  }
  return options.file != nullptr && (options.showsAtoms || options.showsModel);
}

// Prints the parts that `options` ask for. Throws Malformed, Refused or filesystem_error.
void Dump(const Options& options) {
  const auto path = boost::filesystem::absolute(options.file);
  const toolbox::FileSource source(path);
  if (options.showsAtoms) tools::DumpAtoms(source, options.showsDates, std::cout);
  if (!options.showsModel) return;
  const auto movie = toolbox::ReadMovieFile(path, toolbox::References::kLeave);
  tools::DumpModel(*movie, options.showsDates, std::cout);
}

// Prints an error and returns the exit status. What was printed before stays valid.
int Fail(const Options& options, const std::string& why) {
  std::cout.flush();
  std::cerr << "moviedump: " << options.file << ": " << why << '\n';
  return 1;
}

}  // namespace

int main(int count, char** arguments) {
  Options options;
  if (!Parse({arguments + 1, static_cast<std::size_t>(count - 1)}, options)) {
    std::cerr << "usage: moviedump [-atoms | -model] [-dates] FILE\n";
    return 2;
  }
  try {
    Dump(options);
    return 0;
  } catch (const toolbox::Malformed& fault) {
    return Fail(options, fault.path.empty() ? fault.reason : fault.path + ": " + fault.reason);
  } catch (const toolbox::Refused& refused) {
    return Fail(options, refused.code == toolbox::noMovieFound
                             ? "contains no movie"
                             : "cannot be read: error " + std::to_string(refused.code));
  } catch (const boost::filesystem::filesystem_error& failed) {
    return Fail(options, failed.code().message());
  } catch (const std::bad_alloc&) {
    return Fail(options, "out of memory");
  }
}
