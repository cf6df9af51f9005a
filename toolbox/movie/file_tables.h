// The long tables of a media in the form in which a file states them: looked at in the header they
// came in, or made here. A movie of ten hours so costs hardly more memory than its file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "toolbox/atoms/big_endian.h"
#include "toolbox/bytes.h"
#include "toolbox/refused.h"

namespace toolbox {

// Bytes of a table that somebody else keeps, until something is added: then they are our own.
class TableBytes {
 public:
  TableBytes() = default;
  explicit TableBytes(ByteSpan stated) : stated_(stated) {}

  ByteSpan Span() const { return made_.empty() ? stated_ : ByteSpan(made_); }
  Bytes& Made() {
    if (made_.empty()) made_.assign(stated_.begin(), stated_.end());
    return made_;
  }

 private:
  ByteSpan stated_;
  Bytes made_;
};

// Numbers of 32 or 64 bits.
class FileNumbers {
 public:
  // For those who look at many: what they need of it at hand. Good until something is added.
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

  FileNumbers() = default;
  // `stated` holds nothing else and stays.
  FileNumbers(bool isWide, ByteSpan stated) : bytes_(stated), isWide_(isWide) {}

  std::size_t Count() const { return bytes_.Span().size() / (isWide_ ? 8 : 4); }
  bool IsEmpty() const { return bytes_.Span().empty(); }
  // The numbers [from, to) as they stand in an atom.
  ByteSpan Encoded(std::size_t from, std::size_t to) const {
    const std::size_t width = isWide_ ? 8 : 4;
    return bytes_.Span().subspan(from * width, (to - from) * width);
  }
  View Each() const { return {bytes_.Span().data(), isWide_}; }
  std::uint64_t operator[](std::size_t index) const { return Each()[index]; }
  void Add(std::uint64_t number) {
    if (!isWide_ && number > UINT32_MAX) Widen();
    if (isWide_) {
      AppendBigEndian(bytes_.Made(), number);
    } else {
      AppendBigEndian(bytes_.Made(), static_cast<std::uint32_t>(number));
    }
  }
  void Add(std::size_t count, std::uint64_t number) {
    for (; count != 0; --count) Add(number);
  }

 private:
  void Widen();

  TableBytes bytes_;
  bool isWide_ = false;
};

// Where samples start, for every 64th row of a table, so that a row is found by a search and a few
// steps.
class RowMarks {
 public:
  static constexpr std::size_t kStep = 64;

  // The next row starts with that sample.
  void Add(std::size_t row, std::uint32_t sample) {
    if (row % kStep == 0) samples_.push_back(sample);
  }
  // The last marked row that starts with `sample` or before it; the first row does.
  std::size_t RowFor(std::uint32_t sample) const {
    return static_cast<std::size_t>(std::ranges::upper_bound(samples_, sample) - samples_.begin() -
                                    1) *
           kStep;
  }
  std::uint32_t SampleOf(std::size_t markedRow) const { return samples_[markedRow / kStep]; }

 private:
  std::vector<std::uint32_t> samples_;
};

// The samples [sample, end) are shown `offset` media units after they are decoded.
struct OffsetRun {
  std::uint32_t sample = 0, end = 0;
  std::int32_t offset = 0;
};

// Rows of a number of samples and their offset, 'ctts' (ISO/IEC 14496-12 8.6.1.3).
class OffsetRuns {
 public:
  // From one run to the next, up to the last.
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
    // Only somebody who writes to the file leads behind the last run: there is one without end.
    void Take() {
      if (at_ == end_) {
        run_.end = UINT32_MAX;
        return;
      }
      const auto count = FromBigEndian<std::uint32_t>(at_);
      run_.end = run_.sample + std::min(count, UINT32_MAX - run_.sample);
      run_.offset = FromBigEndian<std::int32_t>(at_ + 4);
      at_ += kRow;
    }

    const std::uint8_t* at_;
    const std::uint8_t* end_;
    OffsetRun run_;
  };

  OffsetRuns() = default;
  // Nothing unless the rows are as they would be made here: for just `samples` samples, none of
  // none, neighbours different.
  static std::optional<OffsetRuns> Stated(ByteSpan rows, std::uint32_t samples);

