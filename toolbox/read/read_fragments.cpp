#include "toolbox/read/read_fragments.h"

#include <algorithm>
#include <boost/range/adaptor/reversed.hpp>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include "toolbox/read/fragment_auxiliary.h"
#include "toolbox/read/fragment_frames.h"
#include "toolbox/read/read_groups.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

using namespace fragment_flags;

// The latest decode time that is accepted. Sums and differences of such times cannot overflow.
constexpr std::uint64_t kLatest = 1ULL << 57;

class TrackFiller;

// The samples of one 'trun' (ISO/IEC 14496-12 8.8.8), their track and their place in the file.
struct RunOfSamples {
  TrackFiller* track = nullptr;
  std::optional<std::uint64_t> time;  // decode time of the first sample, if 'tfdt' states it
  std::uint32_t description = 0;  // index
  std::uint64_t at = 0, size = 0;  // of the sample data, in bytes
  FragmentSample defaults;
  TrackRun run;
  std::vector<FragmentGroups> groups;  // of the whole fragment; only in its first run
  FragmentAuxiliary::Part auxiliary;
};

// Adds runs of samples to the end of one track. `fileSize`, in bytes, limits how many samples a
// file can claim.
class TrackFiller {
 public:
  TrackFiller(FragmentedTrack& track, std::uint64_t fileSize)
      : track_(track), rows_(*track.rows), fileSize_(fileSize) {}

  // Adds the next run as one chunk. Throws Malformed or Refused.
  void Add(const RunOfSamples& run) {
    if (run.run.count == 0) return;
    if (!isBegun_) Begin();
    if (run.run.count > UINT32_MAX - rows_.count) throw Malformed("the track has too many samples");
    if (run.time) MoveTo(*run.time);
    for (const FragmentGroups& groups : run.groups) groups_.Add(groups);
    auxiliary_.Add(run.auxiliary);
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
    frames_.Add(run.run, run.defaults, run.size, run.description);
  }

  // Completes the tables that need all samples. Call it once, after the last run.
  void Finish() {
    groups_.Finish();
    auxiliary_.Finish();
    if (frames_.Finish() || !isInformative_) return;
    rows_.dependencies.resize(rows_.count);
    auto end = rows_.dependencies.end();
    for (const auto& run : boost::adaptors::reverse(dependencies_)) {
      const auto begin = rows_.dependencies.begin() + run.sample;
      std::fill(begin, end, run.byte);
      end = begin;
    }
  }

  std::size_t Descriptions() const { return track_.track->media->descriptions.size(); }

 private:
  // The samples from `sample` on have this byte in 'sdtp'.
  struct DependencyRun {
    std::uint32_t sample = 0;
    std::uint8_t byte = 0;
  };

  // Prepares the rows for more samples. A track without fragments keeps its rows as they are.
  void Begin() {
    isBegun_ = true;
    filled_ = rows_.count;
    if (rows_.Located() != rows_.count) throw Malformed("samples of the header are in no chunk");
    if (rows_.count == 0) {
      rows_.sync.reset();
      rows_.constantSize = 0;
      rows_.packings.clear();
      frames_.Begin();
      return;
    }
    track_.times.headerDecoded = rows_.duration;
    track_.times.headerShown = rows_.ShownUntil({0, rows_.count});
    DropPackets();
    frames_.Begin();
    // Tables that the toolbox does not interpret cover only the samples before the fragments.
    std::erase_if(rows_.otherTables, [](const Sibling& table) { return !table.bytes.empty(); });
    groups_.Begin();
  }

  // Makes packets of one sample plain samples. Fragments can add samples of other sizes to these.
  void DropPackets() {
    const auto sizeOf = [this](const Packing& packing) {
      return packing.bytes != 0 ? packing.bytes : rows_.constantSize;
    };
    const auto isPlain = [&](const Packing& packing) {
      return packing.samples == 1 && sizeOf(packing) == sizeOf(rows_.packings[0]);
    };
    if (rows_.packings.empty() || !std::ranges::all_of(rows_.packings, isPlain)) return;
    rows_.constantSize = sizeOf(rows_.packings[0]);
    rows_.packings.clear();
  }

  // Sets the decode time of the next sample. The duration of the sample before it changes so that
  // it lasts until then, and the track stays in sync with the others. If that is impossible, the
  // clock of the writer has jumped. Then the next sample follows at once, and later times are
  // relative to it.
  void MoveTo(std::uint64_t time) {
    if (time > kLatest) throw Malformed("the decode time of a fragment is too large");
    const auto stated = static_cast<std::int64_t>(time);
    const MediaTime end = rows_.duration;
    if (rows_.count == 0) {
      track_.times.start = start_ = stated;
    } else if (!rows_.MoveEnd({stated - start_})) {
      start_ = stated - end.units;
    } else if (rows_.duration > end) {
      track_.gaps.push_back({end, rows_.duration});
    }
  }

