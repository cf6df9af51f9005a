#include "toolbox/read/read_fragments.h"

#include <algorithm>
#include <numeric>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "toolbox/read/fragment_auxiliary.h"
#include "toolbox/read/read_groups.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

using namespace fragment_flags;

// The latest decode time that is accepted. Sums and differences of such times cannot overflow.
constexpr std::uint64_t kLatest = 1ULL << 57;

// The samples of one 'trun' and where they belong.
struct RunOfSamples {
  std::size_t track = 0;  // index
  std::optional<std::uint64_t> time;  // when the first is decoded, if the fragment says so
  std::uint32_t description = 0;  // index
  std::uint64_t at = 0, size = 0;  // bytes
  FragmentSample defaults;
  TrackRun run;
  std::vector<FragmentGroups> groups;  // of the whole fragment; only in its first run
  FragmentAuxiliary::Part auxiliary;
};

// Adds samples to the end of one track.
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
    run.run.ForEach(run.defaults, [&](std::uint32_t samples, const FragmentSample& sample) {
      AddSizes(samples, sample.size, run.description);
      rows_.AddTimes(samples, sample.duration);
      if (!rows_.offsets.IsEmpty() || sample.offset != 0) {
        if (rows_.offsets.IsEmpty()) rows_.AddOffsets(filled_, 0);
        rows_.AddOffsets(samples, sample.offset);
        if (sample.offset < 0) rows_.offsetsVersion = 1;
      }
      AddFlags(samples, sample.flags);
      filled_ += samples;
    });
  }

  // Call it after the last run.
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
    // Tables that the toolbox does not interpret cover only the samples before the fragments.
    std::erase_if(rows_.otherTables, [](const Sibling& table) { return !table.bytes.empty(); });
    groups_.Begin();
  }

  // The next sample is decoded at `time`. The sample before it lasts until then, so that the track
  // stays in sync with the others. If it cannot, the writer's clock has jumped, and the time line
  // continues from here.
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

    // The same bits as in 'sdtp'. There is no table if they only say that sync samples depend on no
    // other sample and that all others do.
    const auto byte = static_cast<std::uint8_t>(flags >> 20);
    isInformative_ |= byte != 0 && byte != (isSync ? 0x20 : 0x10);
    if (dependencies_.empty() || dependencies_.back().byte != byte) {
      dependencies_.push_back({filled_, byte});
    }
  }

  // Limits the memory before a row is made for each of the samples so far.
  void CheckCount() const {
    if (filled_ > fileSize_) throw Malformed("the file has no room for so many samples");
  }

  FragmentedTrack& track_;
  SampleRows& rows_;
  const std::uint64_t fileSize_;
  bool isBegun_ = false;
  std::uint32_t filled_ = 0;  // samples in all tables
  std::int64_t start_ = 0;  // the writer's time at the decode time 0 of the rows
  std::vector<DependencyRun> dependencies_;
  bool isInformative_ = false;
  FragmentGrouper groups_{rows_};
  FragmentAuxiliary auxiliary_;
};

class FragmentReader {
 public:
  FragmentReader(const ByteSource& source, const MovieExtends& extends,
                 std::span<FragmentedTrack> tracks)
      : source_(source), walk_(source), tracks_(tracks) {
    for (std::size_t i = 0; i < tracks.size(); ++i) {
      byId_.emplace(tracks[i].id, i);
      fillers_.emplace_back(tracks[i], source.Size());
    }
    for (const TrackDefaults& defaults : extends.tracks) {
      defaults_.emplace(defaults.track, defaults);
    }
  }

  void Read() {
    while (const auto atom = walk_.Next()) {
      if (atom->atom.type != MovieFragment::kType) continue;
      runs_.clear();
      auto fragment = Decode<MovieFragment>(walk_.Content(*atom));
      InAtom(MovieFragment::kType, [&] { ReadFragment(fragment, atom->at); });
      // A recording that was cut off ends with its last complete fragment.
      if (!isWhole_) break;
      for (const RunOfSamples& run : runs_) fillers_[run.track].Add(run);
    }
    for (TrackFiller& filler : fillers_) filler.Finish();
  }

 private:
  void ReadFragment(MovieFragment& fragment, std::uint64_t fragmentAt) {
    // Where data offsets count from if the track does not say so: the start of the fragment for its
    // first track, the end of the previous track's data for the others.
    std::optional<std::uint64_t> dataEnd;
    // A movie without fragments cannot have keys that change in the middle.
    if (fragment.protection) throw Refused{featureUnsupported};
    for (TrackFragment& track : fragment.tracks) {
      InAtom(TrackFragment::kType, [&] { ReadTrack(track, fragmentAt, dataEnd); });
    }
  }

