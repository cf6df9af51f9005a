// Long sample tables that stay encoded as in their atoms. A table that was read is a view of the
// bytes of the movie header, so even the tables of a ten-hour movie take little memory.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/sample_atoms.h"
#include "toolbox/bytes.h"
#include "toolbox/refused.h"

namespace toolbox {

// The bytes of a table: first a view of bytes that the caller owns, and a copy after the first
// change.
class TableBytes {
 public:
  TableBytes() = default;
  // `view` must stay valid as long as this object or a copy of it uses it.
  explicit TableBytes(ByteSpan view) : view_(view) {}

  ByteSpan Span() const { return copy_.empty() ? view_ : ByteSpan(copy_); }
  // The bytes, to be changed. The first call copies the view.
  Bytes& Writable() {
    if (copy_.empty()) copy_.assign(view_.begin(), view_.end());
    return copy_;
  }

 private:
  ByteSpan view_;
  Bytes copy_;
};

// A table of unsigned numbers, all of 32 or all of 64 bits: sample sizes or chunk offsets. Indexes
// must be less than Count(); they are not checked.
class EncodedNumbers {
 public:
  // Fast access for loops over many numbers. It is valid until the table changes.
  class View {
   public:
    View(const std::uint8_t* bytes, bool isWide) : bytes_(bytes), isWide_(isWide) {}
    std::uint64_t operator[](std::size_t index) const {
      return isWide_ ? FromBigEndian<std::uint64_t>(bytes_ + 8 * index)
                     : FromBigEndian<std::uint32_t>(bytes_ + 4 * index);
    }

   private:
    const std::uint8_t* bytes_;
    bool isWide_;
  };

  EncodedNumbers() = default;
  // A view of `bytes`, which must outlive it: numbers of 64 bits if `isWide`, else of 32 bits.
  EncodedNumbers(bool isWide, ByteSpan bytes) : bytes_(bytes), isWide_(isWide) {}

  std::size_t Count() const { return bytes_.Span().size() / Width(); }
  bool IsEmpty() const { return bytes_.Span().empty(); }
  // The numbers [from, to) as encoded in the atom.
  ByteSpan Encoded(std::size_t from, std::size_t to) const {
    return bytes_.Span().subspan(from * Width(), (to - from) * Width());
  }
  View Values() const { return {bytes_.Span().data(), isWide_}; }
  std::uint64_t operator[](std::size_t index) const { return Values()[index]; }
  // Appends a number. If it needs 64 bits, all numbers become 64 bits wide.
  void Add(std::uint64_t number);
  void Add(std::size_t count, std::uint64_t number) {
    for (; count != 0; --count) Add(number);
  }

 private:
  std::size_t Width() const { return isWide_ ? 8 : 4; }

  TableBytes bytes_;
  bool isWide_ = false;
};

// Encodes `number` in 32 bits, `count` times. Calls visit(bytes) for up to 1024 of them at a time:
// a second of sound can have 48000 samples of one size, too many for a call each.
template <class Visit>
void ForEachEncodedRepeat(std::uint32_t number, std::size_t count, Visit&& visit) {
  constexpr std::size_t kMany = 1024;
  std::array<std::uint8_t, 4 * kMany> bytes{};
  for (std::size_t i = 0; i < kMany; ++i) ToBigEndian(number, &bytes[4 * i]);
  while (count != 0) {
    const std::size_t now = std::min(count, kMany);
    visit(ByteSpan(bytes).first(4 * now));
    count -= now;
  }
}

// The first sample of every 64th row of a table. To find the row of a sample, search here for the
// nearest mark before it, then walk fewer than 64 rows in the table.
class RowMarks {
 public:
  static constexpr std::size_t kStep = 64;

  // `sample` is the first sample of row `row`. Call it for every row in order.
  void Add(std::size_t row, std::uint32_t sample) {
    if (row % kStep == 0) samples_.push_back(sample);
  }
  // The last marked row that starts at or before `sample`. There must be one.
  std::size_t RowFor(std::uint32_t sample) const {
    return static_cast<std::size_t>(std::ranges::upper_bound(samples_, sample) - samples_.begin() -
                                    1) *
           kStep;
  }
  // The first sample of a row that RowFor returned.
  std::uint32_t SampleOf(std::size_t markedRow) const { return samples_[markedRow / kStep]; }

