// A planned file, written: header, media data and the padding between them.
#pragma once

#include <boost/filesystem/path.hpp>

#include "toolbox/disk/output_file.h"
#include "toolbox/plan/plan.h"

namespace toolbox {

struct FileLayout {
  bool movieFirst = true;  // movie header before media data ("fast start")
  bool compress = true;  // the movie header
};

// Writes all of the file into `output`, which will stand at `file`, and hands it to the system;
// does not commit it. Throws Refused.
void WriteFile(const FilePlan& plan, FileLayout layout, const boost::filesystem::path& file,
               OutputFile& output);

// The head of the media data: a 'wide' and the 8-byte head of 'mdat', or in their place one head
// with a 64-bit size.
inline constexpr std::uint64_t kDataHead = 16;
Bytes DataHead(std::uint64_t size);

// Appends the media data of the plan, head included.
void CopyMediaData(const FilePlan& plan, OutputFile& output);

}  // namespace toolbox
