#include "input/input_movie.h"

#include <iostream>
#include <tuple>

#include "chapter/annotations.h"
#include "clipjoin/report.h"
#include "input/edits.h"
#include "utils/movie_file.h"

namespace input {
namespace {

// kExistenceHint is printed once a run.
bool hintWasGiven = false;

constexpr char kQuotingHint[] =
    "Make sure that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";
constexpr char kExistenceHint[] =
    "Make sure the file exists and that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";

// Prints why the input cannot be opened.
void Explain(const clipjoin::FileOptions& options, toolbox::OSErr code) {
  const std::string& path = options.path;
  switch (code) {
    case toolbox::noMovieFound:
      std::cerr << path << " does not appear to be a valid movie file. Skipping it.\n";
      break;
    case toolbox::couldNotResolveDataRef:
      std::cerr << path << " does not exist. " << kQuotingHint;
      break;
    case toolbox::afpAccessDenied:
      std::cerr << "Permissions error reading " << path << '\n';
      if (options.saveInPlace) std::cerr << "Make sure the movie file is readable and writeable\n";
      break;
    default:
      std::cerr << "Error " << code << " reading " << path << '\n';
      if (!hintWasGiven) std::cerr << kExistenceHint;
      hintWasGiven = true;
  }
}

}  // namespace

InputMovie::~InputMovie() {
  if (storage_ != nullptr) std::ignore = toolbox::CloseMovieStorage(storage_);
  if (movie_ != nullptr) toolbox::DisposeMovie(movie_);
}

toolbox::Movie InputMovie::Open() {
  const unsigned access = options.saveInPlace ? utils::kRead | utils::kWrite : utils::kRead;
  try {
    movie_ = utils::OpenMovie(options.path, access, options.openFlags, &storage_);
    isOpen_ = true;
  } catch (const clipjoin::QTError& error) {
    Explain(options, error.Code());
    return movie_ = toolbox::NewMovie(0);
  }
  EditMovie(movie_, options);
  if (!options.noTagConversion) chapter::ConvertMovieTags(movie_);
  if (!options.saveInPlace) {
    std::ignore = toolbox::CloseMovieStorage(std::exchange(storage_, nullptr));
  }
  return movie_;
}

void InputMovie::SaveInPlace() {
  if (!options.saveInPlace || movie_ == nullptr || storage_ == nullptr) return;
  clipjoin::Report({"UpdateMovieInStorage", clipjoin::kUtilsSource},
                   toolbox::UpdateMovieInStorage(movie_, storage_));
  std::ignore = toolbox::CloseMovieStorage(std::exchange(storage_, nullptr));
}

}  // namespace input
