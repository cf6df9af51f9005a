// Compares pictures, packets of sound, texts and other samples one by one.
#include <algorithm>
#include <cstdlib>
#include <deque>
#include <limits>
#include <utility>

#include "clipinfo/compared.h"
#include "toolbox/plan/empty_samples.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::MediaRecord;

constexpr FourCC kSound{"soun"};
// Rows that are compared at once, and the rows after them that are known then.
constexpr std::size_t kRows = 4096, kAhead = 64;
// Bytes that are hashed at once. So tracks of one file are read at about the same place.
constexpr std::uint64_t kBytes = 32 << 20;

struct Row : Shown {
  Hash hash;
};

// The rows of one side that are known.
class Side {
 public:
  Side(std::vector<Stretch> stretches, bool withExtras, Files& files)
      : rows_(std::move(stretches), {.withExtras = withExtras}, files) {
    Pull();
  }

  // Knows more rows, and adds their bytes to the hasher.
  void Fill(Hasher& hasher) {
    std::uint64_t bytes = 0;
    while (hasMore_ && (known_.size() < 2 * kAhead || (known_.size() < kRows && bytes < kBytes))) {
      if (hashed_ == known_.size()) Pull();
      for (; hashed_ < known_.size(); ++hashed_) {
        bytes += known_[hashed_].bytes.size;
        hasher.Add(known_[hashed_].bytes, known_[hashed_].hash);
      }
    }
    for (; hashed_ < known_.size(); ++hashed_)
      hasher.Add(known_[hashed_].bytes, known_[hashed_].hash);
  }
  bool IsAtEnd() const { return known_.empty(); }
  // Whether enough rows are known to compare the first one.
  bool IsReady() const { return !hasMore_ || known_.size() >= kAhead; }
  const std::deque<Row>& Known() const { return known_; }
  const Row& Front() const { return known_.front(); }
  // The number of the first row, from 1 on.
  std::uint64_t Number() const { return number_; }
  void Pop() {
    if (!Front().isExtra) ++number_;
    known_.pop_front();
    --hashed_;
  }
  // Joins the second row to the first if it shows the same on: a movie was cut inside a sample, or
  // a sample is shown again. A packet of sound sounds different from its middle on, so the second
  // part must not be its start. Returns false if it does not.
  bool Absorb(Nanoseconds tolerance) {
    if (known_.size() < 2) return false;
    Row& row = known_[0];
    const Row& next = known_[1];
    const bool isSound = row.track->media->Type() == kSound;
    const bool isParted = row.isLast && next.isFirst && (!isSound || next.isCut);
    if (!isParted && (isSound || row.bytes != next.bytes)) return false;
    if (row.bytes.size != next.bytes.size || row.hash != next.hash) return false;
    if (next.isExtra || std::abs(next.from - row.until) > tolerance) return false;
    row.until = next.until;
    row.isLast = next.isLast;
    known_.erase(known_.begin() + 1);
    --hashed_;
    ++number_;
    return true;
  }
  // How many rows are left; ends this side.
  std::uint64_t CountRest() {
    std::uint64_t count = known_.size();
    while (rows_.Next()) ++count;
    return count;
  }

 private:
  void Pull() {
    if (const auto row = rows_.Next()) {
      known_.push_back({*row, {}});
    } else {
      hasMore_ = false;
    }
  }

  Presented rows_;
  std::deque<Row> known_;  // Hasher keeps references, so rows must not move
  std::size_t hashed_ = 0;  // the first of the known rows, whose hashes are known or asked for
  bool hasMore_ = true;
  std::uint64_t number_ = 1;
};

bool HaveSameBytes(const Row& a, const Row& b) {
  return a.bytes.size == b.bytes.size && a.hash == b.hash;
}

// The length of a sample by its own duration.
Nanoseconds OwnLength(const Row& row) {
  const MediaRecord& media = *row.track->media;
  return InNanoseconds(media.samples.DurationOf(row.sample).units, media.header.scale);
}

