#include "toolbox/plan/update_steps.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>
#include <variant>

#include "toolbox/atoms/atom_heads.h"
#include "toolbox/atoms/gps_locations.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/plan/gps_data.h"
#include "toolbox/read/top_level.h"
#include "toolbox/refused.h"
#include "toolbox/trace.h"

namespace toolbox {
namespace {

constexpr std::uint64_t kAtomHead = 8;  // bytes
constexpr FourCC kMovie{"moov"}, kFree{"free"}, kSkip{"skip"};

// Changes the type of the atom at byte `atom`. The type is the second field of the head.
WriteBytes WriteType(std::uint64_t atom, FourCC type) { return {atom + 4, TypeBytes(type)}; }

// Whether the atom is a second 'moov', left by a save that was interrupted. The first one counts.
bool IsLeftover(const FileOutline& file, const FileOutline::Part& part) {
  return part.type == kMovie && &part != &file.Movie();
}

// Throws Refused (featureUnsupported) if the old movie or its fragments contain auxiliary
// information that encrypted samples need. Freeing them would lose it.
void CheckOldMovieIsRemovable(const FilePlan& plan, const FileOutline& file) {
  const auto isLost = [&file](const CopyRange& range) {
    return std::ranges::any_of(file.atoms, [&](const FileOutline::Part& part) {
      const bool isRemoved = &part == &file.Movie() || BelongsToFragments(part.type);
      return isRemoved && range.at < part.at + part.size && range.at + range.length > part.at;
    });
  };
  for (const TrackPlan& track : plan.tracks) {
    if (!track.source->media) continue;
    const MediaRecord& media = *track.source->media;
    for (const AuxiliaryData& data : FindAuxiliaryData(media, media.samples)) {
      for (const CopyRange& range : data.ranges) {
        if (std::holds_alternative<ThisFile>(*range.from) && isLost(range)) {
          throw Refused{featureUnsupported, "encrypted samples need data in the old movie header"};
        }
      }
    }
  }
}

// Frees every leftover 'moov'. Otherwise a leftover would become the first movie, and so the one
// that counts, when the old movie is freed.
std::optional<Stage> FreeLeftovers(const FileOutline& file) {
  Stage stage;
  for (const FileOutline::Part& part : file.atoms) {
    if (IsLeftover(file, part)) stage.steps.emplace_back(WriteType(part.at, kFree));
  }
  if (stage.steps.empty()) return std::nullopt;
  stage.steps.emplace_back(Sync{});
  return stage;
}

// Whether the movie has samples, data that they need, or GPS data from byte `at` of its file on.
bool UsesBytesFrom(const FilePlan& plan, const FileOutline& file, std::uint64_t at) {
  bool isUsed =
      std::ranges::any_of(FindGpsData(*plan.movie, file.size),
                          [at](const CopyRange& block) { return block.at + block.length > at; });
  for (const TrackPlan& track : plan.tracks) {
    if (!track.source->media) continue;
    const MediaRecord& media = *track.source->media;
    ForEachPiece(media.samples, {0, LocatedCount(media.samples)}, [&](const SamplePiece& piece) {
      if (!std::holds_alternative<ThisFile>(media.ReferenceOf(piece.description))) return;
      isUsed = isUsed || piece.offset + piece.size > at;
    });
    for (const AuxiliaryData& data : FindAuxiliaryData(media, media.samples)) {
      for (const CopyRange& range : data.ranges) {
        isUsed = isUsed ||
                 (std::holds_alternative<ThisFile>(*range.from) && range.at + range.length > at);
      }
    }
  }
  return isUsed;
}

// Whether the file ends inside an atom that a save has begun to append: nothing uses that atom.
bool EndsInUnfinishedSave(const FilePlan& plan, const FileOutline& file) {
  return file.endsInsideSave && !file.locatesItems && !UsesBytesFrom(plan, file, file.end);
}

// Whether a power cut in the middle of a write may leave one part of the bytes old and the other
// new. A disk writes a sector whole or not at all.
bool MayTear(std::uint64_t at, std::uint64_t size) {
  constexpr std::uint64_t kSector = 512;
  return at / kSector != (at + size - 1) / kSector;
}

// Gives the last atom an explicit size if it has none, so that another atom can follow it. Returns
// false if its head has no room for the size, or if the write could tear:
//
//   | 0      mdat |            becomes | size mdat |                up to 4 GiB
//   | 8 wide | 0 mdat |        becomes | 1 mdat | 64-bit size |     larger
bool CloseLastAtom(const FileOutline& file, std::vector<Step>& steps) {
  if (!file.lastHasNoSize) return true;
  const FileOutline::Part& last = file.atoms.back();
  const Bytes head = AtomHead(last.type, last.size - 8);
  std::uint64_t at = last.at;
  if (head.size() != 8) {
    // A head of 16 bytes also takes the 8 bytes of a 'wide' before it.
    const std::size_t count = file.atoms.size();
    if (count < 2) return false;
    const FileOutline::Part& before = file.atoms[count - 2];
    if (before.type != FourCC{"wide"} || before.size != 8) return false;
    at = before.at;
  }
  if (MayTear(at, head.size())) return false;
  steps.emplace_back(WriteBytes{at, head});
  return true;
}

// Finds free room for `size` bytes. Room that is left over becomes a 'free', so it needs at least 8
// bytes. Null if there is no such room.
const FileOutline::Part* FindRoom(const FileOutline& file, std::uint64_t size) {
  const auto found = std::ranges::find_if(file.atoms, [&](const FileOutline::Part& part) {
    const bool isFree = part.type == kFree || part.type == kSkip || IsLeftover(file, part);
    return isFree && part.headerSize == 8 && (part.size == size || part.size >= size + 8) &&
           part.room != Room::kNone && !MayTear(part.at, part.headerSize);
  });
  return found == file.atoms.end() ? nullptr : &*found;
}

// Puts the new movie into free room:
//
//   | free .................... |      as it was
//   | free | content     | free |      the content and the rest, synced
//   | moov | content     | free |      the head, synced
Stage PutIntoRoom(const FileOutline::Part& room, const Bytes& movie) {
  constexpr std::ptrdiff_t kHead = 8;
  Stage stage;
  // The head is written last. Until then, the room is still a free atom.
  stage.steps.emplace_back(WriteBytes{room.at + kHead, Bytes(movie.begin() + kHead, movie.end())});
  if (room.size > movie.size()) {
    // If the room has only zeros, a head is enough. Otherwise zeros overwrite what is left of an
    // older movie.
    const std::uint64_t rest = room.size - movie.size();
    stage.steps.emplace_back(WriteBytes{room.at + movie.size(), room.room == Room::kZeros
                                                                    ? AtomHead(kFree, rest - 8)
                                                                    : FreeAtom(rest)});
  }
  stage.steps.emplace_back(Sync{});
  stage.steps.emplace_back(WriteBytes{room.at, Bytes(movie.begin(), movie.begin() + kHead)});
  stage.steps.emplace_back(Sync{});
  stage.undo = {WriteType(room.at, kFree)};
  return stage;
}

// Appends media data and the new movie. To undo it, the file is cut to its last atom.
Stage Append(const FilePlan& plan, const FileOutline& file, PlannedHeader& header) {
  Stage stage;
  const std::uint64_t end = AddMediaData(plan, file.end, stage.steps);
  const std::uint64_t dataStart = end - plan.dataSize;
  stage.steps.emplace_back(WritePart{end, header.SizeAt(dataStart), kMovieHeader, dataStart});
  stage.steps.emplace_back(Sync{});
  stage.undo = {CutOff{file.end}};
  return stage;
}

// Adds the stages that save the movie in place. Returns false if a new file is necessary.
bool PlanInPlace(const FilePlan& plan, const FileOutline& file, PlannedHeader& header,
                 std::vector<Stage>& stages) {
  // Fragments must not stay in the file, and no atom can follow bytes that are no atom.
  const bool isCutOff = EndsInUnfinishedSave(plan, file);
  Stage closing;
  if (file.isFragmented || (file.end != file.size && !isCutOff) ||
      !CloseLastAtom(file, closing.steps)) {
    return false;
  }
  if (isCutOff) closing.steps.emplace_back(CutOff{file.end});
  if (!closing.steps.empty()) stages.push_back(std::move(closing));
  // With media data to append, the movie is appended after it.
  const Bytes movie = plan.dataSize == 0 ? header.Encode(0) : Bytes();
  const FileOutline::Part* room = movie.empty() ? nullptr : FindRoom(file, movie.size());
  stages.push_back(room != nullptr ? PutIntoRoom(*room, movie) : Append(plan, file, header));
  const Step undo = room != nullptr ? Step(WriteType(room->at, kFree)) : CutOff{file.end};
  // Even a write that fails may have changed the file, so the old movie is restored first.
  const std::uint64_t old = file.Movie().at;
  stages.push_back({{WriteType(old, kFree)}, {WriteType(old, kMovie), undo}});
  stages.push_back({{Sync{}}, {}});
  return true;
}

// The bytes [from, to) of the old file.
struct Stretch {
  std::uint64_t from = 0, to = 0;  // bytes
};

// The stretches of the old file, from byte `start` on, that a new file keeps: everything except the
// old movie and its fragments.
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
        &part == &file.Movie() || (file.isFragmented && BelongsToFragments(part.type));
    if (part.at >= start && !isDropped) keep(part.at, part.at + part.size);
  }
  if (!file.isFragmented || !file.endsInsideFragment) keep(file.end, file.size);
  return kept;
}

