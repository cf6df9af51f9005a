#include "clipinfo/presented.h"

#include <algorithm>
#include <deque>
#include <queue>
#include <utility>

#include "clipinfo/sample_reader.h"
#include "toolbox/movie/presentation.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/empty_samples.h"
#include "toolbox/plan/sound_packets.h"
#include "toolbox/refused.h"

namespace clipinfo {
namespace {

using toolbox::Edit;
using toolbox::FourCC;
using toolbox::MediaRecord;
using toolbox::MediaTime;
using toolbox::MovieTime;
using toolbox::SamplePiece;
using toolbox::SampleRange;
using toolbox::SampleSlice;
using toolbox::SampleTable;
using toolbox::TrackRecord;

constexpr FourCC kSound{"soun"};

// Samples that are read at once.
constexpr std::uint64_t kBlock = 8192;
// Samples that can be waiting for one that is decoded later and shown earlier. Real movies have a
// few.
constexpr std::size_t kMaxWaiting = 1 << 20;

// Samples that can be read without being shown, in all stretches, and so many more for each sample
// that is shown. In real movies an edit reads a few samples around those that it shows. In a movie
// made to keep its reader busy, each of very many edits reads a whole track.
constexpr std::uint64_t kMostHidden = 1 << 22, kMostHiddenPerShown = 1000;

// Samples in the order in which they are shown.
class SampleWalk final : public Presented::Walk {
 public:
  // `left` is the number of samples that can still be read; it must outlive this object.
  SampleWalk(const Stretch& stretch, bool withExtras, Files& files, std::uint64_t& left)
      : times_(stretch), reader_(stretch, files), left_(left) {
    const SampleTable& samples = reader_.Samples();
    Spend(CountCandidates(samples, times_.From()));
    const SampleRange shown = SamplesShownIn(samples, times_.From(), times_.Until());
    if (shown.IsEmpty()) return;
    range_ = WholePackets(samples, shown);
    withTail_ = withExtras && times_.Until() >= samples.Duration();
    if (withTail_) range_.to = samples.Count();
    if (withExtras && samples.Offsets().AreZero()) AddDelay();
  }

  std::optional<Shown> Next() override {
    if (!delay_.empty()) return TakeFirst(delay_);
    while (const auto entry = Pop()) {
      if (entry->shown >= times_.Until()) {
        if (withTail_) AddTail(*entry);
        return Finish();
      }
      const auto ready = std::exchange(pending_, entry);
      // A sample is not shown if the stretch starts with a later one.
      if (ready && entry->shown > times_.From()) return Emit(*ready, entry->shown);
    }
    if (pending_) return Finish();
    return tail_.empty() ? std::nullopt : std::optional(TakeFirst(tail_));
  }

 private:
  using Entry = SampleReader::Entry;
  struct IsLater {
    bool operator()(const Entry& a, const Entry& b) const {
      return std::pair(a.shown, a.row.sample) > std::pair(b.shown, b.row.sample);
    }
  };