  // Adds `samples` samples of `size` bytes. A table of sizes is made only when two sizes differ.
  void AddSizes(std::uint32_t samples, std::uint32_t size, std::uint32_t description) {
    if (!rows_.packings.empty()) {
      const Packing packing = rows_.PackingOf(description);
      if (packing.samples == 1 && packing.bytes == size) return;
      throw Refused{featureUnsupported, "packets and plain samples in one track"};
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

  // Adds the flags of `samples` samples, ISO/IEC 14496-12 8.8.3.1. A table of sync samples is made
  // only when a sample is not a sync sample.
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

    // The upper bits are laid out as in 'sdtp'. The table is left out if it would state only this:
    // sync samples depend on no other sample, and all other samples do.
    const auto byte = static_cast<std::uint8_t>(flags >> 20);
    isInformative_ |= byte != 0 && byte != (isSync ? 0x20 : 0x10);
    if (dependencies_.empty() || dependencies_.back().byte != byte) {
      dependencies_.push_back({filled_, byte});
    }
  }

  // Call this before a table gets an entry for each sample so far. Otherwise a small damaged file
  // could claim billions of samples and use up the memory.
  void CheckCount() const {
    if (filled_ > fileSize_) throw Malformed("the file is too small for so many samples");
  }

  FragmentedTrack& track_;
  SampleRows& rows_;
  const std::uint64_t fileSize_;
  bool isBegun_ = false;
  std::uint32_t filled_ = 0;  // samples that are in all tables; rows_.count can be larger
  std::int64_t start_ = 0;  // decode time 0 of the rows, on the clock of the writer
  std::vector<DependencyRun> dependencies_;
  bool isInformative_ = false;  // whether 'sdtp' is needed
  FragmentGrouper groups_{rows_};
  FragmentAuxiliary auxiliary_{rows_};
  FragmentFrames frames_{*track_.track->media, rows_};
};

// Reads the fragments of one file in order. Each is decoded completely before its samples are
// added, so that an incomplete fragment adds nothing.
class FragmentReader {
 public:
  FragmentReader(const ByteSource& source, const MovieExtends& extends,
                 std::span<FragmentedTrack> tracks)
      : source_(source), walk_(source) {
    for (FragmentedTrack& track : tracks) {
      if (track.rows) fillers_.try_emplace(track.track->header.id, track, source.Size());
    }
    for (const TrackDefaults& defaults : extends.tracks) {
      defaults_.emplace(defaults.track, defaults);
    }
  }

  void Read() {
    while (const auto atom = walk_.Next()) {
      if (atom->type != MovieFragment::kType) continue;
      runs_.clear();
      auto fragment = Decode<MovieFragment>(walk_.Content(*atom));
      InAtom(MovieFragment::kType, [&] { ReadFragment(fragment, atom->at); });
      // A recording that was cut off ends with its last complete fragment.
      if (!isWhole_) break;
      for (const RunOfSamples& run : runs_) run.track->Add(run);
    }
    for (auto& [id, filler] : fillers_) filler.Finish();
  }

 private:
  // Puts the runs of one 'moof', which starts at `fragmentAt`, into runs_.
  void ReadFragment(MovieFragment& fragment, std::uint64_t fragmentAt) {
    // Where the data of the previous track ends. Data offsets are relative to this if their track
    // states no base (8.8.7.1). The first track has no previous one; its base is the start of the
    // fragment.
    std::optional<std::uint64_t> dataEnd;
    // The output has tables instead of fragments, and tables cannot state keys that change in the
    // middle of a movie.
    if (fragment.protection) throw Refused{featureUnsupported, "a fragment has keys of its own"};
    for (TrackFragment& track : fragment.tracks) {
      InAtom(TrackFragment::kType, [&] { ReadTrack(track, fragmentAt, dataEnd); });
    }
  }

  // Puts the runs of one 'traf' into runs_. Afterwards `dataEnd` is the end of its data. Runs of
  // tracks that the movie does not have are measured too, because the data of the next track can
  // follow theirs.
  void ReadTrack(TrackFragment& fragment, std::uint64_t fragmentAt,
                 std::optional<std::uint64_t>& dataEnd) {
    const TrackFragmentHeader& header = fragment.header;
    const auto filler = fillers_.find(header.track);
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
      // A negative offset becomes a large unsigned number; the sum then wraps around to the right
      // position.
      run.at = run.run.Has(kDataOffset)
                   ? base + static_cast<std::uint64_t>(std::int64_t{run.run.dataOffset})
                   : next;
      Measure(run);
      next = run.at + run.size;
      if (filler == fillers_.end() || run.run.count == 0) continue;
      const std::uint32_t number =
          header.Has(kDescription) ? header.description : defaults.description;
      if (number == 0 || number > filler->second.Descriptions()) {
        throw Malformed("a fragment names a sample description that is missing");
      }
      run.description = number - 1;
      run.track = &filler->second;
      runs_.push_back(run);
      run.time.reset();  // 'tfdt' is only for the first run
    }
    if (isWhole_ && runs_.size() != before) {
      ReadExtras(fragment, base, std::span(runs_).subspan(before));
    }
    dataEnd = next;
  }

