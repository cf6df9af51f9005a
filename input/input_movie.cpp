#include "input/input_movie.h"

#include <iostream>
#include <tuple>

#include "clipjoin/report.h"
#include "utils/movie_file.h"

namespace input {
namespace {

// The hint is worth giving once a run.
bool hintWasGiven = false;

constexpr char kQuotingHint[] =
    "Make sure that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";
constexpr char kExistenceHint[] =
    "Make sure the file exists and that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";

void Explain(const std::string& path, toolbox::OSErr code) {
  switch (code) {
    case toolbox::noMovieFound:
      std::cerr << path << " does not appear to be a valid movie file. Skipping it.\n";
      break;
    case toolbox::couldNotResolveDataRef:
      std::cerr << path << " does not exist. " << kQuotingHint;
      break;
    case toolbox::afpAccessDenied:
      std::cerr << "Permissions error reading " << path << '\n';
      break;
    default:
      std::cerr << "Error " << code << " reading " << path << '\n';
      if (!hintWasGiven) std::cerr << kExistenceHint;
      hintWasGiven = true;
  }
}

}  // namespace

InputMovie::~InputMovie() {
  if (movie_ != nullptr) toolbox::DisposeMovie(movie_);
}

toolbox::Movie InputMovie::Open() {
  toolbox::DataHandler storage = nullptr;
  try {
    movie_ = utils::OpenMovie(options.path, utils::kRead, options.openFlags, &storage);
  } catch (const clipjoin::QTError& error) {
    Explain(options.path, error.Code());
    return movie_ = toolbox::NewMovie(0);
  }
  std::ignore = toolbox::CloseMovieStorage(storage);
  return movie_;
}

}  // namespace input
