#include "clipjoin/gather_chapters.h"

#include <fstream>
#include <iostream>
#include <optional>
#include <tuple>
#include <utility>

#include "chapter/annotations.h"
#include "chapter/chapter.h"
#include "chapter/xml.h"
#include "clipjoin/report.h"
#include "input/track_names.h"
#include "utils/owned_handle.h"

namespace clipjoin {
namespace {

using toolbox::Movie;
using toolbox::Track;

// The file name in `path` without its extension.
std::string PlainName(const std::string& path) {
  const std::string name = path.substr(path.rfind('/') + 1);
  return name.substr(0, name.rfind('.'));
}

// The title of the chapter for an input: -chapter-name, the movie's full name or the file name.
std::string AutomaticTitle(const FileOptions& file, Movie movie) {
  if (!file.chapterName.empty()) return file.chapterName;
  const std::string title = chapter::GetMovieFullName(movie);
  return title.empty() ? PlainName(file.path) : title;
}

// The track named by -chapter-track. Null if there is no name, no track with that name (printed
// with the names there are), or if that track is no text track (printed).
Track NamedChapterTrack(Movie movie, const std::optional<std::string>& name) {
  if (!name) return nullptr;
  const Track track = input::FindTrackByName(movie, *name);
  if (track == nullptr) {
    std::cerr << "No track named " << *name << " found in final movie.\nTrack names:\n";
    for (const std::string& other : input::TrackNames(movie)) std::cerr << other << '\n';
    return nullptr;
  }
  toolbox::FourCC type;
  toolbox::GetMediaHandlerDescription(toolbox::GetTrackMedia(track), &type, nullptr, nullptr);
  if (type == toolbox::FourCC{"text"}) return track;
  std::cerr << "The track named " << *name << " is a " << input::KindName(track)
            << " track.\nChapter tracks must be text tracks.\n";
  return nullptr;
}

// Keeps the samples of media that are added to the movie in memory until the movie is written: it
// goes to another file than the one it was read from.
void KeepNewMediaInMemory(Movie movie) {
  constexpr toolbox::FourCC kMemory{"hndl"};
  constexpr std::int64_t kHandleSize = 4;
  const utils::OwnedHandle reference(kHandleSize);
  std::ignore = toolbox::SetMovieDefaultDataRef(movie, reference, kMemory);
}

}  // namespace

void AddAutomaticChapter(const OutputOptions& wanted, const FileOptions& file, Movie movie,
                         Movie output, std::vector<Chapter>& chapters) {
  if (!wanted.autoChapters) return;
  if (wanted.autoChaptersMerge && chapter::HasChapters(movie)) return;
  Chapter added;
  added.scale = toolbox::GetMovieTimeScale(output != nullptr ? output : movie);
  added.start = output != nullptr ? toolbox::GetMovieDuration(output) : 0;
  added.title = AutomaticTitle(file, movie);
  chapters.push_back(std::move(added));
}

void AttachChapters(Movie output, const OutputOptions& wanted, bool savesInPlace,
                    std::vector<Chapter> chapters) {
  // -auto-chapters discards the chapters that the inputs have.
  if (wanted.autoChaptersMerge || (wanted.addedChaptersSeen && !wanted.autoChapters)) {
    for (Chapter& kept : chapter::ReadChapters(output)) chapters.push_back(std::move(kept));
  }
  const Track named = NamedChapterTrack(output, wanted.chapterTrackName);
  toolbox::OSErr code = toolbox::noErr;
  if (!chapters.empty()) {
    if (!savesInPlace) KeepNewMediaInMemory(output);
    code = chapter::AddChapterTrack(chapters, output, nullptr);
  } else if (named != nullptr) {
    code = chapter::AddChapterReference(output, named, nullptr);
  }
  Report({"chapter::AddChapterTrack", kClipjoinSource}, code);
}

void WriteChapterXml(Movie output, const OutputOptions& wanted) {
  if (!wanted.chapterToolXml) return;
  std::ofstream file(*wanted.chapterToolXml, std::ios::trunc);
  if (file) chapter::WriteChapterToolXml(file, chapter::ReadChapters(output));
}

}  // namespace clipjoin