  void ReadTrack(TrackFragment& fragment, std::uint64_t fragmentAt,
                 std::optional<std::uint64_t>& dataEnd) {
    const TrackFragmentHeader& header = fragment.header;
    const auto track = byId_.find(header.track);
    const auto given = defaults_.find(header.track);
    const TrackDefaults defaults = given == defaults_.end() ? TrackDefaults{} : given->second;

    RunOfSamples run;
    run.defaults = {
        .duration = header.Has(kDefaultDuration) ? header.duration : defaults.duration,
        .size = header.Has(kDefaultSize) ? header.size : defaults.size,
        .flags = header.Has(kDefaultFlags) ? header.sampleFlags : defaults.sampleFlags,
    };
    if (fragment.time) run.time = fragment.time->time;
    const bool isOwn = header.Has(kBaseIsFragment) || !dataEnd;
    const std::uint64_t base = header.Has(kBaseDataOffset) ? header.baseDataOffset
                               : isOwn                     ? fragmentAt
                                                           : *dataEnd;
    std::uint64_t next = base;
    const std::size_t before = runs_.size();
    for (TrackRun& stated : fragment.runs) {
      run.run = std::move(stated);
      // An offset below 0 becomes a large number, and the sum wraps around to the right place.
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
    if (isWhole_ && runs_.size() != before) {
      ReadExtras(fragment, base, std::span(runs_).subspan(before));
    }
    dataEnd = next;
  }

  // Adds up the sizes of the samples and checks that they are in the file.
  void Measure(RunOfSamples& run) {
    if (!run.run.IsComplete()) throw Malformed("'trun' is shorter than its count");
    run.size = 0;
    run.run.ForEach(run.defaults, [&](std::uint32_t samples, const FragmentSample& sample) {
      run.size += std::uint64_t{samples} * sample.size;
    });
    if (run.at > source_.Size() || run.size > source_.Size() - run.at) isWhole_ = false;
    // Fragments do not share data, so all samples together are not larger than the file. A sample
    // without a row counts as one byte at least, which limits the count.
    const std::uint64_t claimed =
        std::max<std::uint64_t>(run.size, run.run.RowSize() == 0 ? run.run.count : 0);
    if (isWhole_ && claimed > source_.Size() - claimed_) {
      throw Malformed("the fragments have more samples than the file has room for");
    }
    if (isWhole_) claimed_ += claimed;
  }

  // Reads groups and auxiliary information of `runs`, all runs of one track in one fragment.
  static void ReadExtras(const TrackFragment& fragment, std::uint64_t base,
                         std::span<RunOfSamples> runs) {
    const std::uint32_t samples = std::accumulate(
        runs.begin(), runs.end(), std::uint32_t{0}, [](std::uint32_t sum, const RunOfSamples& run) {
          return sum > UINT32_MAX - run.run.count ? UINT32_MAX : sum + run.run.count;
        });
    runs.front().groups = ReadFragmentGroups(fragment.groups, samples);
    const auto& sizes = fragment.auxiliarySizes;
    const auto& offsets = fragment.auxiliaryOffsets;
    // What decrypts samples can be found only with both tables.
    if (sizes.has_value() != offsets.has_value() || (!sizes && IsEncrypted(fragment))) {
      throw Refused{featureUnsupported};
    }
    if (!sizes) return;
    std::vector<std::uint32_t> counts;
    for (const RunOfSamples& run : runs) counts.push_back(run.run.count);
    auto auxiliary = FragmentAuxiliary::Split(*sizes, *offsets, base, counts);
    for (std::size_t i = 0; i < runs.size(); ++i) runs[i].auxiliary = std::move(auxiliary[i]);
  }

  // Whether samples are encrypted by atoms that the toolbox does not interpret.
  static bool IsEncrypted(const TrackFragment& fragment) {
    if (fragment.encryption) return true;
    static constexpr std::uint8_t kEncryption[] = {0xA2, 0x39, 0x4F, 0x52, 0x5A, 0x9B, 0x4F, 0x14,
                                                   0xA2, 0x44, 0x6C, 0x42, 0x7C, 0x64, 0x8D, 0xF4};
    return std::ranges::any_of(fragment.extensions, [](const auto& atom) {
      return atom.content.size() >= 16 && std::ranges::equal(atom.content.first(16), kEncryption);
    });
  }

  const ByteSource& source_;
  TopLevelWalk walk_;
  std::span<FragmentedTrack> tracks_;
  std::unordered_map<std::uint32_t, std::size_t> byId_;
  std::unordered_map<std::uint32_t, TrackDefaults> defaults_;
  std::vector<TrackFiller> fillers_;
  std::vector<RunOfSamples> runs_;  // of the current fragment
  bool isWhole_ = true;
  std::uint64_t claimed_ = 0;  // bytes of all fragments so far
};

}  // namespace

void ReadFragments(const ByteSource& source, const MovieExtends& extends,
                   std::span<FragmentedTrack> tracks) {
  FragmentReader(source, extends, tracks).Read();
}

}  // namespace toolbox
