// Sample groups as files state them, of all samples of a track or of those of one fragment: 'sgpd',
// 'sbgp' and 'csgp', ISO/IEC 14496-12 8.9.
#pragma once

#include <cstdint>
#include <vector>

#include "toolbox/atoms/framing.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

// Gives `rows`, whose count is known, the groups that the sample table states. Throws Malformed.
void ReadSampleGroups(Children& table, SampleRows& rows);

// The groups of one grouping that a fragment puts the samples of a track in.
struct FragmentGroups {
  SampleGroup group;  // runs count from the first sample there; descriptions: the fragment's own
  std::uint32_t mapped = 0;  // samples that are spoken of
};

// What a 'traf' says of its `samples` samples. Throws Malformed.
std::vector<FragmentGroups> ReadFragmentGroups(Children& fragment, std::uint32_t samples);

// Puts the samples that will follow those in `rows` into those groups. Throws Malformed.
void AddFragmentGroups(const FragmentGroups& added, SampleRows& rows);

// More samples will follow than the groups of `rows` speak of.
void EndSampleGroups(SampleRows& rows);

}  // namespace toolbox
