// What a track shows, as few enough blocks to draw.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "clipinfo/source_files.h"
#include "toolbox/movie/track.h"

namespace clipinfo {

// A part of an edit whose media is in one file, or several short neighbors.
struct EditBlock {
  toolbox::MovieTime from, until;
  const toolbox::Edit* edit = nullptr;  // the first
  std::size_t number = 1;  // of that edit, from 1
  std::size_t edits = 1;  // how many edits it has a part of
  std::optional<std::size_t> file;  // nothing: no file, or several
  bool isMerged = false;  // it has several parts that are shorter than can be drawn

  bool IsEmpty() const { return !isMerged && edit->IsEmpty(); }
};

// The blocks of a track, one after the other. `runs` are those of its media. Neighbors that are
// shorter than `shortest` (> 0) are merged, so there are at most about twice as many blocks as
// would fit. They refer to the edits of the track.
std::vector<EditBlock> BlocksOf(const toolbox::TrackRecord& track, const std::vector<FileRun>& runs,
                                toolbox::MovieTime shortest);

// A part of a media.
struct MediaPart {
  toolbox::MediaTime from, until;
};

// The media time that a block shows; not of a merged or an empty one.
MediaPart MediaOf(const toolbox::TrackRecord& track, const EditBlock& block);

// When the first sample starts to be shown, and when all have ended.
MediaPart WholeMedia(const toolbox::SampleTable& samples);

// The parts of the media of a track that edits show, in order. Parts less than `closest` apart are
// joined.
std::vector<MediaPart> ShownMedia(const toolbox::TrackRecord& track, toolbox::MediaTime closest);

// When the sync samples that a block shows start to be shown, in order. Empty if there are more
// than `most`.
std::vector<toolbox::MovieTime> SyncTimes(const toolbox::TrackRecord& track, const EditBlock& block,
                                          std::uint64_t most);

}  // namespace clipinfo
