// Joins a sequence of values into runs of equal values.
#pragma once

#include <cstdint>

namespace toolbox {

// Joins neighboring runs of one value and passes them to visit(count, value). Call Flush after the
// last value to pass on the last run. `visit` must outlive this object.
template <class Value, class Visit>
class RunJoiner {
 public:
  explicit RunJoiner(Visit& visit) : visit_(visit) {}
  void Add(std::uint64_t samples, Value value) {
    if (samples == 0) return;
    if (samples_ != 0 && value != value_) Flush();
    value_ = value;
    samples_ += samples;
  }
  void Flush() {
    // A file states the length of a run in 32 bits.
    for (; samples_ > UINT32_MAX; samples_ -= UINT32_MAX) visit_(UINT32_MAX, value_);
    if (samples_ != 0) visit_(static_cast<std::uint32_t>(samples_), value_);
    samples_ = 0;
  }

 private:
  Visit& visit_;
  std::uint64_t samples_ = 0;
  Value value_{};
};

}  // namespace toolbox
