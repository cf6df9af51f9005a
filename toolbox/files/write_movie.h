// The movie header of a planned file: MovieRecord to atoms.
#pragma once

#include <boost/filesystem/path.hpp>
#include <cstdint>

#include "toolbox/bytes.h"
#include "toolbox/files/plan.h"

namespace toolbox {

// The size in bytes of what EncodeMovie gives for the same arguments; looks at no sample.
std::uint64_t MovieSize(const FilePlan& plan, const boost::filesystem::path& file,
                        std::uint64_t dataStart);

// The whole 'moov' of a file that will stand at `file`, its media data starting at
// byte `dataStart`.
Bytes EncodeMovie(const FilePlan& plan, const boost::filesystem::path& file,
                  std::uint64_t dataStart);

// The same movie header, compressed (QuickTime: 'cmov' in 'moov').
Bytes CompressMovie(ByteSpan movie);

// 'ftyp' of a new file.
Bytes FileTypeOf(const FilePlan& plan);

}  // namespace toolbox
