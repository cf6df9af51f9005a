#include "toolbox/read/read_fragments.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/atoms/framing.h"
#include "toolbox/atoms/sample_atoms.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/read/read_groups.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

using namespace fragment_flags;

// Farther than any clock has counted; sums and differences of such times cannot overflow.
constexpr std::uint64_t kLatest = 1ULL << 57;

constexpr std::uint32_t kIsNoSync = 0x10000;  // in the flags of a sample

// What is stated of one sample, or of a run of samples that are alike.
struct SampleFacts {
  std::uint32_t duration = 0, size = 0, flags = 0;
  std::int32_t offset = 0;
};

// The samples of one 'trun', with what they have in common where it does not state it.
struct RunOfSamples {
  std::size_t track = 0;  // index
  std::optional<std::uint64_t> time;  // when the first is decoded, where that is stated
  std::uint32_t description = 0;  // index
  std::uint64_t at = 0, size = 0;  // bytes
  SampleFacts defaults;
  TrackRun run;
  std::vector<FragmentGroups> groups;  // of all of the fragment; only where this is its first run
  FragmentAuxiliary::Part auxiliary;

  // Calls visit(samples, facts) for all of them, in their order.
  template <class Visit>
  void ForEach(Visit&& visit) const {
    const std::size_t rowSize = run.RowSize();
    SampleFacts facts = defaults;
    if (rowSize == 0) {
      std::uint32_t rest = run.count;
      if (run.Has(kFirstSampleFlags) && rest != 0) {
        facts.flags = run.firstSampleFlags;
        visit(1U, facts);
        --rest;
      }
      if (rest != 0) visit(rest, defaults);
      return;
    }
    const std::uint8_t* column = run.rows.data();
    const auto take = [&column]<class Number>(bool isStated, Number& number) {
      if (!isStated) return;
      number = FromBigEndian<Number>(column);
      column += sizeof(Number);
    };
    for (std::uint32_t i = 0; i < run.count; ++i) {
      take(run.Has(kDuration), facts.duration);
      take(run.Has(kSize), facts.size);
      facts.flags = defaults.flags;
      take(run.Has(kSampleFlags), facts.flags);
      if (i == 0 && run.Has(kFirstSampleFlags)) facts.flags = run.firstSampleFlags;
      take(run.Has(kOffset), facts.offset);
      visit(1U, std::as_const(facts));
    }
  }
};

// Puts the samples of one track behind those that it has.
class TrackFiller {
 public:
  TrackFiller(FragmentedTrack& track, std::uint64_t fileSize)
      : track_(track), rows_(*track.rows), fileSize_(fileSize) {}

  void Add(const RunOfSamples& run) {
    if (run.run.count == 0) return;
    if (!isBegun_) Begin();
    if (run.run.count > UINT32_MAX - rows_.count) throw Malformed("the samples cannot be counted");
    if (run.time) MoveTo(*run.time);
    for (const FragmentGroups& groups : run.groups) groups_.Add(groups);
    auxiliary_.Add(run.auxiliary, run.run.count);
    rows_.count += run.run.count;
    rows_.chunkOffsets.Add(run.at);
    rows_.AddChunks(static_cast<std::uint32_t>(rows_.chunkOffsets.Count() - 1), 1, run.run.count,
                    run.description);
    run.ForEach([&](std::uint32_t samples, const SampleFacts& facts) {
      AddSizes(samples, facts.size, run.description);
      rows_.AddTimes(samples, facts.duration);
      if (!rows_.offsets.IsEmpty() || facts.offset != 0) {
        if (rows_.offsets.IsEmpty()) rows_.AddOffsets(filled_, 0);
        rows_.AddOffsets(samples, facts.offset);
        if (facts.offset < 0) rows_.offsetsVersion = 1;
      }
      AddFlags(samples, facts.flags);
      filled_ += samples;
    });
  }

