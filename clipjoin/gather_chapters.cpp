#include "clipjoin/gather_chapters.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <optional>
#include <sstream>

#include "chapter/annotations.h"
#include "chapter/chapter.h"
#include "chapter/xml.h"
#include "clipjoin/report.h"
#include "input/track_names.h"
#include "utils/text_file.h"
#include "utils/tracks.h"
#include "utils/visible.h"

namespace clipjoin {
namespace {

using toolbox::Movie;
using toolbox::Track;

// The file name in `path` without its extension.
std::string PlainName(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

// The title of the chapter for an input: -chapter-name, the movie's full name or the file name. The
// first of these that is not empty is used.
std::string AutomaticTitle(const FileOptions& file, Movie movie) {
  if (!file.chapterName.empty()) return file.chapterName;
  const std::string title = chapter::GetMovieFullName(movie);
  return title.empty() ? PlainName(file.path) : title;
}

// The track named by -chapter-track. Null if there is no such option, if no track has that name, or
// if that track is not a text track; in the last two cases a message says why.
Track NamedChapterTrack(Movie movie, const std::optional<std::string>& name) {
  if (!name) return nullptr;
  const std::vector<std::string> names = input::TrackNames(movie);
  const Track track = input::TrackNamed(*name, movie, names);
  if (track == nullptr) {
    std::cerr << "No track named " << utils::Visible(*name)
              << " found in final movie.\nTrack names:\n";
    for (const std::string& other : names) std::cerr << utils::Visible(other) << '\n';
    return nullptr;
  }
  if (utils::MediaType(track) == toolbox::FourCC{"text"}) return track;
  std::cerr << "The track named " << utils::Visible(*name) << " is a " << input::KindName(track)
            << " track.\nChapter tracks must be text tracks.\n";
  return nullptr;
}

}  // namespace

void AddAutomaticChapter(const OutputOptions& wanted, const FileOptions& file, Movie movie,
                         Movie output, std::vector<Chapter>& chapters) {
  if (!wanted.autoChapters) return;
  if (wanted.autoChaptersMerge && chapter::HasChapters(movie)) return;
  chapters.push_back({.scale = toolbox::GetMovieTimeScale(output != nullptr ? output : movie),
                      .start = output != nullptr ? toolbox::GetMovieDuration(output) : 0,
                      .title = AutomaticTitle(file, movie)});
}

void AttachChapters(Movie output, const OutputOptions& wanted, bool savesInPlace,
                    std::vector<Chapter> chapters) {
  // The chapters that the output has are kept with -auto-chapters-merge, and with -add-chapter
  // unless -auto-chapters is given too.
  if (wanted.autoChaptersMerge || (wanted.addedChaptersSeen && !wanted.autoChapters)) {
    std::ranges::move(chapter::ReadChapters(output), std::back_inserter(chapters));
  }
  // Looked up even if it is not used, because its messages are printed in any case.
  const Track named = NamedChapterTrack(output, wanted.chapterTrackName);
  toolbox::OSErr code = toolbox::noErr;
  if (!chapters.empty()) {
    const auto samples =
        savesInPlace ? chapter::Samples::kDefaultPlace : chapter::Samples::kInMemory;
    code = chapter::AddChapterTrack(chapters, output, nullptr, samples);
  } else if (named != nullptr) {
    code = chapter::AddChapterReference(output, named, nullptr);
  }
  Report({"chapter::AddChapterTrack", kClipjoinSource}, code);
}

void WriteChapterXml(std::span<const Chapter> chapters, const std::string& path) {
  std::ostringstream text;
  chapter::WriteChapterToolXml(text, chapters);
  const std::string reason = utils::WriteTextFile(path, text.str());
  if (!reason.empty())
    std::cerr << "Cannot write " << utils::Visible(path) << ": " << reason << '\n';
}

}  // namespace clipjoin
