// The rows of a table in an atom: decoded when they are looked at, made when they are written,
// never held a second time in memory.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

#include "toolbox/bytes.h"

namespace toolbox {

// Takes rows one at a time and hands them on by the hundred: a call through a pointer costs as much
// as making the row.
template <class Row>
class RowBatches {
 public:
  using Take = std::function<void(std::span<const Row>)>;
  using TakeEncoded = std::function<void(ByteSpan)>;

  RowBatches(Take take, TakeEncoded takeEncoded)
      : take_(std::move(take)), takeEncoded_(std::move(takeEncoded)) {}
  void operator()(const Row& row) {
    if (count_ == rows_.size()) Flush();
    rows_[count_++] = row;
  }
  // Rows as they stand in an atom, next.
  void Encoded(ByteSpan rows) {
    Flush();
    takeEncoded_(rows);
  }
  void Flush() { take_(std::span(rows_).first(std::exchange(count_, 0))); }

 private:
  Take take_;
  TakeEncoded takeEncoded_;
  std::array<Row, 256> rows_;
  std::size_t count_ = 0;
};

// A row is a struct with a fixed `kSize` in bytes and a list of fields. Rows read from an atom
// point into its bytes and must not outlive them.
template <class Row>
class Rows {
 public:
  using Produce = std::function<void(RowBatches<Row>&)>;

  Rows() = default;
  explicit Rows(ByteSpan encoded) : encoded_(encoded) {}
  // `produce` must give exactly `count` rows each time it is asked.
  Rows(std::uint32_t count, Produce produce) : produced_(count), produce_(std::move(produce)) {}

  std::uint32_t Count() const {
    return produce_ ? produced_ : static_cast<std::uint32_t>(encoded_.size() / Row::kSize);
  }

  // The rows as they stand in the atom they were read from.
  ByteSpan Encoded() const { return encoded_; }
  // Calls visit(const Row&) for each row, front to back.
  template <class Visitor>
  void ForEach(Visitor&& visit) const;  // in fields.h: decoding needs a FieldReader
  // Calls visit(std::span<const Row>), or visitEncoded(ByteSpan) where they stand in an atom, for
  // some of them at a time.
  template <class Visitor, class EncodedVisitor>
  void ForEachBatch(Visitor&& visit, EncodedVisitor&& visitEncoded) const;

 private:
  ByteSpan encoded_;
  std::uint32_t produced_ = 0;
  Produce produce_;
};

}  // namespace toolbox