  // Counts samples that are read. Throws Refused if they are too many.
  void Spend(std::uint64_t samples) {
    if (samples > left_) {
      throw toolbox::Refused{toolbox::memFullErr, "its samples are in too great disorder"};
    }
    left_ -= samples;
  }
  // Rows for the packets before the first one that only let the decoder start.
  void AddDelay() {
    const std::uint64_t count = toolbox::DelayPackets(reader_.Samples(), range_.from);
    for (Entry& entry : reader_.Read({range_.from - count, range_.from})) {
      entry.row.from = entry.row.until = times_.Start();
      entry.row.isExtra = true;
      delay_.push_back(entry.row);
    }
  }
  // Rows for the last samples of the media, which are shown after its end: `first` and those after
  // it. The edit of a movie without an edit list hides them if pictures are reordered.
  void AddTail(const Entry& first) {
    constexpr std::size_t kMost = 16;
    for (std::optional<Entry> entry = first; entry && tail_.size() < kMost; entry = Pop()) {
      entry->row.from = entry->row.until = times_.End();
      entry->row.isExtra = true;
      tail_.push_back(entry->row);
    }
  }
  static Shown TakeFirst(std::deque<Shown>& rows) {
    const Shown row = rows.front();
    rows.pop_front();
    return row;
  }
  // The entry that is shown next.
  std::optional<Entry> Pop() {
    const SampleTable& samples = reader_.Samples();
    const MediaTime smallest{samples.Offsets().smallest};
    while (!range_.IsEmpty() &&
           (waiting_.empty() || waiting_.top().shown >= samples.TimeOf(range_.from) + smallest)) {
      SampleRange block = range_;
      block.to = std::min(block.to, block.from + kBlock);
      if (block.to < range_.to) block = WholePackets(samples, block);
      Spend(waiting_.size() > kMaxWaiting ? UINT64_MAX : block.Count());
      for (const Entry& entry : reader_.Read(block)) waiting_.push(entry);
      range_.from = block.to;
    }
    if (waiting_.empty()) return std::nullopt;
    const Entry entry = waiting_.top();
    waiting_.pop();
    return entry;
  }
  std::optional<Shown> Finish() {
    range_ = {};
    waiting_ = {};
    if (!pending_) return std::nullopt;
    const Entry last = *std::exchange(pending_, std::nullopt);
    const SampleTable& samples = reader_.Samples();
    const SampleSlice& slice = samples.SliceOf(last.row.sample);
    const std::uint32_t packet = PacketLength(samples, last.row.sample);
    const MediaTime own{std::int64_t{packet} *
                        slice.rows->DurationOf(slice.RowOf(last.row.sample))};
    const auto next = packet > 1 ? std::nullopt : NextShownAfter(samples, last.shown);
    // The last sample of a media is shown until the media ends.
    const MediaTime end = packet > 1 ? MediaTime{} : samples.EndTime();
    Shown row = Emit(last, next.value_or(std::max(last.shown + own, end)));
    row.isLast = true;
    return row;
  }
  Shown Emit(const Entry& entry, MediaTime until) {
    Shown row = entry.row;
    row.from = times_.At(entry.shown);
    row.until = times_.At(until);
    row.isFirst = std::exchange(isFirst_, false);
    row.isCut = entry.shown < times_.From();
    row.isPlain = times_.IsPlain();
    left_ += kMostHiddenPerShown;
    return row;
  }

  StretchTimes times_;
  SampleReader reader_;
  std::uint64_t& left_;
  SampleRange range_;  // not read yet
  bool withTail_ = false;
  std::deque<Shown> delay_, tail_;
  std::priority_queue<Entry, std::vector<Entry>, IsLater> waiting_;
  std::optional<Entry> pending_;  // shown until the next one starts
  bool isFirst_ = true;
};

// Samples that are shown for no time, in the order of the media.
class TimelessWalk final : public Presented::Walk {
 public:
  TimelessWalk(const Stretch& stretch, Files& files)
      : reader_(stretch, files), base_(stretch.base), range_{0, reader_.Samples().Count()} {}

  std::optional<Shown> Next() override {
    if (ready_.empty() && !range_.IsEmpty()) {
      const SampleRange block{range_.from, std::min(range_.to, range_.from + kBlock)};
      for (const auto& entry : reader_.Read(block)) ready_.push_back(entry.row);
      range_.from = block.to;
    }
    if (ready_.empty()) return std::nullopt;
    Shown row = ready_.front();
    ready_.pop_front();
    row.from = row.until = base_;
    row.isTimeless = true;
    return row;
  }

 private:
  SampleReader reader_;
  Nanoseconds base_;
  SampleRange range_;
  std::deque<Shown> ready_;
};

// Frames of uncompressed sound: as many in a row as follow one another in the file.
class FrameWalk final : public Presented::Walk {
 public:
  FrameWalk(const Stretch& stretch, Files& files)
      : times_(stretch),
        reader_(stretch, files),
        range_(SamplesShownIn(reader_.Samples(), times_.From(), times_.Until())) {}

  std::optional<Shown> Next() override {
    constexpr std::uint64_t kFrames = 64 << 10;
    if (ready_.empty() && !range_.IsEmpty()) {
      const SampleRange block{range_.from, std::min(range_.to, range_.from + kFrames)};
      reader_.ReadPieces(block, [this](const SamplePiece& piece) { Add(piece); });
      range_.from = block.to;
      if (range_.IsEmpty()) ready_.back().isLast = true;
    }
    if (ready_.empty()) return std::nullopt;
    Shown row = ready_.front();
    ready_.pop_front();
    row.isFirst = std::exchange(isFirst_, false);
    return row;
  }

