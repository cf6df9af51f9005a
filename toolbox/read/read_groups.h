// Reads sample groups, 'sgpd', 'sbgp' and 'csgp' (ISO/IEC 14496-12 8.9), from a sample table or
// from fragments.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "toolbox/atoms/container_atoms.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_rows.h"

namespace toolbox {

using SampleGroupAtoms = std::vector<SampleGroupAtom>;

// Adds the groups of a sample table to `rows`, whose count is known. Throws Malformed.
void ReadSampleGroups(const SampleGroupAtoms& atoms, SampleRows& rows);

// One grouping in one fragment of a track.
struct FragmentGroups {
  // Runs count from the first sample of the fragment. The descriptions are those of the fragment;
  // group numbers above kFragmentNumbers refer to them.
  SampleGroup group;
  std::uint32_t mapped = 0;  // how many samples the map covers
};

// The groups in a 'traf' that has `samples` samples. Throws Malformed.
std::vector<FragmentGroups> ReadFragmentGroups(const SampleGroupAtoms& atoms,
                                               std::uint32_t samples);

// Adds the groups of one fragment after another to the rows of a track.
class FragmentGrouper {
 public:
  // `rows` must outlive this object.
  explicit FragmentGrouper(SampleRows& rows) : rows_(rows) {}

  // Call it before the first fragment if there are samples already.
  void Begin();
  // Adds the groups of the samples that come next, before they are added. Throws Malformed.
  void Add(const FragmentGroups& added);
  // Call it after the last fragment: adds the descriptions that fragments brought along.
  void Finish();

 private:
  // All descriptions of one grouping so far.
  struct Known {
    std::vector<Bytes> entries;  // number 1 first
    std::map<Bytes, std::uint32_t> numbers;
    std::uint32_t defaultNumber = 0;  // of samples that no map covers
    bool isReadable = true;
    bool isLonger = false;  // than in the movie header

    std::uint32_t NumberOf(ByteSpan entry);
  };

  std::optional<SampleGroupDescriptions>& DescriptionsOf(FourCC grouping);
  Known& KnownOf(FourCC grouping);

  SampleRows& rows_;
  std::map<FourCC, Known> known_;
};

}  // namespace toolbox