  // Once all are there.
  void Finish() {
    groups_.Finish();
    auxiliary_.PutTables(rows_.otherTables);
    if (!isInformative_) return;
    rows_.dependencies.resize(rows_.count);
    for (std::size_t i = 0; i < dependencies_.size(); ++i) {
      const bool isLast = i + 1 == dependencies_.size();
      const std::uint32_t end = isLast ? rows_.count : dependencies_[i + 1].sample;
      std::fill(rows_.dependencies.begin() + dependencies_[i].sample,
                rows_.dependencies.begin() + end, dependencies_[i].byte);
    }
  }

 private:
  struct DependencyRun {
    std::uint32_t sample = 0;
    std::uint8_t byte = 0;
  };

  void Begin() {
    isBegun_ = true;
    filled_ = rows_.count;
    auxiliary_ = FragmentAuxiliary(rows_.count, rows_.chunkOffsets.Count());
    if (rows_.Located() != rows_.count) throw Malformed("samples before the fragments lie nowhere");
    if (rows_.count == 0) {
      rows_.sync.reset();
      rows_.constantSize = 0;
      rows_.packings.clear();
      return;
    }
    // Tables that nobody reads know only the samples that were there.
    std::erase_if(rows_.otherTables, [](const Sibling& table) { return !table.bytes.empty(); });
    groups_.Begin();
  }

  // The next sample is decoded at `time`. The sample before lasts until then, so that all stay in
  // step with the other tracks. Where it cannot, the clock of the writer has jumped: its time line
  // goes on from here.
  void MoveTo(std::uint64_t time) {
    if (time > kLatest) throw Malformed("a fragment is decoded later than can be told");
    const auto stated = static_cast<std::int64_t>(time);
    const MediaTime end = rows_.duration;
    if (rows_.count == 0) {
      track_.start = start_ = stated;
    } else if (!rows_.MoveEnd({stated - start_})) {
      start_ = stated - end.units;
    } else if (rows_.duration > end) {
      track_.gaps.push_back({end, rows_.duration});
    }
  }

  void AddSizes(std::uint32_t samples, std::uint32_t size, std::uint32_t description) {
    if (!rows_.packings.empty()) {
      const Packing packing = rows_.PackingOf(description);
      if (packing.samples == 1 && packing.bytes == size) return;
      throw Refused{featureUnsupported};  // packets and plain samples in one table
    }
    if (rows_.sizes.IsEmpty()) {
      if (filled_ == 0) rows_.constantSize = size;
      if (rows_.constantSize == size && size != 0) return;
      CheckCount();
      rows_.sizes.Add(filled_, rows_.constantSize);
      rows_.constantSize = 0;
    }
    rows_.sizes.Add(samples, size);
  }

  void AddFlags(std::uint32_t samples, std::uint32_t flags) {
    const bool isSync = (flags & kIsNoSync) == 0;
    const auto addSync = [this](std::uint32_t from, std::uint32_t to) {
      for (std::uint32_t sample = from; sample < to; ++sample) rows_.sync->push_back(sample);
    };
    if (!isSync && !rows_.sync) {
      CheckCount();
      rows_.sync.emplace();
      addSync(0, filled_);
    }
    if (isSync && rows_.sync) addSync(filled_, filled_ + samples);

    // The same bits as in 'sdtp'. That a sync sample depends on no other, and another sample on
    // some, is not worth a table.
    const auto byte = static_cast<std::uint8_t>(flags >> 20);
    isInformative_ |= byte != 0 && byte != (isSync ? 0x20 : 0x10);
    if (dependencies_.empty() || dependencies_.back().byte != byte) {
      dependencies_.push_back({filled_, byte});
    }
  }

  // Before a row is made for each sample that so far shares one with the others.
  void CheckCount() const {
    if (filled_ > fileSize_) throw Malformed("the file has no room for so many samples");
  }

