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

// Adds the groups of a sample table to `rows`, whose count must be set. A map that is too short is
// continued with the default group; one that is too long is cut. Throws Malformed.
void ReadSampleGroups(const SampleGroupAtoms& atoms, SampleRows& rows);

// One grouping of the samples in one fragment of a track, ISO/IEC 14496-12 8.9.2 to 8.9.5.
struct FragmentGroups {
  // Runs count from the first sample of the fragment. The descriptions are those of the fragment;
  // group numbers above kFragmentNumbers refer to them.
  SampleGroup group;
  std::uint32_t mapped = 0;  // how many samples the map covers
};

// The groups in a 'traf' that has `samples` samples. Descriptions without a map are left out.
// Throws Malformed.
std::vector<FragmentGroups> ReadFragmentGroups(const SampleGroupAtoms& atoms,
                                               std::uint32_t samples);

// Adds the groups of fragments to the rows of a track, in file order. Each fragment can have its
// own descriptions; equal ones become one, and the samples get new group numbers.
class FragmentGrouper {
 public:
  // `rows` must outlive this object.
  explicit FragmentGrouper(SampleRows& rows) : rows_(rows) {}

  // Call it before the first fragment if there are samples already. From here on samples are in
  // the default group, unless a fragment has a map for them.
  void Begin();
  // Adds the groups of the next samples. Call it before these samples are added to the rows. Throws
  // Malformed.
  void Add(const FragmentGroups& added);
  // Adds the descriptions that were found in fragments. Call it once, after the last fragment.
  void Finish();

 private:
  // All descriptions of one grouping so far.
  struct Known {
    std::vector<Bytes> entries;  // number 1 first
    std::map<Bytes, std::uint32_t> numbers;  // of each entry
    std::uint32_t defaultNumber = 0;  // of samples that no map covers
    bool isReadable = true;  // whether the descriptions of the movie header could be decoded
    bool isLonger = false;  // whether fragments have added entries

    // The number of an entry, which is added if it is new.
    std::uint32_t NumberOf(ByteSpan entry);
  };

  // The descriptions of a grouping, which must have a group in the rows. Groups that differ only in
  // their parameter share descriptions, so only one of them has any. If none has, returns the empty
  // ones of the first group.
  std::optional<SampleGroupDescriptions>& DescriptionsOf(FourCC grouping);
  // The descriptions of a grouping as numbered entries. They are decoded on first use.
  Known& KnownOf(FourCC grouping);

  SampleRows& rows_;
  std::map<FourCC, Known> known_;
};

}  // namespace toolbox
