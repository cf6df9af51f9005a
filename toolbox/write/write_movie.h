// The movie header of a planned file: MovieRecord to atoms.
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

// Data references as a movie file at `file` states them. A file that many tracks lie in, or that is
// asked for again, is looked up once: following its path costs a system call a folder.
class ReferenceWriter {
 public:
  // `isIso`: whether the file is an MPEG-4 file, new or not.
  ReferenceWriter(const boost::filesystem::path& file, bool isIso) : file_(file), isIso_(isIso) {}
  // A whole atom of 'dref'.
  const Bytes& AtomFor(const DataReference& reference);

 private:
  const boost::filesystem::path& file_;
  const bool isIso_;
  std::map<std::string, Bytes> aliases_;  // by path
  Bytes other_;  // what was made last of anything else
};

// The whole 'moov' of a file that will be at `file`. Plan and file must outlive it.
class MovieWriter final : public PlannedHeader {
 public:
  MovieWriter(const FilePlan& plan, const boost::filesystem::path& file);

  // Walks the tables, but only when that may change something.
  std::uint64_t SizeAt(std::uint64_t dataStart) override;
  Bytes Encode(std::uint64_t dataStart) override;
  Bytes Compress(std::uint64_t dataStart) override;
  // Hands it to `take`, a block at a time.
  void Write(std::uint64_t dataStart, const std::function<void(ByteSpan)>& take);

 private:
  template <class Io>
  void Put(Io& io, std::uint64_t dataStart);

  const FilePlan& plan_;
  ReferenceWriter references_;
  const std::uint64_t now_;  // however long it takes
  FieldSizer measured_;
  std::optional<std::uint64_t> measuredFor_;  // dataStart
  std::vector<OffsetShift> measuredShifts_;  // of the plan
};

// 'ftyp' of a new file.
Bytes FileTypeOf(const FilePlan& plan);

}  // namespace toolbox
