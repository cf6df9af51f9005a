// Collects the sample auxiliary information of fragments into tables for the whole track: 'saiz'
// and 'saio', ISO/IEC 14496-12 8.7.8 and 8.7.9.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/sample_rows.h"

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

  // `rows` are the samples of the track; they must outlive this object.
  explicit FragmentAuxiliary(SampleRows& rows) : rows_(rows) {}
  // Adds the information of the next run. Call it before the samples of the run are added to the
  // rows. Throws Refused: featureUnsupported (its kind of information differs from that of earlier
  // runs; one table cannot have two kinds).
  void Add(const Part& part);
  // Adds 'saiz' and 'saio' to the tables of the rows if any run has information. Call it once,
  // after the last run.
  void Finish();

 private:
  SampleRows& rows_;
  std::optional<AuxiliaryKind> kind_;
  // Both can be shorter than the track: runs without information are entered only when one with
  // information follows.
  Bytes sizes_;  // by sample
  std::vector<std::uint64_t> offsets_;  // by chunk
};

}  // namespace toolbox
