// Writes the movie header of a planned file: from MovieRecord to atoms.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "toolbox/atoms/fields.h"
#include "toolbox/bytes.h"
#include "toolbox/plan/new_file_steps.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

// Writes data references for a movie file at `file`. The result for each path is kept, because
// following a path costs a system call for each folder.
class ReferenceWriter {
 public:
  // `isIso`: the movie file is an MPEG-4 file. `file` must outlive this object.
  ReferenceWriter(const boost::filesystem::path& file, bool isIso) : file_(file), isIso_(isIso) {}
  // The whole atom of a reference, an entry of 'dref'. Valid until the next call.
  const Bytes& AtomFor(const DataReference& reference);

 private:
  const boost::filesystem::path& file_;
  const bool isIso_;
  std::map<std::string, Bytes> aliases_;  // by path
  Bytes other_;  // the last result for any other reference
};

// Writes the 'moov' of a file that will be at `file`. Both arguments must outlive it. Its functions
// throw Refused if a value does not fit into its field.
class MovieWriter final : public PlannedHeader {
 public:
  MovieWriter(const FilePlan& plan, const boost::filesystem::path& file);

  // Walks the sample tables only if the size may have changed since the last call.
  std::uint64_t SizeAt(std::uint64_t dataStart) override;
  Bytes Encode(std::uint64_t dataStart) override;
  Bytes Compress(std::uint64_t dataStart) override;
  // Passes the bytes of the 'moov' to `take`, block by block.
  void Write(std::uint64_t dataStart, const std::function<void(ByteSpan)>& take);

 private:
  // Measures the atoms with a FieldSizer or writes them with a FieldWriter.
  template <class Io>
  void Put(Io& io, std::uint64_t dataStart);

  const FilePlan& plan_;
  ReferenceWriter references_;
  const std::uint64_t now_;  // one time for all dates, however long writing takes
  FieldSizer measured_;
  std::optional<std::uint64_t> measuredFor_;  // the `dataStart` of `measured_`
  std::vector<OffsetShift> measuredShifts_;  // the shifts of `measured_`
};

// The whole 'ftyp' of a new file.
Bytes FileTypeOf(const FilePlan& plan);

}  // namespace toolbox
