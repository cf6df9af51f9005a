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
// kept out of the movie, with everything that is shown during them. Warns about names that no
// chapter has.
void FilterChapters(toolbox::Movie movie, const clipjoin::FileOptions& options);

// The chapters sorted by time, each of which lasts until the next, and the last one until the end
// of the movie. If chapters start after the end of the movie, prints the first of them and leaves
// them all out.
std::vector<Chapter> Arranged(std::vector<Chapter> chapters, toolbox::Movie movie);

// Where the titles of new chapters go: to the movie's default data reference, or to a block of
// memory until the movie is written.
enum class Samples { kDefaultPlace, kInMemory };

// Adds a new, disabled text track with one sample for each chapter, after arranging them. Returns
// null if no chapter is left or a call failed, which has been reported.
toolbox::Track BuildChapterTrack(std::vector<Chapter> chapters, toolbox::Movie movie,
                                 Samples samples = Samples::kDefaultPlace);
// Makes `chapterTrack` the only chapter track, and `target` the only track that refers to it. A
// null target means the first enabled visual track or, without one, the first enabled sound track.
// Of the text tracks that were chapter tracks before, discards those that are disabled and that no
// other track refers to. Failures are reported, except trackNotInMovie: there is no target.
[[nodiscard]] toolbox::OSErr AddChapterReference(toolbox::Movie movie, toolbox::Track chapterTrack,
                                                 toolbox::Track target);
// Builds a chapter track and adds the reference to it. Returns the movies error if no track was
// built.
[[nodiscard]] toolbox::OSErr AddChapterTrack(const std::vector<Chapter>& chapters,
                                             toolbox::Movie movie, toolbox::Track target,
                                             Samples samples = Samples::kDefaultPlace);

}  // namespace chapter
