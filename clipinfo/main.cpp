// clipinfo tells what is in movies, checks them, and proves that an edit has lost nothing. It is a
// program of its own, beside the three commands.
//
// Exit status: 0; 1 if a file cannot be read or a check finds something; 2 if the command line is
// wrong.
#include <exception>
#include <iostream>

#include "clipinfo/modes.h"
#include "clipjoin/process.h"
#include "utils/visible.h"

namespace {

// Prints a summary of each movie. The others follow one that cannot be read.
int PrintSummaries(const clipinfo::Options& options) {
  int status = 0;
  for (const clipinfo::Subject& subject : options.movies) {
    if (&subject != &options.movies.front()) std::cout << '\n';
    try {
      clipinfo::PrintSummary(clipinfo::OpenMovie(subject.file));
    } catch (...) {
      const toolbox::Failure failure = clipinfo::CaughtFailure(subject.file);
      std::cout.flush();
      std::cerr << "clipinfo: " << clipinfo::LineFor(failure) << '\n';
      status = 1;
    }
  }
  return status;
}

int Run(const clipinfo::Options& options) {
  switch (options.mode) {
    case clipinfo::Mode::kCheck:
      return clipinfo::Check(options);
    case clipinfo::Mode::kSame:
      return clipinfo::Compare(options);
    case clipinfo::Mode::kPicture:
      return clipinfo::WritePicture(options);
    case clipinfo::Mode::kAtoms:
      return clipinfo::PrintAtoms(options.movies.front().file);
    case clipinfo::Mode::kSummary:
      break;
  }
  return options.isJson ? clipinfo::PrintJson(options) : PrintSummaries(options);
}

}  // namespace

int main(int count, char** arguments) try {
  clipjoin::OpenStandardStreams();
  clipjoin::HandleSignals();
  const auto options =
      clipinfo::ParseOptions({arguments + 1, static_cast<std::size_t>(count > 0 ? count - 1 : 0)});
  if (!options) {
    std::cerr << clipinfo::kUsage;
    return 2;
  }
  const int status = Run(*options);
  std::cout.flush();
  return std::cout ? status : 1;
} catch (const std::exception& escaped) {
  std::cerr << "clipinfo: " << utils::Visible(escaped.what()) << '\n';
  return 1;
}
