#include "input/input_movie.h"

#include <iostream>
#include <tuple>

#include "chapter/annotations.h"
#include "clipjoin/report.h"
#include "input/edits.h"
#include "utils/movie_file.h"
#include "utils/visible.h"

namespace input {
namespace {

// Whether kExistenceHint was printed. It is printed once per run, because one mistake in quoting
// can make many names wrong.
bool hintWasPrinted = false;

constexpr char kQuotingHint[] =
    "Make sure that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";
constexpr char kExistenceHint[] =
    "Make sure the file exists and that special characters are properly quoted or\n"
    "escaped. You may wish to drag the file from the Finder into the Terminal window.\n";

// Prints why the input cannot be opened.
void Explain(const clipjoin::FileOptions& options, toolbox::OSErr code) {
  const std::string path = utils::Visible(options.path);
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
      if (!hintWasPrinted) std::cerr << kExistenceHint;
      hintWasPrinted = true;
  }
}

}  // namespace

toolbox::Movie InputMovie::Open() {
  try {
    std::tie(movie_, storage_) =
        utils::OpenMovie(options.path, options.saveInPlace, options.openFlags);
    isOpen_ = true;
  } catch (const clipjoin::QTError& error) {
    Explain(options, error.code);
    movie_.reset(toolbox::NewMovie(0));
    return movie_.get();
  }
  chapters_ = EditMovie(movie_.get(), options);
  if (!options.noTagConversion) chapter::ConvertMovieTags(movie_.get());
  if (!options.saveInPlace) storage_.reset();
  return movie_.get();
}

void InputMovie::SaveInPlace() {
  if (storage_ == nullptr) return;
  clipjoin::Report({"UpdateMovieInStorage", clipjoin::kUtilsSource},
                   toolbox::UpdateMovieInStorage(movie_.get(), storage_.get()));
  storage_.reset();
}

}  // namespace input
