// The chapters that a run gathers for its output, and what becomes of them.
#pragma once

#include <vector>

#include "clipjoin/command_line.h"

namespace clipjoin {

// Appends the chapter that stands for an input about to be joined to `output` (null: about to
// become it), when the run is to have such and does not use the input's own.
void AddAutomaticChapter(const OutputOptions& wanted, const FileOptions& file, toolbox::Movie movie,
                         toolbox::Movie output, std::vector<chapter::Chapter>& chapters);

// Gives the joined output the chapter track that the command line asks for: one of `chapters` and,
// where they are to be kept, of those already there; or a track that it names.
void AttachChapters(toolbox::Movie output, const CommandLine& line,
                    std::vector<chapter::Chapter> chapters);

// Writes the chapters of the output into the file for them, if one is asked for. A file that cannot
// be made is passed over.
void WriteChapterXml(toolbox::Movie output, const OutputOptions& wanted);

}  // namespace clipjoin
