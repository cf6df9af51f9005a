// The executable of all three commands.
#include <exception>
#include <iostream>

#include "clipjoin/clipjoin.h"
#include "clipjoin/process.h"
#include "utils/visible.h"

int main(int count, char** arguments) try {
  clipjoin::OpenStandardStreams();
  clipjoin::HandleSignals();
  return clipjoin::Run({arguments, static_cast<std::size_t>(count)});
} catch (const std::exception& escaped) {
  std::cerr << "Error: " << utils::Visible(escaped.what()) << '\n';
  return 1;
} catch (...) {
  std::cerr << "Error: unknown exception\n";
  return 1;
}
