// Reads the samples in movie fragments ('moof', ISO/IEC 14496-12 8.8) into the rows of their
// tracks, so that nothing after the reader has to know of fragments.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/track.h"
#include "toolbox/read/read_edits.h"

namespace toolbox {

// A track that may have samples in fragments.
struct FragmentedTrack {
  const TrackRecord* track = nullptr;  // has the id and the sample descriptions
  std::shared_ptr<SampleRows> rows;  // the samples of the movie header; null without media
  FragmentTimes times;  // set by ReadFragments; the rows always start at 0
  // Set by ReadFragments: the gaps in time between fragments. The sample before a gap becomes
  // longer to fill it. Text must still not be shown during the gap.
  std::vector<MediaStretch> gaps;
};

// Adds the samples of all fragments of `source` to the rows of their tracks. `extends` has the
// defaults of each track ('trex', 8.8.3). The sample data is not read.
//
//   in the file   | moov | moof mdat | moof mdat | moof md
//   in the rows   | 'moov' | fragment 1, longer | fragment 2 |
//
// Here fragment 1 ends before fragment 2 starts, so its last sample becomes longer. Fragment 3 is
// incomplete, so it is left out.
//
// Throws Malformed, or Refused (featureUnsupported) if samples are encrypted and the data that
// decrypts them cannot be found, if keys change between fragments, or if the samples of a track
// cannot be in one sample table.
void ReadFragments(const ByteSource& source, const MovieExtends& extends,
                   std::span<FragmentedTrack> tracks);

}  // namespace toolbox