 private:
  std::vector<std::uint32_t> samples_;
};

// The samples [sample, end) are shown `offset` media units after they are decoded.
struct OffsetRun {
  std::uint32_t sample = 0, end = 0;
  std::int32_t offset = 0;
};

// Composition offsets as rows of 'ctts', ISO/IEC 14496-12 8.6.1.3. Every row has samples, and
// neighboring rows have different offsets.
class OffsetRuns {
 public:
  using Row = CompositionOffsets::Row;

  // Goes through the runs in order. After the last run comes an endless one. The rows can be a view
  // of a file that another process changes, and a loop over samples must end even then.
  class Walk {
   public:
    const OffsetRun& operator*() const { return run_; }
    const OffsetRun* operator->() const { return &run_; }
    void Next() {
      run_.sample = run_.end;
      Take();
    }

   private:
    friend class OffsetRuns;
    Walk(const std::uint8_t* at, const std::uint8_t* end, std::uint32_t sample)
        : at_(at), end_(end) {
      run_.sample = sample;
      Take();
    }
    void Take() {
      if (at_ == end_) {
        run_.end = UINT32_MAX;
        return;
      }
      const Row row = DecodeRow<Row>(at_);
      run_.end = run_.sample + std::min(row.count, UINT32_MAX - run_.sample);
      run_.offset = row.offset;
      at_ += Row::kSize;
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
    OffsetRun run_;
  };

  OffsetRuns() = default;
  // A view of `rows`, which must outlive it. Returns nothing unless the rows cover exactly
  // `samples` samples and Add would have made the same bytes: no row is empty, no neighbors are
  // equal.
  static std::optional<OffsetRuns> ViewOf(ByteSpan rows, std::uint32_t samples);

  bool IsEmpty() const { return bytes_.Span().empty(); }
  // How many samples the rows cover.
  std::uint32_t Samples() const { return samples_; }
  // Starts at the run of `sample`, which must be less than Samples().
  Walk From(std::uint32_t sample) const {
    const ByteSpan bytes = bytes_.Span();
    const std::size_t row = marks_.RowFor(sample);
    Walk walk(bytes.data() + row * Row::kSize, bytes.data() + bytes.size(), marks_.SampleOf(row));
    while (walk->end <= sample) walk.Next();
    return walk;
  }
  // Calls visit(samples, offset) for the first and the last run of the samples [from, to);
  // `samples` counts only those in the range. Calls visitEncoded(rows) once for all rows between
  // them, so that a writer can copy their bytes.
  template <class Visit, class VisitEncoded>
  void ForEach(std::uint32_t from, std::uint32_t to, Visit&& visit,
               VisitEncoded&& visitEncoded) const {
    if (from >= to) return;
    const Walk first = From(from), last = From(to - 1);
    if (first.at_ == last.at_) return visit(to - from, first->offset);
    visit(first->end - from, first->offset);
    if (last.at_ - first.at_ > static_cast<std::ptrdiff_t>(Row::kSize)) {
      visitEncoded(ByteSpan(first.at_, last.at_ - Row::kSize));
    }
    visit(to - last->sample, last->offset);
  }
  // Calls visit(samples, offset) for every run of the samples [from, to).
  template <class Visit>
  void ForEach(std::uint32_t from, std::uint32_t to, Visit&& visit) const {
    ForEach(from, to, visit, [&visit](ByteSpan rows) { ForEachRow(rows, visit); });
  }
  // Calls visit(samples, offset) for encoded rows.
  template <class Visit>
  static void ForEachRow(ByteSpan rows, Visit&& visit) {
    Rows<Row>(rows).ForEach([&visit](const Row& row) { visit(row.count, row.offset); });
  }
  // The smallest and the largest offset; 0 if there are none.
  std::int32_t Smallest() const { return smallest_; }
  std::int32_t Largest() const { return largest_; }
  // Appends `samples` samples with this offset.
  void Add(std::uint32_t samples, std::int32_t offset);

 private:
  // Extends the range from the smallest to the largest offset.
  void Reach(std::int32_t offset, bool isFirst) {
    smallest_ = isFirst ? offset : std::min(smallest_, offset);
    largest_ = isFirst ? offset : std::max(largest_, offset);
  }

