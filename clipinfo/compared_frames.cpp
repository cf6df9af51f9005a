// Compares uncompressed sound: runs of frames, whatever chunks they are stored in.
#include <algorithm>
#include <cstdlib>
#include <deque>
#include <limits>
#include <span>
#include <utility>

#include "clipinfo/compared.h"
#include "toolbox/plan/empty_samples.h"

namespace clipinfo {
namespace {

// Bytes with one hash, and the hashes that are compared at once.
constexpr std::uint64_t kUnit = 256 << 10;
constexpr std::size_t kUnits = 128;

// The frames of one side that have not been compared.
class Frames {
 public:
  Frames(std::vector<Stretch> stretches, Files& files)
      : scale_(stretches.empty() ? 1 : stretches.front().track->media->header.scale),
        rows_(std::move(stretches), {.asFrames = true}, files) {
    Reach(0);
  }

  bool IsAtEnd() const { return known_.empty(); }
  const Shown& Front() const { return known_.front(); }
  // Whether the front is the start of a stretch.
  bool IsAtStart() const { return Front().isFirst; }
  std::uint64_t FrameSize() const { return Front().bytes.size / Front().frames; }
  // The bytes of the first `count` frames of the front row.
  Piece Bytes(std::uint32_t count) const {
    return {Front().bytes.file, Front().bytes.at, count * FrameSize()};
  }
  // Removes that many frames. They are in the front row or in the rows after it.
  void Drop(std::uint64_t count) {
    while (count != 0 && !IsAtEnd()) {
      Shown& row = known_.front();
      const auto now = static_cast<std::uint32_t>(std::min<std::uint64_t>(count, row.frames));
      count -= now;
      if (now == row.frames) {
        known_.pop_front();
        Reach(0);
        continue;
      }
      row.from += LengthOf(row, now);
      row.bytes.at += now * FrameSize();
      row.bytes.size -= now * FrameSize();
      row.frames -= now;
      row.isFirst = false;
    }
  }
  // How many frames are left in the stretch, but at most a little more than `limit`.
  std::uint64_t LeftInStretch(std::uint64_t limit) {
    std::uint64_t left = 0;
    for (std::size_t i = 0; Reach(i) && left <= limit; ++i) {
      left += known_[i].frames;
      if (known_[i].isLast) break;
    }
    return left;
  }
  // How many frames at the front are silent, up to the end of the stretch. It stops after `limit`.
  std::uint64_t CountSilent(Hasher& hasher, std::uint64_t limit) {
    std::uint64_t silent = 0;
    for (std::size_t i = 0; silent <= limit && Reach(i); ++i) {
      const std::uint64_t here = SilentIn(known_[i], hasher);
      silent += here;
      if (here < known_[i].frames || known_[i].isLast) break;
    }
    return silent;
  }
  std::int32_t Scale() const { return scale_; }

 private:
  // Makes sure that the row with that index is known. Returns false if there is none.
  bool Reach(std::size_t index) {
    while (known_.size() <= index) {
      const auto row = rows_.Next();
      if (!row) return false;
      known_.push_back(*row);
    }
    return true;
  }
  // How long `count` frames of the row are heard.
  static Nanoseconds LengthOf(const Shown& row, std::uint32_t count) {
    return toolbox::Rescale(row.until - row.from, row.frames, count);
  }
  static std::uint64_t SilentIn(const Shown& row, Hasher& hasher) {
    constexpr std::uint64_t kBlock = 64 << 10;
    const auto silence = toolbox::SilentByte(row.Description().bytes);
    const std::uint64_t frame = row.bytes.size / row.frames;
    if (!silence || frame == 0) return 0;
    toolbox::Bytes block;
    for (std::uint64_t done = 0; done < row.bytes.size; done += block.size()) {
      block.resize(std::min(kBlock, row.bytes.size - done));
      hasher.Source(row.bytes.file).Read(row.bytes.at + done, block);
      const auto loud = std::ranges::find_if(block, [&](auto byte) { return byte != *silence; });
      if (loud != block.end()) {
        return (done + static_cast<std::uint64_t>(loud - block.begin())) / frame;
      }
    }
    return row.frames;
  }

  std::int32_t scale_;
  Presented rows_;
  std::deque<Shown> known_;
};

class FrameComparison final : public Comparison {
 public:
  explicit FrameComparison(Sides sides)
      : sides_(std::move(sides)),
        expected_(sides_.expected, sides_.files),
        found_(sides_.found, sides_.files),
        slack_(static_cast<std::uint64_t>(
            toolbox::Rescale(sides_.tolerance, kSecond, found_.Scale()) + 1)) {}

  Nanoseconds Time() const override {
    if (findings.difference || (expected_.IsAtEnd() && found_.IsAtEnd())) {
      return std::numeric_limits<Nanoseconds>::max();
    }
    return expected_.IsAtEnd() ? found_.Front().from : expected_.Front().from;
  }

  void Advance() override {
    std::deque<Unit> units;
    std::optional<std::string> fault;
    while (units.size() < kUnits && !fault && !(expected_.IsAtEnd() && found_.IsAtEnd())) {
      fault = Align();
      if (fault || expected_.IsAtEnd() || found_.IsAtEnd()) continue;
      units.push_back(TakeUnit());
      sides_.hasher.Add(units.back().expected, units.back().expectedHash);
      sides_.hasher.Add(units.back().found, units.back().foundHash);
    }
    sides_.hasher.Run();
    for (const Unit& unit : units) {
      if (unit.expectedHash != unit.foundHash) return Differ(unit.place + "other bytes");
      findings.samples += unit.frames;
      for (const Piece& piece : unit.expected) findings.bytes += piece.size;
      findings.hash.Add(unit.expectedHash);
    }
    if (fault) Differ(*fault);
  }

