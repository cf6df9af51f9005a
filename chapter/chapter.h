// The chapters of a movie: reading and filtering them, and building a chapter track.
//
// A chapter track is a text track that another track refers to with 'chap'. Each of its samples is
// the title of a chapter, shown for as long as the chapter lasts.
#pragma once

#include <string>
#include <vector>

#include "clipjoin/options.h"
#include "toolbox/toolbox.h"

namespace chapter {

using clipjoin::Chapter;

// The chapters in all chapter tracks of the movie: track by track in the order of the references,
// and in time order within a track. Times are in movie units.
std::vector<Chapter> ReadChapters(toolbox::Movie movie);
bool HasChapters(toolbox::Movie movie);
// The title in a text sample, as UTF-8. A truncated sample gives the part that is there.
std::string ChapterTitle(toolbox::ByteSpan sample);

// Lists the chapters on standard output if the options say so, and cuts the chapters that are not
// kept out of the movie, with everything that is shown during them.
void FilterChapters(toolbox::Movie movie, const clipjoin::FileOptions& options);

// Removes the chapter list ('chpl' user data) that some files have beside a chapter track or
// instead of one. Call this when times in the movie change: the list would keep the old times.
void DropList(toolbox::Movie movie);
// Does so only if the movie has a chapter track. Call this when chapters are added, because they go
// into the track alone.
void DropStaleList(toolbox::Movie movie);

// Adds a new, disabled text track with one sample for each chapter. The chapters are sorted by
// time, and each lasts until the next. If chapters start after the end of the movie, prints the
// first of them and leaves them all out. Returns null if no chapter is left or a call failed, which
// has been reported.
toolbox::Track BuildChapterTrack(std::vector<Chapter> chapters, toolbox::Movie movie);
// Makes `target` the only track that refers to `chapterTrack`. A null target is the first enabled
// visual track or, without one, the first enabled sound track. Failures are reported.
// trackNotInMovie if there is no such track.
[[nodiscard]] toolbox::OSErr AddChapterReference(toolbox::Movie movie, toolbox::Track chapterTrack,
                                                 toolbox::Track target);
// Builds a chapter track and adds the reference to it. Returns the movies error if no track was
// built.
[[nodiscard]] toolbox::OSErr AddChapterTrack(const std::vector<Chapter>& chapters,
                                             toolbox::Movie movie, toolbox::Track target);

}  // namespace chapter
