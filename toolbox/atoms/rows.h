// The rows of a table in an atom. They are decoded only while they are read and produced only while
// they are written, so a long table is never in memory twice.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/bytes.h"

namespace toolbox {

// Reads the fields of a row without checks: the caller has made sure that the bytes are there.
class RowReader {
 public:
  explicit RowReader(const std::uint8_t* at) : at_(at) {}
  template <Integer T>
  void operator()(const char*, T& value) {
    value = FromBigEndian<T>(at_);
    at_ += sizeof(T);
  }

 private:
  const std::uint8_t* at_;
};

// Writes the fields of a row without checks: the caller has made room for Row::kSize bytes.
class RowWriter {
 public:
  explicit RowWriter(std::uint8_t* at) : at_(at) {}
  template <Integer T>
  void operator()(const char*, T value) {
    ToBigEndian(value, at_);
    at_ += sizeof(T);
  }

 private:
  std::uint8_t* at_;
};

// Decodes one row. Row::kSize bytes must be available at `bytes`.
template <class Row>
Row DecodeRow(const std::uint8_t* bytes) {
  Row row;
  RowReader reader(bytes);
  Row::Fields(reader, row);
  return row;
}

// Writes a row to the Row::kSize bytes at `bytes`.
template <class Row>
void EncodeRow(const Row& row, std::uint8_t* bytes) {
  RowWriter writer(bytes);
  Row::Fields(writer, row);
}

template <class Row>
void AppendRow(Bytes& bytes, const Row& row) {
  bytes.resize(bytes.size() + Row::kSize);
  EncodeRow(row, bytes.data() + bytes.size() - Row::kSize);
}

// Takes rows one at a time and passes them on in batches of 256. A call through a pointer for each
// row would cost as much as producing the row.
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
  // Adds rows that are already encoded as in an atom.
  void Encoded(ByteSpan rows) {
    Flush();
    takeEncoded_(rows);
  }
  // Passes on the rows of the last batch.
  void Flush() { take_(std::span(rows_).first(std::exchange(count_, 0))); }

 private:
  Take take_;
  TakeEncoded takeEncoded_;
  std::array<Row, 256> rows_;
  std::size_t count_ = 0;
};

// The rows of one table. They are either a view of the bytes of an atom, which must outlive them,
// or come from a function. `Row` is a struct with a fixed `kSize` in bytes and a list of fields.
template <class Row>
class Rows {
 public:
  using Produce = std::function<void(RowBatches<Row>&)>;

  Rows() = default;
  explicit Rows(ByteSpan encoded) : encoded_(encoded) {}
  // `produce` must produce exactly `count` rows, the same in each call.
  Rows(std::uint32_t count, Produce produce) : produced_(count), produce_(std::move(produce)) {}

  std::uint32_t Count() const {
    return produce_ ? produced_ : static_cast<std::uint32_t>(encoded_.size() / Row::kSize);
  }

  // The encoded rows of the atom that they were read from; empty if they are produced.
  ByteSpan Encoded() const { return encoded_; }
  // Calls visit(const Row&) for each row in order.
  template <class Visitor>
  void ForEach(Visitor&& visit) const {
    ForEachBatch(
        [&visit](std::span<const Row> batch) {
          for (const Row& row : batch) visit(row);
        },
        [&visit](ByteSpan encoded) {
          for (std::size_t at = 0; at < encoded.size(); at += Row::kSize) {
            visit(DecodeRow<Row>(&encoded[at]));
          }
        });
  }
  // Passes all rows on in order, several at a time: calls visit(std::span<const Row>) for produced
  // rows, and visitEncoded(ByteSpan) for rows that are encoded already.
  template <class Visitor, class EncodedVisitor>
  void ForEachBatch(Visitor&& visit, EncodedVisitor&& visitEncoded) const {
    if (!produce_) return visitEncoded(encoded_);
    RowBatches<Row> batches(std::ref(visit), std::ref(visitEncoded));
    produce_(batches);
    batches.Flush();
  }

 private:
  ByteSpan encoded_;
  std::uint32_t produced_ = 0;
  Produce produce_;
};

}  // namespace toolbox
