// The steps that save a movie into the file that it was read from.
#pragma once

#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/new_file_steps.h"
#include "toolbox/plan/plan.h"
#include "toolbox/read/file_outline.h"

namespace toolbox {

// The changes in place come first. If that is not enough, `newFile` then writes a file that
// replaces the old one.
struct UpdateSteps {
  std::vector<Stage> inPlace;
  std::vector<Stage> newFile;  // empty: everything is done in place
};

// Plans an update during which the file always has one complete movie, the old or the new one, even
// after a power cut:
//
//   ... | old moov | mdat |                       before
//   ... | old moov | mdat | new moov |            appended, or put into free room; synced
//   ... | free     | mdat | new moov |            type of the old movie changed; synced
//
// If a step fails, the steps of `undo` restore the old movie. A new file is necessary in three
// cases: the file ends with bytes that are no atom; its last atom extends "to the end" and has no
// room for a size; or the movie has fragments, which become ordinary sample tables.
//
// `plan` comes from PlanUpdate; this function sets its shifts and, in a new file, the offsets in
// 'gps ' of its movie. If the data of 'gps ' would move beyond 4 GiB, the atom is left out. Throws
// Refused: featureUnsupported (the old movie contains auxiliary information that encrypted samples
// need, or a new file would move items of a 'meta').
//
// startNewFile() is called if a new file is necessary. It returns the FilePlan::unit of that file.
UpdateSteps StepsForUpdate(FilePlan& plan, const FileOutline& file, PlannedHeader& header,
                           const std::function<std::uint64_t()>& startNewFile);

}  // namespace toolbox
