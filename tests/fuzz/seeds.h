// What every fuzz target has in common.
#pragma once

#include <boost/filesystem/fstream.hpp>
#include <cstdlib>
#include <iostream>
#include <string>

#include "toolbox/bytes.h"

namespace fuzz {

// Ends the process, so that the fuzzer keeps the input, unless `holds`.
inline void Check(bool holds, const std::string& what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << '\n';
  std::abort();
}

// Makes `bytes` the whole content of the file at `path`.
inline void WriteFile(const boost::filesystem::path& path, toolbox::ByteSpan bytes) {
  boost::filesystem::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  Check(file.good(), "a file can be written: " + path.native());
}

// Leaves `bytes` as the file `name` in the folder that REELWORK_SEEDS names, if it names one.
inline void WriteSeed(const std::string& name, toolbox::ByteSpan bytes) {
  const char* folder = std::getenv("REELWORK_SEEDS");
  if (folder != nullptr) WriteFile(boost::filesystem::path(folder) / name, bytes);
}

}  // namespace fuzz
