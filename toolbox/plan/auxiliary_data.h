// What lies beside the samples in their file and is found by 'saiz' and 'saio', such as what it
// takes to decrypt them. ISO/IEC 14496-12 8.7.8, 8.7.9.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "toolbox/bytes.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// The data that one 'saio' leads to.
struct AuxiliaryData {
  std::size_t table = 0;  // the 'saio', as an index into the other tables of its rows
  std::vector<CopyRange> ranges;  // without a destination
};

// All that belongs to samples of a media, by whose descriptions they go; nothing where they are not
// whole rows in chunks. What contradicts itself is left out.
std::vector<AuxiliaryData> FindAuxiliaryData(const MediaRecord& media, const SampleTable& samples);

// What the fragments of a track say of such data, one after the other: to tables of the whole.
class FragmentAuxiliary {
 public:
  // What belongs to one run of samples, a chunk of the whole.
  struct Part {
    Bytes kind;  // what both tables start with, behind the version; empty: nothing belongs to them
    std::uint64_t at = 0;  // bytes from the start of the file
    Bytes sizes;  // by sample
  };
  // What the 'saiz' and 'saio' of a fragment, contents each, say of runs of so many samples. `base`
  // is where offsets count from. Throws Malformed, Refused (featureUnsupported).
  static std::vector<Part> Read(ByteSpan sizes, ByteSpan offsets, std::uint64_t base,
                                std::span<const std::uint32_t> runs);

  FragmentAuxiliary() = default;
  // For a track that has samples in front of all fragments.
  FragmentAuxiliary(std::uint32_t samples, std::size_t chunks)
      : samples_(samples), chunks_(chunks) {}
  // Adds the next run of samples. Throws Refused: featureUnsupported (data of several kinds).
  void Add(const Part& part, std::uint32_t samples);
  // Adds 'saiz' and 'saio' to the tables, if there is any data.
  void PutTables(Siblings& tables) const;

 private:
  std::uint32_t samples_ = 0;
  std::size_t chunks_ = 0;
  Bytes kind_, sizes_;
  std::vector<std::uint64_t> offsets_;
};

// The tables nobody reads of whole rows, as track `track` (an index) of the plan has them when its
// media data start at byte `dataStart`: their offsets lead to where the data will be.
Siblings OtherTables(const SampleRows& rows, const FilePlan& plan, std::size_t track,
                     std::uint64_t dataStart);

// How many bytes further on what stands at `offset` of the movie's own file will stand.
std::int64_t ShiftAt(std::span<const OffsetShift> shifts, std::uint64_t offset);

}  // namespace toolbox