  TableBytes bytes_;
  RowMarks marks_;
  std::uint32_t samples_ = 0;
  std::int32_t smallest_ = 0, largest_ = 0;
};

// Consecutive chunks with the same sample description and number of samples. `chunk` is the first
// of them. Together they have the samples [sample, end), none if samplesPerChunk is 0. `chunk` and
// `description` are indexes from 0, one less than the numbers in the file.
struct ChunkRun {
  std::uint32_t chunk = 0, sample = 0, end = 0, samplesPerChunk = 0, description = 0;
};

// Which samples are in which chunk, as rows of 'stsc', ISO/IEC 14496-12 8.7.4.
class ChunkRuns {
 public:
  using Row = SampleToChunk::Row;

  // Goes through the runs in order. The rows can be a view of a file that another process changes.
  // So each run is checked again, and Refused (invalidSampleTable) is thrown if it now exceeds the
  // limits that ViewOf has checked.
  class Walk {
   public:
    const ChunkRun& operator*() const { return run_; }
    const ChunkRun* operator->() const { return &run_; }
    // True after the last run.
    bool IsAtEnd() const { return at_ == nullptr; }
    void Next() {
      run_.sample = run_.end;
      if (at_ != end_) return Take();
      at_ = end_ = nullptr;
    }

   private:
    friend class ChunkRuns;
    // Defined outside the header, so that compilers do not copy the code that throws into each
    // loop.
    [[noreturn]] static void RefuseChanged();
    Walk(const ChunkRuns& runs, std::size_t row) : runs_(runs) {
      const ByteSpan bytes = runs.bytes_.Span();
      at_ = bytes.data() + row * Row::kSize;
      end_ = bytes.data() + bytes.size();
      run_.sample = runs.marks_.SampleOf(row);
      Take();
    }
    // Without the attribute, compilers call this for each chunk of a long movie.
    [[gnu::always_inline]] void Take() {
      const Row row = DecodeRow<Row>(at_);
      run_.chunk = row.firstChunk - 1;
      run_.samplesPerChunk = row.samplesPerChunk;
      run_.description = row.description - 1;
      at_ += Row::kSize;
      const std::uint64_t next =
          at_ == end_ ? runs_.nextChunk_ : DecodeRow<Row>(at_).firstChunk - std::uint64_t{1};
      if (next <= run_.chunk || next > runs_.nextChunk_ ||
          run_.description >= runs_.descriptions_) {
        RefuseChanged();
      }
      run_.end = static_cast<std::uint32_t>(std::min<std::uint64_t>(
          run_.sample + (next - run_.chunk) * run_.samplesPerChunk, runs_.samples_));
    }

    const ChunkRuns& runs_;
    const std::uint8_t* at_;
    const std::uint8_t* end_;
    ChunkRun run_;
  };

  ChunkRuns() = default;
  // A view of `rows`, which must outlive it. Returns nothing unless they describe exactly `chunks`
  // chunks in order, each chunk has samples and one of `descriptions` descriptions, and the chunks
  // have at most `samples` samples in total.
  static std::optional<ChunkRuns> ViewOf(ByteSpan rows, std::uint32_t chunks, std::uint32_t samples,
                                         std::size_t descriptions);

  // The number of samples in all chunks.
  std::uint32_t Samples() const { return samples_; }
  // True if all chunks have description 0 and no chunk is empty.
  bool ArePlain() const { return descriptions_ == 1 && !hasGaps_; }
  // One more than the highest description index of a chunk.
  std::uint32_t Descriptions() const { return descriptions_; }
  // Starts at the run of `sample`, which must be less than Samples(). Throws as Walk does.
  Walk From(std::uint32_t sample) const {
    Walk walk(*this, marks_.RowFor(sample));
    while (walk->end <= sample) {
      walk.Next();
      if (walk.IsAtEnd()) throw Refused{invalidSampleTable};
    }
    return walk;
  }
  // Appends `chunks` chunks with `samplesPerChunk` samples each. The first is `chunk`, which must
  // be after all chunks so far. Chunks that are skipped have no samples.
  void Add(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
           std::uint32_t description);

 private:
  TableBytes bytes_;
  RowMarks marks_;
  std::uint32_t samples_ = 0, descriptions_ = 0;
  std::uint64_t nextChunk_ = 0;  // the index after the last chunk
  bool hasGaps_ = false;
};

}  // namespace toolbox