 private:
  void Add(const SamplePiece& piece) {
    Shown row = reader_.RowOf(piece);
    const auto time = [](std::uint64_t sample) {
      return MediaTime{static_cast<std::int64_t>(sample)};
    };
    row.frames = piece.count;
    row.from = times_.At(time(piece.sample));
    row.until = times_.At(time(piece.sample + piece.count));
    row.isPlain = times_.IsPlain();
    ready_.push_back(row);
  }

  StretchTimes times_;
  SampleReader reader_;
  SampleRange range_;
  std::deque<Shown> ready_;
  bool isFirst_ = true;
};

// Whether all samples have one size, even if the file lists a size for each.
bool HaveOneSize(const toolbox::SampleRows& rows) {
  if (rows.constantSize != 0) return true;
  const auto sizes = rows.sizes.Values();
  const std::uint64_t first = rows.count == 0 ? 0 : sizes[0];
  for (std::uint32_t i = 1; i < rows.count; ++i) {
    if (sizes[i] != first) return false;
  }
  return first != 0;
}

}  // namespace

Nanoseconds InNanoseconds(std::int64_t units, std::int32_t scale) {
  return toolbox::Rescale(units, scale, kSecond);
}

Nanoseconds Stretch::Start() const {
  return base + InNanoseconds(edit.start.units, track->TimeClock().movie);
}
Nanoseconds Stretch::End() const {
  return base + InNanoseconds(edit.End().units, track->TimeClock().movie);
}

std::vector<Stretch> StretchesOf(const TrackRecord& track, MovieTime from, MovieTime length,
                                 Nanoseconds base) {
  std::vector<Stretch> stretches;
  if (!track.media) return stretches;
  if (track.media->samples.IsTimeless()) {
    stretches.push_back({.track = &track, .edit = {}, .base = base});
    return stretches;
  }
  const toolbox::EditList edits = track.edits.Segment(from, length, track.TimeClock());
  for (const Edit& edit : edits.Edits()) {
    if (!edit.IsEmpty()) stretches.push_back({.track = &track, .edit = edit, .base = base});
  }
  return stretches;
}

bool AreFrames(const MediaRecord& media) {
  const auto slices = media.samples.Slices();
  const auto isSingle = [](toolbox::Packing packing) { return packing.samples == 1; };
  const auto isUncompressed = [](const toolbox::SampleDescription& each) {
    return toolbox::SilentByte(each.bytes).has_value();
  };
  const auto hasFrames = [&](const SampleSlice& slice) {
    const toolbox::SampleRows& rows = *slice.rows;
    return rows.times.size() == 1 && rows.times.front().delta == 1 &&
           slice.stretch == MediaTime{} && std::ranges::all_of(rows.packings, isSingle) &&
           HaveOneSize(rows);
  };
  return media.Type() == kSound && !slices.empty() && media.samples.Offsets().AreZero() &&
         std::ranges::all_of(media.descriptions, isUncompressed) &&
         std::ranges::all_of(slices, hasFrames);
}

Presented::Presented(std::vector<Stretch> stretches, Settings settings, Files& files)
    : stretches_(std::move(stretches)), settings_(settings), files_(files), left_(kMostHidden) {
  std::ranges::stable_sort(stretches_, {}, &Stretch::Start);
}
Presented::~Presented() = default;

std::optional<Shown> Presented::Next() {
  for (;;) {
    if (walk_) {
      if (const auto row = walk_->Next()) return row;
    }
    if (next_ == stretches_.size()) return std::nullopt;
    const Stretch& stretch = stretches_[next_++];
    if (stretch.track->media->samples.IsTimeless()) {
      walk_ = std::make_unique<TimelessWalk>(stretch, files_);
    } else if (settings_.asFrames) {
      walk_ = std::make_unique<FrameWalk>(stretch, files_);
    } else {
      walk_ = std::make_unique<SampleWalk>(stretch, settings_.withExtras, files_, left_);
    }
  }
}

}  // namespace clipinfo