  FragmentedTrack& track_;
  SampleRows& rows_;
  const std::uint64_t fileSize_;
  bool isBegun_ = false;
  std::uint32_t filled_ = 0;  // samples of which all is known
  std::int64_t start_ = 0;  // what the decode time 0 of the rows is to the writer by now
  std::vector<DependencyRun> dependencies_;
  bool isInformative_ = false;
  FragmentGrouper groups_{rows_};
  FragmentAuxiliary auxiliary_;
};

class FragmentReader {
 public:
  FragmentReader(const ByteSource& source, ByteSpan extends, std::span<FragmentedTrack> tracks)
      : source_(source), walk_(source), tracks_(tracks) {
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      byId_.emplace(tracks[i].id, i);
      fillers_.emplace_back(tracks[i], source.Size());
    }
    InAtom(FourCC{"mvex"}, [&] {
      for (const ByteSpan content : Children(extends).Each(TrackDefaults::kType)) {
        const auto defaults = Decode<TrackDefaults>(content);
        defaults_.emplace(defaults.track, defaults);
      }
    });
  }

  void Read() {
    while (const auto atom = walk_.Next()) {
      if (atom->atom.type != FourCC{"moof"}) continue;
      runs_.clear();
      InAtom(FourCC{"moof"}, [&] { ReadFragment(*atom); });
      // A recording that was cut off ends with the last fragment that is all there.
      if (!isWhole_) break;
      for (const RunOfSamples& run : runs_) fillers_[run.track].Add(run);
    }
    for (TrackFiller& filler : fillers_) filler.Finish();
  }

 private:
  void ReadFragment(const TopLevelAtom& fragment) {
    // A base that is not stated is the fragment for its first track, for the others where the data
    // of the one before ends.
    std::optional<std::uint64_t> dataEnd;
    Children parts(walk_.Content(fragment));
    // Keys that change on the way have no place in a movie without fragments.
    if (parts.Maybe(FourCC{"pssh"})) throw Refused{featureUnsupported};
    for (const ByteSpan content : parts.Each(FourCC{"traf"})) {
      InAtom(FourCC{"traf"}, [&] { ReadTrack(content, fragment.at, dataEnd); });
    }
  }

  void ReadTrack(ByteSpan content, std::uint64_t fragmentAt,
                 std::optional<std::uint64_t>& dataEnd) {
    Children parts(content);
    const auto header = parts.One<TrackFragmentHeader>();
    const auto track = byId_.find(header.track);
    const auto given = defaults_.find(header.track);
    const TrackDefaults defaults = given == defaults_.end() ? TrackDefaults{} : given->second;

    RunOfSamples run;
    run.defaults = {
        .duration = header.Has(kDefaultDuration) ? header.duration : defaults.duration,
        .size = header.Has(kDefaultSize) ? header.size : defaults.size,
        .flags = header.Has(kDefaultFlags) ? header.sampleFlags : defaults.sampleFlags,
    };
    if (const auto time = parts.Maybe<FragmentDecodeTime>()) run.time = time->time;
    const bool isOwn = header.Has(kBaseIsFragment) || !dataEnd;
    const std::uint64_t base = header.Has(kBaseDataOffset) ? header.baseDataOffset
                               : isOwn                     ? fragmentAt
                                                           : *dataEnd;
    std::uint64_t next = base;
    const std::size_t before = runs_.size();
    for (const ByteSpan stated : parts.Each(TrackRun::kType)) {
      run.run = Decode<TrackRun>(stated);
      // Wraps around for an offset below 0.
      run.at = run.run.Has(kDataOffset)
                   ? base + static_cast<std::uint64_t>(std::int64_t{run.run.dataOffset})
                   : next;
      Measure(run);
      next = run.at + run.size;
      if (track == byId_.end() || run.run.count == 0) continue;
      run.track = track->second;
      const std::uint32_t number =
          header.Has(kDescription) ? header.description : defaults.description;
      if (number == 0 || number > tracks_[run.track].descriptions) {
        throw Malformed("a fragment has no description");
      }
      run.description = number - 1;
      runs_.push_back(run);
      run.time.reset();
    }
    if (isWhole_ && runs_.size() != before)
      ReadExtras(parts, base, std::span(runs_).subspan(before));
    dataEnd = next;
  }

  // Finds out how long the samples are, and whether they are there.
  void Measure(RunOfSamples& run) {
    const std::size_t rowSize = run.run.RowSize();
    if (rowSize != 0 && run.run.count > run.run.rows.size() / rowSize) {
      throw Malformed("'trun' is shorter than its count");
    }
    run.size = 0;
    run.ForEach([&](std::uint32_t samples, const SampleFacts& facts) {
      run.size += std::uint64_t{samples} * facts.size;
    });
    if (run.at > source_.Size() || run.size > source_.Size() - run.at) isWhole_ = false;
    // No two fragments share their data, so that all samples together have no more than the file.
    // Those without rows of their own count for a byte at least.
    const std::uint64_t claimed =
        std::max<std::uint64_t>(run.size, rowSize == 0 ? run.run.count : 0);
    if (isWhole_ && claimed > source_.Size() - claimed_) {
      throw Malformed("the fragments have more samples than the file has room for");
    }
    if (isWhole_) claimed_ += claimed;
  }

  // Gives the runs, those of one fragment of a track, what it says of all of them together.
  static void ReadExtras(Children& parts, std::uint64_t base, std::span<RunOfSamples> runs) {
    const std::uint32_t samples = std::accumulate(
        runs.begin(), runs.end(), std::uint32_t{0}, [](std::uint32_t sum, const RunOfSamples& run) {
          return sum > UINT32_MAX - run.run.count ? UINT32_MAX : sum + run.run.count;
        });
    runs.front().groups = ReadFragmentGroups(parts, samples);
    const auto sizes = parts.Maybe(FourCC{"saiz"}), offsets = parts.Maybe(FourCC{"saio"});
    // Only these say where things lie.
    if (sizes.has_value() != offsets.has_value() || (!sizes && IsEncrypted(parts))) {
      throw Refused{featureUnsupported};
    }
    if (!sizes) return;
    std::vector<std::uint32_t> counts;
    for (const RunOfSamples& run : runs) counts.push_back(run.run.count);
    auto auxiliary = FragmentAuxiliary::Read(*sizes, *offsets, base, counts);
    for (std::size_t i = 0; i < runs.size(); ++i) runs[i].auxiliary = std::move(auxiliary[i]);
  }

  // Whether it says, in a way that nobody here follows, how its samples are encrypted.
  static bool IsEncrypted(Children& track) {
    if (track.Maybe(FourCC{"senc"})) return true;
    static constexpr std::uint8_t kEncryption[] = {0xA2, 0x39, 0x4F, 0x52, 0x5A, 0x9B, 0x4F, 0x14,
                                                   0xA2, 0x44, 0x6C, 0x42, 0x7C, 0x64, 0x8D, 0xF4};
    return std::ranges::any_of(track.Each(FourCC{"uuid"}), [](ByteSpan content) {
      return content.size() >= 16 && std::ranges::equal(content.first(16), kEncryption);
    });
  }

  const ByteSource& source_;
  TopLevelWalk walk_;
  std::span<FragmentedTrack> tracks_;
  std::unordered_map<std::uint32_t, std::size_t> byId_;
  std::unordered_map<std::uint32_t, TrackDefaults> defaults_;
  std::vector<TrackFiller> fillers_;
  std::vector<RunOfSamples> runs_;  // of the fragment at hand
  bool isWhole_ = true;
  std::uint64_t claimed_ = 0;  // bytes, by all fragments so far
};

}  // namespace

void ReadFragments(const ByteSource& source, ByteSpan extends, std::span<FragmentedTrack> tracks) {
  FragmentReader(source, extends, tracks).Read();
}

}  // namespace toolbox
