// Collects the sample auxiliary information of fragments into tables for the whole track: 'saiz'
// and 'saio', ISO/IEC 14496-12 8.7.8 and 8.7.9.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/bytes.h"

namespace toolbox {

// The information of one track. Runs of samples are added in order, and each becomes a chunk. The
// information itself stays in the file: only its sizes and offsets are collected.
class FragmentAuxiliary {
 public:
  // The information of one run of samples.
  struct Part {
    std::optional<AuxiliaryKind> kind;  // nothing if the run has no information
    std::uint64_t at = 0;  // where it is, in bytes from the start of the file
    Bytes sizes;  // by sample, in bytes
  };
  // Splits the information of one fragment into parts, one for each run. `runs` has the number of
  // samples of each run. `offsets` has either one offset for all runs or one for each; they count
  // from `base`, in bytes from the start of the file. Throws Malformed, or Refused:
  // featureUnsupported (the tables do not fit together).
  static std::vector<Part> Split(const AuxiliarySizes& sizes, const AuxiliaryOffsets& offsets,
                                 std::uint64_t base, std::span<const std::uint32_t> runs);

  FragmentAuxiliary() = default;
  // For a track that has samples before the fragments.
  FragmentAuxiliary(std::uint32_t samples, std::size_t chunks)
      : samples_(samples), chunks_(chunks) {}
  // Adds the next run, which has `samples` samples. Throws Refused: featureUnsupported (its kind of
  // information differs from that of earlier runs; one table cannot have two kinds).
  void Add(const Part& part, std::uint32_t samples);
  // Adds 'saiz' and 'saio' to `tables` if any run has information.
  void PutTables(Siblings& tables) const;

 private:
  std::uint32_t samples_ = 0;  // so far, with and without information
  std::size_t chunks_ = 0;
  std::optional<AuxiliaryKind> kind_;
  // Both can be shorter than the track: runs at the end without information are not entered yet.
  Bytes sizes_;  // by sample
  std::vector<std::uint64_t> offsets_;  // by chunk
};

}  // namespace toolbox