// The GPS data of the old file, which moves with the parts of the file that have it.
class GpsToMove {
 public:
  GpsToMove(FilePlan& plan, const FileOutline& file)
      : plan_(plan),
        blocks_(FindGpsData(*plan.movie, file.size)),
        siblings_(plan.movie->siblings),
        file_(file.source->Path()) {}

  // Gives the blocks in plan.movie the offsets for the present plan.shifts. If these do not fit
  // into the atom, it is left out, and also by every later call. So the size of the movie does not
  // change back and forth.
  void Move() {
    if (blocks_.empty()) return;
    std::vector<std::uint64_t> offsets;
    for (const CopyRange& block : blocks_) {
      offsets.push_back(block.at + static_cast<std::uint64_t>(ShiftAt(plan_.shifts, block.at)));
    }
    plan_.movie->siblings = siblings_;
    if (SetGpsOffsets(plan_.movie->siblings, offsets)) return;
    TraceLine("left out: " + file_ + ": /moov/gps : its data would move beyond 4 GiB");
    blocks_.clear();
    std::erase_if(plan_.movie->siblings,
                  [](const Sibling& sibling) { return sibling.type == GpsLocations::kType; });
  }

 private:
  FilePlan& plan_;
  std::vector<CopyRange> blocks_;
  const Siblings siblings_;  // of the old movie
  const std::string file_;
};

