#include "tests/fuzz/seeds.h"

#include <boost/filesystem/fstream.hpp>
#include <cstdlib>
#include <iostream>

namespace fuzz {

void WriteFile(const boost::filesystem::path& path, toolbox::ByteSpan bytes) {
  boost::filesystem::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  file.close();
  if (!file) {
    std::cerr << "cannot write " << path << '\n';
    std::_Exit(1);
  }
}

void WriteSeed(const std::string& name, toolbox::ByteSpan bytes) {
  if (const char* folder = std::getenv("REELWORK_SEEDS")) {
    WriteFile(boost::filesystem::path(folder) / name, bytes);
  }
}

void Check(bool holds, const char* what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << '\n';
  std::abort();
}

}  // namespace fuzz
