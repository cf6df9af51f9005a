// The rows of a table in an atom: decoded when they are looked at, made when they are written,
// never held a second time in memory.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "toolbox/bytes.h"

namespace toolbox {

// A row is a struct with a fixed `kSize` in bytes and a list of fields. Rows read from an atom
// point into its bytes and must not outlive them.
template <class Row>
class Rows {
 public:
  using Visit = std::function<void(const Row&)>;
  using Produce = std::function<void(const Visit&)>;

  Rows() = default;
  explicit Rows(ByteSpan encoded) : encoded_(encoded) {}
  // `produce` must hand exactly `count` rows to the visitor it is given, each time it is asked.
  Rows(std::uint32_t count, Produce produce) : produced_(count), produce_(std::move(produce)) {}

  std::uint32_t Count() const {
    return produce_ ? produced_ : static_cast<std::uint32_t>(encoded_.size() / Row::kSize);
  }

  // Calls visit(const Row&) for each row, front to back.
  template <class Visitor>
  void ForEach(Visitor&& visit) const;  // in fields.h: decoding needs a FieldReader

 private:
  ByteSpan encoded_;
  std::uint32_t produced_ = 0;
  Produce produce_;
};

}  // namespace toolbox
