#include "clipjoin/usage.h"

#include <iostream>

namespace clipjoin {
namespace {

struct Entry {
  const char* option;
  const char* help;  // further lines are indented
};

constexpr Entry kEntries[] = {
    {"-q", "Be quiet: don't print informational messages"},
    {"-self-contained",
     "Copy all data into the output movie. By default the\n"
     "output is a reference movie that points to data in other movies.\n"
     "A self-contained movie is also fast-start and has a compressed\n"
     "header, which is useful for web downloads."},
    {"-no-fast-start",
     "With -self-contained, does not make the movie\n"
     "fast-start: quicker, and needs less disk space."},
    {"-no-compressed-header",
     "When used in conjuction with -self-contained, does not\n"
     "compress the movie header."},
    {"-o filename", "Output to filename."},
    {"-", "Terminate option processing: all other arguments are file names."},
};

constexpr std::size_t kColumn = 27;

}  // namespace

void PrintUsage(const std::string& invocation, CommandMode mode, const std::string& name) {
  std::ostream& out = std::cerr;
  out << name << " version 1.2.4 (August 24, 2006)\n"
      << "Type \"man " << name << "\" or \"man Reelwork\" for more information\n";
  if (mode == CommandMode::kModify) {
    out << "Usage: " << invocation << " [options] filename [-o outfileName | -save-in-place]\n";
  } else {
    out << "Usage: " << invocation
        << " [global options] filename1 [file specific options] [filename2 [file specific options] "
           "... ]\nGlobal options:\n";
  }
  for (const Entry& entry : kEntries) {
    std::string line = std::string("    ") + entry.option;
    line.resize(std::max(line.size() + 2, kColumn), ' ');
    for (const char character : std::string_view(entry.help)) {
      line += character;
      if (character == '\n') line += "        ";
    }
    out << line << '\n';
  }
  out.flush();
}

}  // namespace clipjoin
