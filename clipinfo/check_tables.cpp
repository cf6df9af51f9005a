// Whether the sample tables of a track agree. The reader of movies mends what does not, so the
// tables are compared as the file states them.
#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

#include "clipinfo/findings.h"
#include "toolbox/atoms/sample_entries.h"

namespace clipinfo {
namespace {

using toolbox::FourCC;
using toolbox::SampleTableAtoms;

constexpr char kTable[] = "mdia/minf/stbl/";

// The sample tables of one track.
class TableCheck {
 public:
  TableCheck(const TrackToCheck& track, const SampleTableAtoms& table)
      : track_(track), table_(table), count_(CountOfSizes(table)) {}

  void Check() const {
    CheckDescriptions();
    CheckTimes();
    CheckChunks();
    CheckNumbers("stss", table_.sync);
    CheckNumbers("stps", table_.partialSync);
    CheckValues();
    CheckGroups();
    for (const toolbox::Sibling& other : table_.others) {
      if (other.bytes.empty() || !IsUsedOnce(other.type)) continue;
      Warn(other.type.Text(), "a second table of this kind, which is not used");
    }
  }

 private:
  static bool IsUsedOnce(FourCC type) {
    static constexpr FourCC kTypes[] = {"stsd", "stts", "ctts", "stss", "stps", "stsc",
                                        "stco", "co64", "stsz", "stz2", "sdtp"};
    return std::ranges::find(kTypes, type) != std::end(kTypes);
  }
  void Fault(const std::string& table, std::string text) const {
    track_.Fault(kTable + table, std::move(text));
  }
  void Warn(const std::string& table, std::string text) const {
    track_.Warn(kTable + table, std::move(text));
  }
  // How many samples a table has rows for.
  static std::uint64_t Covered(const auto& table) {
    std::uint64_t samples = 0;
    if (table) table->rows.ForEach([&](const auto& row) { samples += row.count; });
    return samples;
  }
  std::string OfSamples(std::uint64_t covered) const {
    return "it is for " + Counted(covered, "sample") + ", but the track has " +
           std::to_string(count_);
  }

  void CheckDescriptions() const {
    const std::size_t references = track_.track.media->dataReferences.size();
    if (!table_.descriptions) {
      if (count_ != 0) Fault("stsd", "it is missing, so the samples cannot be decoded");
      return;
    }
    for (const toolbox::Bytes& entry : table_.descriptions->entries) {
      const auto number = toolbox::ReferenceNumber(entry);
      if (!number || (*number >= 1 && *number <= references)) continue;
      Warn("stsd", "it names data reference " + std::to_string(*number) + " of " +
                       std::to_string(references) + "; the first is used instead");
    }
  }

  void CheckTimes() const {
    const std::uint64_t timed = Covered(table_.times), offset = Covered(table_.offsets);
    if (timed < count_) {
      Fault("stts", OfSamples(timed) + ": players guess when the last ones are shown");
    } else if (timed > count_) {
      Warn("stts", OfSamples(timed));
    }
    if (!table_.offsets || offset == count_) return;
    if (offset < count_) {
      Fault("ctts", OfSamples(offset) + ": the last ones can be shown in the wrong order");
    } else {
      Warn("ctts", OfSamples(offset));
    }
  }

  void CheckChunks() const {
    std::uint64_t chunks = 0;
    if (table_.chunkOffsets) {
      chunks = std::visit([](const auto& offsets) { return offsets.rows.Count(); },
                          *table_.chunkOffsets);
    }
    std::uint64_t located = 0, next = 0, after = 0;
    std::optional<toolbox::SampleToChunk::Row> last;
    const auto add = [&](std::uint64_t end) {
      if (!last || last->firstChunk > chunks) return;
      located += (std::min(end, chunks + 1) - last->firstChunk) * last->samplesPerChunk;
    };
    if (table_.chunks) {
      table_.chunks->rows.ForEach([&](const toolbox::SampleToChunk::Row& row) {
        add(row.firstChunk);
        next = row.firstChunk;
        if (next > chunks) ++after;
        last = row;
      });
      add(chunks + 1);
    }
    if (located < count_) {
      const toolbox::SampleTable& samples = track_.track.media->samples;
      const toolbox::MediaTime lost = samples.Duration() - samples.TimeOf(located);
      Fault("stsc", Counted(count_ - located, "sample") + " of " + std::to_string(count_) +
                        " have no place in a file: " +
                        SecondsText(lost.units, track_.track.media->header.scale) + " are lost");
    } else if (located > count_) {
      const std::string text = "the chunks have " + Counted(located, "sample") +
                               ", but the track has " + std::to_string(count_);
      count_ == 0 ? Fault("stsz", text) : Warn("stsc", text);
    }
    if (after != 0 && located >= count_) {
      Warn("stsc", "it goes on to chunk " + std::to_string(next) + ", but there are " +
                       std::to_string(chunks));
    }
  }

  // A table of sample numbers. They are in order, and each is that of a sample.
  void CheckNumbers(const std::string& type, const auto& table) const {
    if (!table || track_.track.media->samples.Count() > count_) return;
    std::uint64_t last = 0, unordered = 0, outside = 0;
    table->rows.ForEach([&](const toolbox::SampleNumber& row) {
      if (row.number <= last) ++unordered;
      if (row.number == 0 || row.number > count_) ++outside;
      last = row.number;
    });
    if (outside != 0) {
      Warn(type, "it names " + Counted(outside, "sample") + " that the track does not have");
    } else if (unordered != 0) {
      Fault(type, "the sync samples are not in order, so that seeking can fail");
    }
  }

  // The tables with a value for each sample.
  void CheckValues() const {
    const auto check = [this](const std::string& type, std::uint64_t values) {
      if (values != count_) Warn(type, OfSamples(values));
    };
    if (table_.dependencies) check("sdtp", table_.dependencies->samples.size());
    if (table_.priorities) check("stdp", table_.priorities->Count());
    if (table_.padding) check("padb", table_.padding->count);
  }

  void CheckGroups() const {
    for (const toolbox::SampleGroupAtom& group : table_.groups) {
      const auto* samples = std::get_if<toolbox::SampleToGroup>(&group);
      if (samples == nullptr) continue;
      const std::uint64_t covered = Covered(std::optional(*samples));
      if (covered > count_) Warn("sbgp", OfSamples(covered));
    }
  }

  const TrackToCheck& track_;
  const SampleTableAtoms& table_;
  const std::uint64_t count_;  // samples in the header; fragments can have more
};

}  // namespace

void CheckTables(const MovieToCheck& movie) {
  for (const TrackToCheck& track : movie.tracks) {
    if (track.stated == nullptr || !track.track.media) continue;
    TableCheck(track, track.stated->media->information.table).Check();
  }
}

}  // namespace clipinfo
