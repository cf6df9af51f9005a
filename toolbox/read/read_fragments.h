// The samples that lie in fragments behind a movie header ('moof', ISO/IEC 14496-12 8.8): to the
// rows of their tracks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/sample_rows.h"
#include "toolbox/read/read_edits.h"

namespace toolbox {

// A track that may have samples in fragments.
struct FragmentedTrack {
  std::uint32_t id = 0;
  std::size_t descriptions = 0;  // how many it has
  SampleRows* rows = nullptr;  // as the movie header states them; more are added
  // Where the decode time 0 of the rows stands on the time line of the fragments, in media units.
  std::int64_t start = 0;
  // Between fragments, where the sample before would be shown on: text is over when it is over.
  std::vector<MediaStretch> gaps;
};

// Adds the samples of all fragments of `source` to the rows of their tracks. `extends` has
// the defaults for them. Only what describes the fragments is read, never the samples.
//
//   header | moof mdat | moof mdat | moof md          cut short: the third fragment is left out
//   0      first's time  gap: the sample before it becomes longer, and the track has a gap there
//
// Throws Malformed, or Refused: featureUnsupported (samples are encrypted, and it is not said where
// what decrypts them lies, or keys change on the way).
void ReadFragments(const ByteSource& source, const MovieExtends& extends,
                   std::span<FragmentedTrack> tracks);

}  // namespace toolbox
