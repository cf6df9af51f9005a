#include "toolbox/plan/update_steps.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <variant>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/refused.h"

namespace toolbox {
namespace {

constexpr FourCC kMovie{"moov"}, kFree{"free"}, kSkip{"skip"};

WriteBytes WriteType(std::uint64_t atom, FourCC type) { return {atom + 4, TypeBytes(type)}; }

// A 'moov' after the one that counts, left by a save that was cut short.
bool IsLeftover(const FileOutline& file, const FileOutline::Part& part) {
  return part.atom.type == kMovie && &part != &file.Movie();
}

// Refuses to free an old movie, or its fragments, that still has what encrypted samples are
// decrypted by.
void CheckOldMovieMayGo(const FilePlan& plan, const FileOutline& file) {
  const auto isLost = [&file](const CopyRange& range) {
    return std::ranges::any_of(file.atoms, [&](const FileOutline::Part& part) {
      const bool isToGo = &part == &file.Movie() || BelongsToFragments(part.atom.type);
      return isToGo && range.at < part.at + part.atom.size && range.at + range.length > part.at;
    });
  };
  for (const TrackPlan& track : plan.tracks) {
    if (!track.source->media) continue;
    const MediaRecord& media = *track.source->media;
    for (const AuxiliaryData& data : FindAuxiliaryData(media, media.samples)) {
      for (const CopyRange& range : data.ranges) {
        if (std::holds_alternative<ThisFile>(*range.from) && isLost(range)) {
          throw Refused{featureUnsupported};
        }
      }
    }
  }
}

// Frees every leftover. The first movie counts, and once that is freed no reader may take a
// leftover for the newest.
std::optional<Stage> FreeLeftovers(const FileOutline& file) {
  Stage stage;
  for (const FileOutline::Part& part : file.atoms) {
    if (IsLeftover(file, part)) stage.steps.push_back(WriteType(part.at, kFree));
  }
  if (stage.steps.empty()) return std::nullopt;
  stage.steps.push_back(Sync{});
  return stage;
}

// Gives the last atom a size when it has none, so that something can follow it. False where there
// is no room for one.
bool CloseLastAtom(const FileOutline& file, std::vector<Step>& steps) {
  if (!file.lastHasNoSize) return true;
  const FileOutline::Part& last = file.atoms.back();
  const Bytes head = AtomHead(last.atom.type, last.atom.size - 8);
  if (head.size() == 8) {
    steps.push_back(WriteBytes{last.at, head});
    return true;
  }
  // A head of 16 bytes takes the place of a 'wide' before it as well.
  const std::size_t count = file.atoms.size();
  if (count < 2) return false;
  const FileOutline::Part& before = file.atoms[count - 2];
  if (before.atom.type != FourCC{"wide"} || before.atom.size != 8) return false;
  steps.push_back(WriteBytes{before.at, head});
  return true;
}

// Room for `size` bytes and, unless it fits exactly, for the head of a 'free'; null where there is
// none.
const FileOutline::Part* FindRoom(const FileOutline& file, std::uint64_t size) {
  const auto found = std::ranges::find_if(file.atoms, [&](const FileOutline::Part& part) {
    const AtomFrame& atom = part.atom;
    const bool isFree = atom.type == kFree || atom.type == kSkip || IsLeftover(file, part);
    return isFree && atom.headerSize == 8 && (atom.size == size || atom.size >= size + 8) &&
           part.isMereRoom;
  });
  return found == file.atoms.end() ? nullptr : &*found;
}

// Puts the new movie into free room.
Stage PutIntoRoom(const FileOutline::Part& room, const Bytes& movie) {
  constexpr std::ptrdiff_t kHead = 8;
  Stage stage;
  // All but the head first. The room is free until the head is written.
  stage.steps.push_back(WriteBytes{room.at + kHead, Bytes(movie.begin() + kHead, movie.end())});
  if (room.atom.size > movie.size()) {
    // Zeros, so that no reader keeps what is left of an older header.
    stage.steps.push_back(
        WriteBytes{room.at + movie.size(), FreeAtom(room.atom.size - movie.size())});
  }
  stage.steps.push_back(Sync{});
  stage.steps.push_back(WriteBytes{room.at, Bytes(movie.begin(), movie.begin() + kHead)});
  stage.steps.push_back(Sync{});
  return stage;
}

// Appends media data and the new movie.
Stage Append(const FilePlan& plan, const FileOutline& file, PlannedHeader& header) {
  Stage stage;
  const std::uint64_t end = AddMediaData(plan, file.size, stage.steps);
  const std::uint64_t dataStart = end - plan.dataSize;
  stage.steps.push_back(WritePart{end, header.SizeAt(dataStart), kMovieHeader, dataStart});
  stage.steps.push_back(Sync{});
  stage.undo = {CutOff{file.size}};
  return stage;
}

// The steps in place; false where a new file has to be written.
bool PlanInPlace(const FilePlan& plan, const FileOutline& file, PlannedHeader& header,
                 std::vector<Stage>& stages) {
  // Nothing may be left of fragments, and nothing can follow bytes that are no atom.
  Stage closing;
  if (file.isFragmented || file.end != file.size || !CloseLastAtom(file, closing.steps)) {
    return false;
  }
  if (!closing.steps.empty()) stages.push_back(std::move(closing));
  const Bytes movie = plan.dataSize == 0 ? header.Encode(0) : Bytes();
  const FileOutline::Part* room = movie.empty() ? nullptr : FindRoom(file, movie.size());
  stages.push_back(room != nullptr ? PutIntoRoom(*room, movie) : Append(plan, file, header));
  const Step undo = room != nullptr ? Step(WriteType(room->at, kFree)) : CutOff{file.size};
  stages.push_back({{WriteType(file.Movie().at, kFree)}, {undo}});
  stages.push_back({{Sync{}}, {}});
  return true;
}

struct Stretch {
  std::uint64_t from = 0, to = 0;  // bytes
};

// What a new file takes over after its movie, from byte `start` on: all but the old movie and its
// fragments.
std::vector<Stretch> KeptFrom(const FileOutline& file, std::uint64_t start) {
  std::vector<Stretch> kept;
  const auto keep = [&kept](std::uint64_t from, std::uint64_t to) {
    if (from == to) return;
    if (kept.empty() || kept.back().to != from) {
      kept.push_back({from, to});
    } else {
      kept.back().to = to;
    }
  };
  for (const FileOutline::Part& part : file.atoms) {
    const bool isDropped =
        &part == &file.Movie() || (file.isFragmented && BelongsToFragments(part.atom.type));
    if (part.at >= start && !isDropped) keep(part.at, part.at + part.atom.size);
  }
  if (!file.isFragmented || !file.endsInsideFragment) keep(file.end, file.size);
  return kept;
}

// A new file: the first atom if it names the kind of file, the new movie, and all the rest.
std::vector<Stage> PlanNewFile(FilePlan& plan, const FileOutline& file, PlannedHeader& header) {
  if (file.locatesItems) throw Refused{featureUnsupported};
  const FileOutline::Part& first = file.atoms.front();
  const std::uint64_t start = first.atom.type == FourCC{"ftyp"} ? first.atom.size : 0;
  const std::vector<Stretch> kept = KeptFrom(file, start);
  // How far the rest moves depends on the size of the movie, and the other way round.
  std::vector<Step> media;
  std::uint64_t size = 0, dataStart = 0;
  for (std::uint64_t next = 1; next != size;) {
    size = next;
    media.clear();
    plan.shifts.clear();
    std::uint64_t at = AddMediaData(plan, start + size, media);
    dataStart = at - plan.dataSize;
    for (const Stretch& stretch : kept) {
      plan.shifts.push_back({stretch.from, static_cast<std::int64_t>(at - stretch.from)});
      at += stretch.to - stretch.from;
    }
    next = header.SizeAt(dataStart);
  }

  std::vector<Step> steps;
  if (start != 0) steps.push_back(CopyBytes{0, file.source, 0, start});
  steps.push_back(WritePart{start, size, kMovieHeader, dataStart});
  steps.insert(steps.end(), media.begin(), media.end());
  std::uint64_t at = dataStart + plan.dataSize;
  for (const Stretch& stretch : kept) {
    steps.push_back(CopyBytes{at, file.source, stretch.from, stretch.to - stretch.from});
    at += stretch.to - stretch.from;
  }
  return {{std::move(steps), {}}, NamingStage(at)};
}

}  // namespace

UpdateSteps StepsForUpdate(FilePlan& plan, const FileOutline& file, PlannedHeader& header) {
  CheckOldMovieMayGo(plan, file);
  UpdateSteps steps;
  if (auto stage = FreeLeftovers(file)) steps.inPlace.push_back(std::move(*stage));
  if (!PlanInPlace(plan, file, header, steps.inPlace)) {
    steps.newFile = PlanNewFile(plan, file, header);
  }
  return steps;
}

}  // namespace toolbox
