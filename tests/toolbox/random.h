// Numbers that look random and are the same in every run.
#pragma once

#include <cstdint>
#include <random>

namespace toolbox {

class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}

  // A number from 0 to limit - 1.
  std::uint32_t Below(std::uint64_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }
  bool Flip() { return Below(2) == 0; }

 private:
  std::mt19937 engine_;
};

}  // namespace toolbox
