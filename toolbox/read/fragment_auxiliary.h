// The sample auxiliary information of fragments, as tables for the whole track. ISO/IEC 14496-12
// 8.7.8 and 8.7.9.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Collects the information of a track, one run of samples after another. Each run is a chunk of the
// track.
class FragmentAuxiliary {
 public:
  // The information of one run of samples.
  struct Part {
    std::optional<AuxiliaryKind> kind;  // nothing: the run has none
    std::uint64_t at = 0;  // where it is, in bytes from the start of the file
    Bytes sizes;  // by sample, in bytes
  };
  // Splits the information in a fragment into parts, one for each of `runs`, the numbers of samples
  // of its runs. Offsets count from `base`. Throws Malformed, Refused (featureUnsupported).
  static std::vector<Part> Split(const AuxiliarySizes& sizes, const AuxiliaryOffsets& offsets,
                                 std::uint64_t base, std::span<const std::uint32_t> runs);

  FragmentAuxiliary() = default;
  // For a track that has samples before the fragments.
  FragmentAuxiliary(std::uint32_t samples, std::size_t chunks)
      : samples_(samples), chunks_(chunks) {}
  // Adds the next run, which has that many samples. Throws Refused (featureUnsupported) if its
  // information is of another kind than that before.
  void Add(const Part& part, std::uint32_t samples);
  // Adds 'saiz' and 'saio' to `tables` if any run has information.
  void PutTables(Siblings& tables) const;

 private:
  std::uint32_t samples_ = 0;
  std::size_t chunks_ = 0;
  std::optional<AuxiliaryKind> kind_;
  Bytes sizes_;  // by sample
  std::vector<std::uint64_t> offsets_;  // by chunk
};

}  // namespace toolbox
