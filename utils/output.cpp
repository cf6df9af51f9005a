#include "utils/output.h"

#include <iostream>

#include "utils/movie_file.h"

namespace utils {

void FinishOutput(toolbox::Movie movie, const clipjoin::CommandLine& line) {
  const clipjoin::OutputOptions& options = line.output;
  if (!options.quiet && !options.selfContained) {
    std::cerr << "A non-self-contained movie is being created. Do not delete your original movie"
              << (line.inputs.size() > 1 ? "s" : "") << ".\n";
  }
  WriteMovie(movie, options.outputPath.value_or("out.mov"), options.selfContained,
             options.flattenFlags);
}

}  // namespace utils