class SampleComparison final : public Comparison {
 public:
  explicit SampleComparison(Sides sides)
      : sides_(std::move(sides)),
        expected_(sides_.expected, true, sides_.files),
        found_(sides_.found, false, sides_.files) {}

  Nanoseconds Time() const override {
    if (findings.difference || (expected_.IsAtEnd() && found_.IsAtEnd())) {
      return std::numeric_limits<Nanoseconds>::max();
    }
    return std::min(expected_.IsAtEnd() ? found_.Front().from : expected_.Front().from,
                    found_.IsAtEnd() ? expected_.Front().from : found_.Front().from);
  }

  void Advance() override {
    expected_.Fill(sides_.hasher);
    found_.Fill(sides_.hasher);
    sides_.hasher.Run();
    while (!findings.difference && expected_.IsReady() && found_.IsReady()) {
      if (expected_.IsAtEnd() && found_.IsAtEnd()) return;
      if (!expected_.IsAtEnd() && !found_.IsAtEnd() && AreSame()) {
        TakeBoth();
      } else if (!TakeByRule()) {
        Differ(Mismatch());
      }
    }
  }

 private:
  // Whether the first rows are the same sample. Silence in a gap can have the bytes of the first
  // packet after it.
  bool AreSame() const {
    const Row &expected = expected_.Front(), &found = found_.Front();
    if (!HaveSameBytes(expected, found)) return false;
    const Row* heard = NextHeard(0);
    const bool isInGap = heard != nullptr && found.from < heard->from - Near(found);
    if (expected.isExtra) return isInGap;
    return !isInGap || RuleToShow(found) == nullptr;
  }
  // Compares two samples of the same bytes.
  void TakeBoth() {
    const std::string number = NumberText();
    const auto ends = [&](const Side& side) { return side.Front().until + sides_.tolerance; };
    while (found_.Front().until > ends(expected_) && expected_.Absorb(sides_.tolerance)) continue;
    while (expected_.Front().until > ends(found_) && found_.Absorb(sides_.tolerance)) continue;
    const Row &expected = expected_.Front(), &found = found_.Front();
    if (const auto fault = Fault(expected, found)) {
      return Differ(number + " at " + TimeText(expected.from) + Of(expected) + ": " + *fault);
    }
    ++findings.samples;
    findings.bytes += expected.bytes.size;
    findings.hash.Add(expected.hash);
    shift_ = found.from - expected.from;
    last_ = expected;
    expected_.Pop();
    found_.Pop();
  }
  // What is wrong with a sample of the output that has the expected bytes.
  std::optional<std::string> Fault(const Row& expected, const Row& found) {
    if (!descriptions_.AreAlike(expected, found)) return "it has another description";
    if (expected.isSync != found.isSync || expected.isPartialSync != found.isPartialSync) {
      return expected.isSync ? "it is no sync sample any more" : "it is marked as a sync sample";
    }
    if (expected.dependencies != found.dependencies) return "its dependencies differ";
    if (expected.isTimeless || expected.isExtra) return std::nullopt;
    const Nanoseconds late = found.from - expected.from;
    if (!MayStart(expected, found, late)) {
      return "shown " + LengthText(std::abs(late)) + (late > 0 ? " later" : " earlier");
    }
    const Nanoseconds longer = found.until - expected.until;
    if (!MayStop(expected, found, longer)) {
      return "shown " + LengthText(std::abs(longer)) + (longer > 0 ? " longer" : " shorter");
    }
    return std::nullopt;
  }
  bool MayStart(const Row& expected, const Row& found, Nanoseconds late) {
    if (std::abs(late) <= sides_.tolerance) {
      // Inside a stretch, nothing is rounded.
      const bool isInside = !expected.isFirst && !found.isFirst && expected.isPlain &&
                            found.isPlain && last_ && !last_->isFirst;
      return !isInside || std::abs(late - shift_) <= UnitOf(expected) + UnitOf(found);
    }
    if (!IsSound(expected) || !expected.isFirst || !expected.isCut) return false;
    const bool isRule = late < 0 && -late <= OwnLength(expected) / 8 + sides_.tolerance;
    if (isRule) ++findings.byRule["packets that start a clip are heard a little earlier"];
    return isRule;
  }
  // Two roundings of a media time differ by no more. Nothing if both have the same units.
  Nanoseconds UnitOf(const Row& row) const {
    const bool isSame = sides_.expected.empty() || sides_.found.empty() ||
                        sides_.expected.front().track->media->header.scale ==
                            sides_.found.front().track->media->header.scale;
    return isSame ? 2 : kSecond / row.track->media->header.scale + 1;
  }
  bool MayStop(const Row& expected, const Row& found, Nanoseconds longer) {
    if (std::abs(longer) <= sides_.tolerance) return true;
    const Row* next = NextHeard(1);
    if (longer > 0) {
      if (!expected.isLast) return false;
      const bool isRule =
          next == nullptr ? sides_.isText : found.until <= next->from + sides_.tolerance;
      if (isRule) ++findings.byRule[CountNoun() + " last until the next one"];
      return isRule;
    }
    const bool isRule = IsSound(expected) && next != nullptr && next->isFirst &&
                        -longer <= OwnLength(expected) / 8 + sides_.tolerance;
    if (isRule) ++findings.byRule["packets end a little earlier, where a clip starts"];
    return isRule;
  }

