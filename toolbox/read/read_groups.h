// Sample groups as files state them, of all samples of a track or of those of one fragment: 'sgpd',
// 'sbgp' and 'csgp', ISO/IEC 14496-12 8.9.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

using SampleGroupAtoms = std::vector<SampleGroupAtom>;

// Gives `rows`, whose count is known, the groups that the sample table states. Throws Malformed.
void ReadSampleGroups(const SampleGroupAtoms& atoms, SampleRows& rows);

// The groups of one grouping that a fragment puts the samples of a track in.
struct FragmentGroups {
  SampleGroup group;  // runs count from the first sample there; descriptions: the fragment's own
  std::uint32_t mapped = 0;  // samples that are spoken of
};

// What a 'traf' says of its `samples` samples. Throws Malformed.
std::vector<FragmentGroups> ReadFragmentGroups(const SampleGroupAtoms& atoms,
                                               std::uint32_t samples);

// Puts the samples of one fragment after the other into groups.
class FragmentGrouper {
 public:
  // `rows` must outlive it.
  explicit FragmentGrouper(SampleRows& rows) : rows_(rows) {}

  // Samples will follow those in the rows.
  void Begin();
  // Puts those that will follow into those groups. Throws Malformed.
  void Add(const FragmentGroups& added);
  // Once all are there.
  void Finish();

 private:
  // The descriptions of one grouping, by all fragments so far.
  struct Known {
    std::vector<Bytes> entries;  // number 1 first
    std::map<Bytes, std::uint32_t> numbers;
    std::uint32_t standard = 0;  // of samples that no map speaks of
    bool isReadable = true, isLonger = false;  // than the movie header has it

    std::uint32_t NumberOf(ByteSpan entry);
  };

  Bytes& DescriptionsOf(FourCC grouping);
  Known& KnownOf(FourCC grouping);

  SampleRows& rows_;
  std::map<FourCC, Known> known_;
};

}  // namespace toolbox
