// The chapters of the output: collected during the run, then added to the movie and to an XML file.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "clipjoin/options.h"

namespace clipjoin {

// With -auto-chapters, appends one chapter for `movie`, which is about to be added to the end of
// `output` (null: is about to become the output). With -auto-chapters-merge only if `movie` has no
// chapters of its own.
void AddAutomaticChapter(const OutputOptions& wanted, const FileOptions& file, toolbox::Movie movie,
                         toolbox::Movie output, std::vector<Chapter>& chapters);

// Gives `output` a chapter track as `wanted` asks. It is a new track with `chapters` and, if they
// are to be kept, the chapters that `output` has. If there are none of either, it is the track
// named by -chapter-track. Failures are reported. With `savesInPlace`, the text of the chapters
// goes into the movie's own file; otherwise it stays in memory until the output is written.
void AttachChapters(toolbox::Movie output, const OutputOptions& wanted, bool savesInPlace,
                    std::vector<Chapter> chapters);

// Writes the chapters to the file for -chapter-tool-xml, as utils::WriteTextFile does. If that
// fails, prints why; it does not count as a failure of the run.
void WriteChapterXml(std::span<const Chapter> chapters, const std::string& path);

}  // namespace clipjoin