  // Takes the first row of a side if it may be missing on the other side by rule.
  bool TakeByRule() {
    const char* rule = found_.IsAtEnd() ? nullptr : RuleToShow(found_.Front());
    if (rule != nullptr) {
      ++findings.byRule[rule];
      found_.Pop();
      return true;
    }
    if (!expected_.IsAtEnd() && MayBeMissing(expected_.Front())) {
      if (!expected_.Front().isExtra)
        ++findings.byRule["samples that are hardly shown are left out"];
      expected_.Pop();
      return true;
    }
    if (!found_.IsAtEnd() && IsSliver(found_.Front())) {
      ++findings.byRule["samples are shown for a moment by rounding"];
      found_.Pop();
      return true;
    }
    return false;
  }
  // A row that starts earlier than another by more does so not only by rounding. Gaps shorter than
  // a quarter of a packet are not filled.
  Nanoseconds Near(const Row& row) const { return std::min(sides_.tolerance, OwnLength(row) / 4); }
  // Whether so little of a sample is shown that rounding can add or remove it.
  bool IsSliver(const Row& row) const {
    const Nanoseconds length = row.until - row.from;
    if (row.isTimeless || length > sides_.tolerance) return false;
    return length == 0 || ((row.isFirst || row.isLast) && length < OwnLength(row) * 9 / 10);
  }
  bool MayBeMissing(const Row& row) const {
    if (row.isExtra || IsSliver(row)) return true;
    // A chapter that two edits show is one chapter.
    if (sides_.isText && row.isFirst && last_ && HaveSameBytes(*last_, row)) return true;
    return IsSound(row) && row.isLast && NextHeard(1) != nullptr &&
           row.until - row.from <= OwnLength(row) / 8 + sides_.tolerance;
  }
  // Why the output shows a row that is in no input; null if it should not.
  const char* RuleToShow(const Row& row) const {
    for (const auto& [from, until] : sides_.listed) {
      if (row.from >= from - sides_.tolerance && row.from < until) {
        return "chapters that an input lists in another way";
      }
    }
    const Row* next = NextHeard(0);
    if (next == nullptr || !next->isFirst || !last_) return nullptr;
    const Nanoseconds slack = sides_.tolerance + (IsSound(row) ? OwnLength(*last_) / 8 : 0);
    const Nanoseconds end = next->from - (IsSound(row) ? Near(row) : 0);
    if (row.from < last_->until - slack || row.from >= end) return nullptr;
    if (IsEmpty(row)) return "silent or empty samples fill gaps";
    const bool isHeld = row.isFirst && row.isCut && HaveSameBytes(row, *last_) &&
                        row.until <= next->from + sides_.tolerance;
    return isHeld ? "samples are held before a clip that starts late" : nullptr;
  }
  // Whether a row is silence, or a text that shows nothing.
  bool IsEmpty(const Row& row) const {
    constexpr std::uint64_t kMost = 1 << 20;
    if (row.bytes.size == 0 || row.bytes.size > kMost) return false;
    const toolbox::ByteSpan description = row.Description().bytes;
    const auto silent = toolbox::SilentPacket(description), text = toolbox::EmptyText(description);
    const auto silence = toolbox::SilentByte(description);
    if (!silent && !text && !silence) return false;
    toolbox::Bytes bytes(row.bytes.size);
    sides_.hasher.Source(row.bytes.file).Read(row.bytes.at, bytes);
    return bytes == silent || bytes == text ||
           (silence && std::ranges::count(bytes, *silence) == std::ssize(bytes));
  }
  // The first expected row from `index` on that is shown.
  const Row* NextHeard(std::size_t index) const {
    const std::deque<Row>& rows = expected_.Known();
    for (; index < rows.size(); ++index) {
      if (!rows[index].isExtra) return &rows[index];
    }
    return nullptr;
  }

