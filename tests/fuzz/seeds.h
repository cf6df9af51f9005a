// What every fuzz target has in common.
#pragma once

#include <boost/filesystem/path.hpp>
#include <string>

#include "toolbox/bytes.h"

namespace fuzz {

// Makes `bytes` the whole content of the file at `path`; ends the process where that fails.
void WriteFile(const boost::filesystem::path& path, toolbox::ByteSpan bytes);

// Leaves `bytes` as the file `name` in the folder that REELWORK_SEEDS names; without one does
// nothing.
void WriteSeed(const std::string& name, toolbox::ByteSpan bytes);

// Ends the process, so that the fuzzer keeps the input, unless `holds`.
void Check(bool holds, const char* what);

}  // namespace fuzz
