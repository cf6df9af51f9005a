// The chapters of a movie: read from its chapter tracks, filtered, made into a new one.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "toolbox/toolbox.h"

namespace clipjoin {
struct FileOptions;
}

namespace chapter {

struct Chapter {
  std::int32_t scale = 600;  // units per second
  std::int64_t start = 0;  // on the movie's time line
  std::int64_t duration = 0;  // 0 until a chapter track is built
  std::string title;  // UTF-8
};

// The samples of the text tracks that others name as their chapters, track by track in the order
// in which they are named, in time order within each. Times are the movie's.
std::vector<Chapter> ReadChapters(toolbox::Movie movie);
bool HasChapters(toolbox::Movie movie);
// The title that a text sample holds, as UTF-8. What is cut short ends where the sample does.
std::string ChapterTitle(toolbox::ByteSpan sample);

// Prints the list of chapters, when the options ask for it, and takes those that they do not keep
// out of the movie, with what is shown meanwhile.
void FilterChapters(toolbox::Movie movie, const clipjoin::FileOptions& options);

// Takes away the list of chapters that some files keep beside their chapter track, or in its place:
// its times hold for the movie as it came.
void DropList(toolbox::Movie movie);
// The same where there is a track: whoever adds to the movie adds to the track alone.
void DropStaleList(toolbox::Movie movie);

// A new disabled text track with a sample a chapter, sorted by time and each lasting until the
// next. Chapters that start behind the movie's end are told and left out. Null when there is
// nothing to build; also when a call fails, which has been reported.
toolbox::Track BuildChapterTrack(std::vector<Chapter> chapters, toolbox::Movie movie);
// Makes `target`, or the first enabled track that is seen, else heard, the one track of the movie
// that refers to the chapter track. trackNotInMovie when there is none.
[[nodiscard]] toolbox::OSErr AddChapterReference(toolbox::Movie movie, toolbox::Track chapterTrack,
                                                 toolbox::Track target);
// Both; when nothing was built, the movies error.
[[nodiscard]] toolbox::OSErr AddChapterTrack(const std::vector<Chapter>& chapters,
                                             toolbox::Movie movie, toolbox::Track target);

}  // namespace chapter