  // Sets run.size and checks that the data is in the file; if not, the fragment is incomplete.
  void Measure(RunOfSamples& run) {
    if (!run.run.IsComplete()) throw Malformed("'trun' is shorter than its count");
    run.size = 0;
    run.run.ForEach(run.defaults, [&](std::uint32_t samples, const FragmentSample& sample) {
      run.size += std::uint64_t{samples} * sample.size;
    });
    if (run.at > source_.Size() || run.size > source_.Size() - run.at) isWhole_ = false;
    // Fragments do not share data, so together they cannot have more bytes than the file. If
    // samples have no rows in 'trun', each counts as one byte at least, so that a damaged count is
    // found.
    const std::uint64_t claimed =
        std::max<std::uint64_t>(run.size, run.run.RowSize() == 0 ? run.run.count : 0);
    if (isWhole_ && claimed > source_.Size() - claimed_) {
      throw Malformed("the file is too small for the samples of its fragments");
    }
    if (isWhole_) claimed_ += claimed;
  }

  // Reads groups and auxiliary information of `runs`, all runs of one track in one fragment.
  static void ReadExtras(const TrackFragment& fragment, std::uint64_t base,
                         std::span<RunOfSamples> runs) {
    std::uint64_t samples = 0;
    for (const RunOfSamples& run : runs) samples += run.run.count;
    runs.front().groups = ReadFragmentGroups(
        fragment.groups, static_cast<std::uint32_t>(std::min<std::uint64_t>(samples, UINT32_MAX)));
    const auto& sizes = fragment.auxiliarySizes;
    const auto& offsets = fragment.auxiliaryOffsets;
    // Only both tables together locate the information that decrypts samples.
    if (sizes.has_value() != offsets.has_value() || (!sizes && IsEncrypted(fragment))) {
      throw Refused{featureUnsupported, "'saiz' or 'saio' is missing"};
    }
    if (sizes) ReadAuxiliary(*sizes, *offsets, base, runs);
  }

  // Divides the auxiliary information of one track in one fragment among its runs. `offsets` has
  // either one offset for all runs or one for each, in bytes from `base`. Throws Malformed, or
  // Refused: featureUnsupported (the tables do not fit together).
  static void ReadAuxiliary(const AuxiliarySizes& sizes, const AuxiliaryOffsets& offsets,
                            std::uint64_t base, std::span<RunOfSamples> runs) {
    const std::vector<std::uint64_t> places = offsets.Offsets();
    const bool isOneEach = places.size() == runs.size();
    if (!sizes.IsComplete() || !sizes.kind.IsSame(offsets.kind) ||
        (!isOneEach && places.size() != 1)) {
      throw Refused{featureUnsupported, "'saiz' and 'saio' do not match"};
    }
    std::uint64_t sample = 0, next = places.front();
    for (std::size_t i = 0; i < runs.size(); ++i) {
      // With one offset for all, the information of a run follows that of the run before.
      if (isOneEach) next = places[i];
      runs[i].auxiliary = {sizes.kind, base + next, Bytes(runs[i].run.count)};
      for (std::uint8_t& size : runs[i].auxiliary.sizes) {
        size = sizes.SizeOf(sample++);
        next += size;
      }
    }
  }

  // Whether the samples are encrypted: then there is a 'senc', ISO/IEC 23001-7 7.2, or an older
  // 'uuid' atom for the same purpose.
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
  std::unordered_map<std::uint32_t, TrackFiller> fillers_;  // by track ID
  std::unordered_map<std::uint32_t, TrackDefaults> defaults_;  // by track ID
  std::vector<RunOfSamples> runs_;  // of the current fragment
  bool isWhole_ = true;  // whether all data of the current fragment is in the file
  std::uint64_t claimed_ = 0;  // bytes of all fragments so far
};

}  // namespace

void ReadFragments(const ByteSource& source, const MovieExtends& extends,
                   std::span<FragmentedTrack> tracks) try {
  FragmentReader(source, extends, tracks).Read();
} catch (Failure& failure) {
  // The caller of this function is inside InAtom for 'moov', which would add 'moov' to the path. It
  // adds nothing to a failure that names its file, and fragments are not in 'moov'.
  failure.NameFile(source.Path());
  throw;
}

}  // namespace toolbox