  // What the first row on each side differ in, in words.
  std::string Mismatch() {
    if (expected_.IsAtEnd()) {
      const std::string at = TimeText(found_.Front().from);
      return CountText(found_.CountRest(), sides_.noun) + " too many from " + at + " on";
    }
    const Row expected = expected_.Front();
    const std::string at = " at " + TimeText(expected.from) + Of(expected);
    if (found_.IsAtEnd()) {
      const std::string number = NumberText();
      const std::uint64_t count = expected_.CountRest();
      return number + at + ": the last " + CountText(count, sides_.noun) + " missing";
    }
    const Row& found = found_.Front();
    const std::size_t missing = Find(expected_.Known(), found);
    const std::size_t added = Find(found_.Known(), expected);
    if (missing != 0 && added != 0) return NumberText() + at + ": not in its place";
    if (missing != 0)
      return NumberText() + at + ": " + CountText(missing, sides_.noun) + " missing";
    if (added != 0)
      return NumberText() + at + ": before it, " + CountText(added, sides_.noun) + " too many";
    const auto isBefore = [&](const Row& row) { return row.from < found.from - sides_.tolerance; };
    const auto before = std::ranges::count_if(expected_.Known(), isBefore);
    if (before != 0 && !expected.isTimeless) {
      return NumberText() + at + ": at least " +
             CountText(static_cast<std::uint64_t>(before), sides_.noun) + " missing";
    }
    return NumberText() + at + ": it has other bytes";
  }
  // The index of a row with the bytes of `wanted`; 0 if there is none.
  static std::size_t Find(const std::deque<Row>& rows, const Row& wanted) {
    const std::size_t end = std::min(rows.size(), kAhead);
    for (std::size_t i = 1; i < end; ++i) {
      if (HaveSameBytes(rows[i], wanted)) return i;
    }
    return 0;
  }

  void Differ(std::string text) { findings.difference = std::move(text); }
  std::string NumberText() const { return sides_.noun + " " + std::to_string(expected_.Number()); }
  std::string CountNoun() const { return sides_.noun + "s"; }
  static std::string Of(const Row& row) { return " of input " + std::to_string(row.input + 1); }
  static bool IsSound(const Row& row) { return row.track->media->Type() == kSound; }

  Sides sides_;
  Descriptions descriptions_;
  Side expected_, found_;
  std::optional<Row> last_;  // the last expected row that was found
  Nanoseconds shift_ = 0;  // how much later it starts in the output
};

}  // namespace

std::unique_ptr<Comparison> CompareSamples(Sides sides) {
  return std::make_unique<SampleComparison>(std::move(sides));
}

}  // namespace clipinfo