 private:
  // Frames that are in both sides at the same time.
  struct Unit {
    std::string place;
    std::uint64_t frames = 0;
    std::vector<Piece> expected, found;
    Hash expectedHash, foundHash;
  };

  // Skips what one side may lack by rule, so that both sides are at the same time. Returns what is
  // wrong if they are not.
  std::optional<std::string> Align() {
    if (expected_.IsAtEnd()) return AlignEnd(found_, " too long");
    if (found_.IsAtEnd()) return AlignEnd(expected_, " missing");
    if (expected_.FrameSize() != found_.FrameSize() ||
        !descriptions_.AreAlike(expected_.Front(), found_.Front())) {
      return Place() + "it has another description";
    }
    // A stretch can be longer on one side by the rounding of its end.
    if (found_.IsAtStart() && !expected_.IsAtStart()) DropRest(expected_);
    if (expected_.IsAtEnd() || found_.IsAtEnd()) return std::nullopt;
    if (expected_.IsAtStart() && !hasAligned_) {
      if (!found_.IsAtStart()) DropRest(found_);
      if (found_.IsAtEnd()) return std::nullopt;
      AlignStart();
      hasAligned_ = true;
      if (expected_.IsAtEnd() || found_.IsAtEnd()) return std::nullopt;
    }
    const Nanoseconds late = found_.Front().from - expected_.Front().from;
    if (std::abs(late) <= sides_.tolerance + kSecond / found_.Scale()) return std::nullopt;
    return Place() + "heard " + LengthText(std::abs(late)) + (late > 0 ? " later" : " earlier");
  }
  // Removes the frames up to the end of the stretch if they are few.
  void DropRest(Frames& side) {
    const std::uint64_t left = side.LeftInStretch(slack_);
    if (left > slack_) return;
    ++findings.byRule["clips of sound end a moment earlier or later by rounding"];
    side.Drop(left);
  }
  // Skips silence before a stretch: that of a gap, in the output, and what rounding leaves out. The
  // first sound after it shows where the stretch starts.
  void AlignStart() {
    const Nanoseconds late = found_.Front().from - expected_.Front().from;
    if (found_.IsAtStart() && std::abs(late) <= sides_.tolerance) return;
    if (late < -sides_.tolerance) ++findings.byRule["gaps in sound are filled with silence"];
    const auto gap = static_cast<std::uint64_t>(
        toolbox::Rescale(std::max<Nanoseconds>(-late, 0), kSecond, found_.Scale()));
    const std::uint64_t silent = expected_.CountSilent(sides_.hasher, UINT64_MAX);
    const std::uint64_t most = silent + gap + slack_;
    const std::uint64_t filled = std::min(most, found_.CountSilent(sides_.hasher, most));
    if (silent == expected_.LeftInStretch(silent)) {
      found_.Drop(std::min(filled, gap));
    } else if (filled > silent) {
      found_.Drop(filled - silent);
    } else if (silent - filled <= slack_) {
      expected_.Drop(silent - filled);
    }
  }
  std::optional<std::string> AlignEnd(Frames& side, const char* what) {
    std::uint64_t left = 0;
    const Nanoseconds at = side.Front().from;
    while (!side.IsAtEnd() && left <= slack_) {
      const std::uint32_t now = side.Front().frames;
      side.Drop(now);
      left += now;
    }
    if (left <= slack_) return std::nullopt;
    while (!side.IsAtEnd()) {
      left += side.Front().frames;
      side.Drop(side.Front().frames);
    }
    return "sound from " + TimeText(at) +
           " on: " + LengthText(InNanoseconds(static_cast<std::int64_t>(left), side.Scale())) +
           what;
  }

  // Takes frames from both sides, up to the end of a stretch.
  Unit TakeUnit() {
    Unit unit{.place = Place()};
    std::uint64_t bytes = 0;
    bool isAtEnd = false;
    while (!isAtEnd && bytes < kUnit && !expected_.IsAtEnd() && !found_.IsAtEnd()) {
      const Shown &expected = expected_.Front(), &found = found_.Front();
      const std::uint64_t room =
          std::max<std::uint64_t>(1, (kUnit - bytes) / expected_.FrameSize());
      const auto now = static_cast<std::uint32_t>(
          std::min<std::uint64_t>({room, expected.frames, found.frames}));
      isAtEnd =
          (expected.isLast && now == expected.frames) || (found.isLast && now == found.frames);
      unit.expected.push_back(expected_.Bytes(now));
      unit.found.push_back(found_.Bytes(now));
      unit.frames += now;
      bytes += now * expected_.FrameSize();
      expected_.Drop(now);
      found_.Drop(now);
      hasAligned_ = false;
    }
    return unit;
  }

  std::string Place() const {
    const Shown& row = expected_.Front();
    return "sound at " + TimeText(row.from) + " of input " + std::to_string(row.input + 1) + ": ";
  }
  void Differ(std::string text) { findings.difference = std::move(text); }

  Sides sides_;
  Descriptions descriptions_;
  Frames expected_, found_;
  std::uint64_t slack_;  // the tolerance in frames
  bool hasAligned_ = false;  // both sides are at the start of the expected stretch
};

}  // namespace

std::unique_ptr<Comparison> CompareFrames(Sides sides) {
  return std::make_unique<FrameComparison>(std::move(sides));
}

}  // namespace clipinfo