  bool IsEmpty() const { return bytes_.Span().empty(); }
  // How many samples there are rows for.
  std::uint32_t Samples() const { return samples_; }
  // From the run on that holds `sample`, which is less than Samples().
  Walk From(std::uint32_t sample) const {
    const ByteSpan bytes = bytes_.Span();
    const std::size_t row = marks_.RowFor(sample);
    Walk walk(bytes.data() + row * kRow, bytes.data() + bytes.size(), marks_.SampleOf(row));
    while (walk->end <= sample) walk.Next();
    return walk;
  }
  // Calls visit(samples, offset) for [from, to), and visitEncoded(rows) where many rows of 'ctts'
  // say it.
  template <class Visit, class VisitEncoded>
  void ForEach(std::uint32_t from, std::uint32_t to, Visit&& visit,
               VisitEncoded&& visitEncoded) const {
    if (from >= to) return;
    const Walk first = From(from), last = From(to - 1);
    if (first.at_ == last.at_) return visit(to - from, first->offset);
    visit(first->end - from, first->offset);
    if (last.at_ - first.at_ > static_cast<std::ptrdiff_t>(kRow)) {
      visitEncoded(ByteSpan(first.at_, last.at_ - kRow));
    }
    visit(to - last->sample, last->offset);
  }
  template <class Visit>
  void ForEach(std::uint32_t from, std::uint32_t to, Visit&& visit) const {
    ForEach(from, to, visit, [&visit](ByteSpan rows) { ForEachOf(rows, visit); });
  }
  // Calls visit(samples, offset) for rows of 'ctts'.
  template <class Visit>
  static void ForEachOf(ByteSpan rows, Visit&& visit) {
    for (; !rows.empty(); rows = rows.subspan(kRow)) {
      visit(FromBigEndian<std::uint32_t>(rows.data()),
            FromBigEndian<std::int32_t>(rows.data() + 4));
    }
  }
  // Of the offsets; 0 where there are none.
  std::int32_t Smallest() const { return smallest_; }
  std::int32_t Largest() const { return largest_; }
  // The next so many samples have that offset.
  void Add(std::uint32_t samples, std::int32_t offset);

 private:
  static constexpr std::size_t kRow = 8;

  void Reach(std::int32_t offset, bool isFirst) {
    smallest_ = isFirst ? offset : std::min(smallest_, offset);
    largest_ = isFirst ? offset : std::max(largest_, offset);
  }

  TableBytes bytes_;
  RowMarks marks_;
  std::uint32_t samples_ = 0;
  std::int32_t smallest_ = 0, largest_ = 0;
};

// Chunks of as many samples each and of one description: from `chunk` on, the samples [sample,
// end). None where samplesPerChunk is 0.
struct ChunkRun {
  std::uint32_t chunk = 0, sample = 0, end = 0, samplesPerChunk = 0, description = 0;
};

// Rows of a chunk, samples and a description, the first and the last counted from 1: 'stsc'
// (ISO/IEC 14496-12 8.7.4).
class ChunkRuns {
 public:
  // From one run to the next, perhaps in a file that somebody writes to: throws Refused
  // (invalidSampleTable) where a run leads out of the tables that were there at first.
  class Walk {
   public:
    const ChunkRun& operator*() const { return run_; }
    const ChunkRun* operator->() const { return &run_; }
    bool IsBehindLast() const { return at_ == nullptr; }
    void Next() {
      run_.sample = run_.end;
      if (at_ != end_) return Take();
      at_ = end_ = nullptr;
    }

   private:
    friend class ChunkRuns;
    Walk(const ChunkRuns& runs, std::size_t row) : runs_(runs) {
      const ByteSpan bytes = runs.bytes_.Span();
      at_ = bytes.data() + row * kRow;
      end_ = bytes.data() + bytes.size();
      run_.sample = runs.marks_.SampleOf(row);
      Take();
    }
    void Take() {
      run_.chunk = FromBigEndian<std::uint32_t>(at_) - 1;
      run_.samplesPerChunk = FromBigEndian<std::uint32_t>(at_ + 4);
      run_.description = FromBigEndian<std::uint32_t>(at_ + 8) - 1;
      at_ += kRow;
      const std::uint64_t next =
          at_ == end_ ? runs_.nextChunk_ : FromBigEndian<std::uint32_t>(at_) - std::uint64_t{1};
      if (next <= run_.chunk || next > runs_.nextChunk_ ||
          run_.description >= runs_.descriptions_) {
        throw Refused{invalidSampleTable};
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
  // Nothing unless the rows are as they would be made here: of that many chunks, in order, each
  // with samples, `samples` or less in all, and one of so many descriptions.
  static std::optional<ChunkRuns> Stated(ByteSpan rows, std::uint32_t chunks, std::uint32_t samples,
                                         std::size_t descriptions);

  // How many samples lie in the chunks.
  std::uint32_t Samples() const { return samples_; }
  // Whether they have one description and lie one behind the other in their table, none between
  // them without samples.
  bool ArePlain() const { return descriptions_ == 1 && !hasGaps_; }
  // How many descriptions there must be for the chunks to have those that they have.
  std::uint32_t Descriptions() const { return descriptions_; }
  // From the run on that holds `sample`, which is less than Samples(). Throws as Walk.
  Walk From(std::uint32_t sample) const {
    Walk walk(*this, marks_.RowFor(sample));
    while (walk->end <= sample) {
      walk.Next();
      if (walk.IsBehindLast()) throw Refused{invalidSampleTable};
    }
    return walk;
  }
  // The next samples lie in `chunks` chunks from `chunk` on, which lie behind those that are there.
  void Add(std::uint32_t chunk, std::uint32_t chunks, std::uint32_t samplesPerChunk,
           std::uint32_t description);

 private:
  static constexpr std::size_t kRow = 12;

  void AddRow(std::uint64_t chunk, std::uint32_t samplesPerChunk, std::uint32_t description);

  TableBytes bytes_;
  RowMarks marks_;
  std::uint32_t samples_ = 0, descriptions_ = 0;
  std::uint64_t nextChunk_ = 0;  // behind the last
  bool hasGaps_ = false;
};

}  // namespace toolbox
