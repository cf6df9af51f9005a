// The steps that save a movie into the file it came from.
#pragma once

#include <vector>

#include "toolbox/disk/perform.h"
#include "toolbox/plan/new_file_steps.h"
#include "toolbox/plan/plan.h"
#include "toolbox/read/file_outline.h"

namespace toolbox {

// First the file is changed in place. Where a new file takes its place, that one is written after
// it.
struct UpdateSteps {
  std::vector<Stage> inPlace;
  std::vector<Stage> newFile;  // empty: everything is done in place
};

// At every instant the file holds one whole movie, the old or the new one, also after a power cut:
//
//   ... | old moov | mdat |                       as it was
//   ... | old moov | mdat | new moov |            appended (or put where there is room), synced
//   ... | free     | mdat | new moov |            the old one's type changed, synced
//
// When a step fails, the undoing steps leave the old movie. Nothing can be appended after bytes
// that are no atom, nor after media data "to the end" that has no room for a size. A new file then
// takes the place of the old one. So it does for a movie in fragments, which gets ordinary tables.
//
// `plan` comes from PlanUpdate; its shifts are set here. Throws Refused: featureUnsupported (the
// old movie has what encrypted samples are decrypted by, or items that a new file would move).
UpdateSteps StepsForUpdate(FilePlan& plan, const FileOutline& file, PlannedHeader& header);

}  // namespace toolbox
