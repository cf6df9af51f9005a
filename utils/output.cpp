#include "utils/output.h"

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <initializer_list>
#include <iostream>
#include <set>
#include <string_view>
#include <vector>

#include "clipjoin/report.h"
#include "utils/movie_file.h"
#include "utils/mpeg4_compatibility.h"
#include "utils/mpeg4_export.h"
#include "utils/visible.h"

namespace utils {
namespace {

// The extension with its dot: the last path component from its last '.' on. It is safe to print.
std::string Extension(const std::string& path) {
  return Visible(boost::filesystem::path(path).extension().native());
}

bool IsOneOf(const std::string& extension, std::initializer_list<std::string_view> names) {
  return std::ranges::find(names, extension) != names.end();
}

void WarnAboutExtension(const std::string& extension, const char* program) {
  if (IsOneOf(extension, {".m4v", ".m4a", ".mp4", ".m4b"})) {
    std::cerr << "Warning: if you want to create an MPEG-4 or AAC file, you must use\n"
                 "the -mp4 option. By default "
              << program << " produces QuickTime\nmovies. Using a " << extension
              << " extension may be confusing.\n";
  } else if (!IsOneOf(extension, {"", ".mov"})) {
    std::cerr << "Warning: " << program << " produces QuickTime movies\nUsing a " << extension
              << " extension may confuse some programs.\n"
                 "Use no extension or a .mov extension.\n";
  }
}

// Makes the movie print a notice when it copies media from a file that is not an input, because a
// movie from elsewhere could refer to a private file. If an export is tried again, the notice is
// not repeated.
void NoteForeignMedia(toolbox::Movie movie, const std::vector<std::string>& inputs) {
  toolbox::SetMovieSourceProc(
      movie, [inputs, printed = std::set<std::string>()](const std::string& path) mutable {
        const auto isPath = [&path](const std::string& input) {
          boost::system::error_code unknown;
          return boost::filesystem::equivalent(input, path, unknown);
        };
        if (std::ranges::none_of(inputs, isPath) && printed.insert(path).second) {
          std::cerr << "Copying media from " << Visible(path) << ".\n";
        }
      });
}

int WriteQuickTime(toolbox::Movie movie, const std::string& path,
                   const clipjoin::OutputOptions& options, std::size_t inputs) {
  if (!options.quiet) {
    if (!options.selfContained) {
      std::cerr << "A non-self-contained movie is being created. Do not delete your original movie"
                << (inputs > 1 ? "s" : "") << ".\n";
    }
    WarnAboutExtension(Extension(path), clipjoin::CommandName(options.mode));
  }
  writeMovie(movie, path, options.selfContained, options.flattenFlags, !options.quiet);
  return 0;
}

// Printed even with -q: nothing is written.
void Refuse(bool forcesSameTracks) {
  std::cerr << "The file cannot be output as MPEG-4 without conversion.\n";
  if (forcesSameTracks) {
    std::cerr << "You can convert the file with iTunes (if audio only), QuickTime Pro, or "
                 "convtool.\nType \"man Reelwork\" for more information.\n";
  } else {
    std::cerr << "Try using the -force-same-tracks option.\n";
  }
}

int WriteMPEG4(toolbox::Movie movie, const std::string& path,
               const clipjoin::OutputOptions& options) {
  constexpr int kRefused = 4;
  if (!isMPEG4Compatible(movie)) {
    Refuse(options.forceSameTracks);
    return kRefused;
  }
  const std::string extension = Extension(path);
  // ".m4v" also causes the warning, which names only the other three extensions.
  if (!options.quiet && !IsOneOf(extension, {"", ".mp4", ".m4a", ".m4b"})) {
    std::cerr << "Warning: the \"-mp4\" option produces MPEG-4 files\nUsing a " << extension
              << " extension may confuse some programs.\n"
                 "Use no extension or .mp4, .m4a, or .m4b.\n";
  }
  if (!options.quiet && HasAnnotations(movie)) {
    std::cerr << "Warning: the movie has annotations that will not appear in the output file.\n"
                 "iTunes can be used to manually add annotations to m4a files.\n";
  }
  clipjoin::Report({"writeMovieToMPEG4", clipjoin::kClipjoinSource},
                   writeMovieToMPEG4(movie, path, !options.quiet));
  return 0;
}

}  // namespace

std::string desktopFolderPath() {
  toolbox::FSRef folder;
  clipjoin::Report(
      {"FSFindFolder", clipjoin::kClipjoinSource},
      toolbox::FSFindFolder(toolbox::kUserDomain, toolbox::kDesktopFolderType, true, &folder));
  // If the folder was not found, this call fails, and its error is printed too. The call does not
  // say how much room it needs.
  std::vector<unsigned char> path(128);
  toolbox::OSErr code = toolbox::FSRefMakePath(&folder, path.data(), 128);
  while (code != toolbox::noErr) {
    std::cerr << "Error was " << code << '\n';
    if (code != toolbox::pathTooLongErr) return {};
    path.resize(2 * path.size());
    code = toolbox::FSRefMakePath(&folder, path.data(), static_cast<std::uint32_t>(path.size()));
  }
  return {path.begin(), std::ranges::find(path, 0)};
}

int finishOutput(toolbox::Movie movie, const clipjoin::OutputOptions& options,
                 const std::vector<std::string>& inputs) {
  if (!options.quiet) NoteForeignMedia(movie, inputs);
  const std::string path =
      options.outputPath
          ? *options.outputPath
          : (boost::filesystem::path(desktopFolderPath()) / (options.mpeg4 ? "out.mp4" : "out.mov"))
                .native();
  return options.mpeg4 ? WriteMPEG4(movie, path, options)
                       : WriteQuickTime(movie, path, options, inputs.size());
}

}  // namespace utils