// The stages of a new file. It sets plan.shifts, because the kept parts move:
//
//   | ftyp, if it was first | new moov | new mdat, if any | kept stretches of the old file |
//
// If blocks can be shared, a 'free' before a stretch puts it where they can.
std::vector<Stage> PlanNewFile(FilePlan& plan, const FileOutline& file, PlannedHeader& header) {
  if (file.locatesItems) throw Refused{featureUnsupported, "items of 'meta' would move"};
  const FileOutline::Part& first = file.atoms.front();
  const std::uint64_t start = first.type == FourCC{"ftyp"} ? first.size : 0;
  const std::vector<Stretch> kept = KeptFrom(file, start);
  // The size of the movie changes the shifts, and the shifts can change the size of the movie. So
  // repeat until the size stays the same.
  GpsToMove gps(plan, file);
  std::vector<Step> rest;  // all steps after the movie
  std::uint64_t size = 0, dataStart = 0, at = 0;
  constexpr int kMaxRounds = 8;
  int rounds = 0;
  for (std::uint64_t next = 1; next != size; ++rounds) {
    // Near 4 GiB, the size and the unused bytes can go on changing each other.
    if (rounds == kMaxRounds) plan.unit = 1;
    size = next;
    rest.clear();
    plan.shifts.clear();
    at = AddMediaData(plan, start + size, rest);
    dataStart = at - plan.dataSize;
    for (const Stretch& stretch : kept) {
      if (const std::uint64_t unused = plan.UnusedBefore(at, stretch.from, stretch.to)) {
        const std::uint64_t room = unused < kAtomHead ? unused + plan.unit : unused;
        rest.emplace_back(WriteBytes{at, FreeAtom(room)});
        at += room;
      }
      rest.emplace_back(CopyBytes{at, file.source, stretch.from, stretch.to - stretch.from});
      plan.shifts.push_back({stretch.from, static_cast<std::int64_t>(at - stretch.from)});
      at += stretch.to - stretch.from;
    }
    gps.Move();
    next = header.SizeAt(dataStart);
  }

  std::vector<Step> steps;
  if (start != 0) steps.emplace_back(CopyBytes{0, file.source, 0, start});
  steps.emplace_back(WritePart{start, size, kMovieHeader, dataStart});
  std::ranges::move(rest, std::back_inserter(steps));
  return {{std::move(steps), {}}, NamingStage(at)};
}

}  // namespace

UpdateSteps StepsForUpdate(FilePlan& plan, const FileOutline& file, PlannedHeader& header,
                           const std::function<std::uint64_t()>& startNewFile) {
  CheckOldMovieIsRemovable(plan, file);
  UpdateSteps steps;
  if (auto stage = FreeLeftovers(file)) steps.inPlace.push_back(std::move(*stage));
  if (!PlanInPlace(plan, file, header, steps.inPlace)) {
    plan.unit = startNewFile();
    steps.newFile = PlanNewFile(plan, file, header);
  }
  return steps;
}

}  // namespace toolbox
