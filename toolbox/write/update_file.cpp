#include "toolbox/write/update_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "toolbox/disk/output_file.h"
#include "toolbox/disk/system_error.h"
#include "toolbox/plan/auxiliary_data.h"
#include "toolbox/plan/plan.h"
#include "toolbox/read/file_atoms.h"
#include "toolbox/references/sources.h"
#include "toolbox/read/top_level.h"
#include "toolbox/write/write_file.h"
#include "toolbox/write/write_movie.h"

namespace toolbox {
namespace {

constexpr FourCC kMovie{"moov"};
constexpr FourCC kFree{"free"};
constexpr FourCC kFragment{"moof"};

void WriteAt(const Descriptor& file, std::uint64_t at, ByteSpan bytes) {
  while (!bytes.empty()) {
    const ssize_t put = pwrite(file.Number(), bytes.data(), bytes.size(), static_cast<off_t>(at));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) throw RefusedBy(errno);
    bytes = bytes.subspan(static_cast<std::size_t>(put));
    at += static_cast<std::uint64_t>(put);
  }
}

void Sync(const Descriptor& file) {
  if (fsync(file.Number()) != 0) throw RefusedBy(errno);
}

// The size and type in front of an atom.
Bytes Head(FourCC type, std::uint64_t size) {
  return Encoded([&](auto& io) {
    io("size", static_cast<std::uint32_t>(size));
    io("type", type);
  });
}

class Updater {
 public:
  Updater(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file)
      : movie_(movie), path_(path), file_(file), source_(path), layout_(TopLevelAtoms(source_)) {
    const auto found = std::ranges::find_if(
        layout_.atoms, [](const TopLevelAtom& atom) { return atom.atom.type == kMovie; });
    if (found == layout_.atoms.end()) throw Refused{featureUnsupported};
    old_ = *found;
  }

  void Update() {
    for (const auto& track : movie_.tracks) {
      if (track->media) track->media->samples.OwnRows();
    }
    CheckOldMovieMayGo();
    FreeLeftovers();
    FilePlan plan = PlanUpdate(movie_);
    // A movie in fragments gets ordinary tables, and nothing may be left of the fragments beside
    // them. Nothing can follow bytes that are no atom.
    const bool isFragmented = std::ranges::any_of(
        layout_.atoms, [](const TopLevelAtom& atom) { return atom.atom.type == kFragment; });
    if (isFragmented || layout_.end != source_.Size() || !CloseLastAtom()) {
      return Rewrite(plan, isFragmented);
    }
    if (plan.dataSize != 0 || !PutIntoRoom(MovieWriter(plan, path_).Encode(0))) Append(plan);
    try {
      WriteType(old_.at, kFree);
    } catch (const Refused&) {
      TakeBack();
      throw;
    }
    Sync(file_);
  }

 private:
  // Refuses to free an old movie, or its fragments, that still hold what encrypted samples are
  // decrypted by.
  void CheckOldMovieMayGo() const {
    const auto isToGo = [this](const TopLevelAtom& atom) {
      return atom.at == old_.at || BelongsToFragments(atom.atom.type);
    };
    for (const auto& track : movie_.tracks) {
      if (!track->media) continue;
      for (const AuxiliaryData& data : FindAuxiliaryData(*track->media, track->media->samples)) {
        for (const CopyRange& range : data.ranges) {
          const bool isLost = std::ranges::any_of(layout_.atoms, [&](const TopLevelAtom& atom) {
            return isToGo(atom) && range.at < atom.at + atom.atom.size &&
                   range.at + range.length > atom.at;
          });
          if (isLost && std::holds_alternative<ThisFile>(*range.from)) {
            throw Refused{featureUnsupported};
          }
        }
      }
    }
  }

  void WriteType(std::uint64_t atom, FourCC type) {
    WriteAt(file_, atom + 4, Encoded([type](auto& io) { io("type", type); }));
  }

  // A save that was cut short may have left its movie behind the old one. The old one counts, and
  // once it is freed nobody must take the other for the newest.
  void FreeLeftovers() {
    bool found = false;
    for (TopLevelAtom& atom : layout_.atoms) {
      if (atom.atom.type != kMovie || atom.at == old_.at) continue;
      WriteType(atom.at, kFree);
      atom.atom.type = kFree;
      found = true;
    }
    if (found) Sync(file_);
  }

  // The old movie stays: the new one goes, as far as it can be told to.
  void TakeBack() {
    if (room_) {
      WriteType(*room_, kFree);
    } else if (ftruncate(file_.Number(), static_cast<off_t>(source_.Size())) != 0) {
      throw RefusedBy(errno);
    }
  }

  // Gives the last atom a size when it has none but "to the end"; false where there is no room for
  // one.
  bool CloseLastAtom() {
    const TopLevelAtom& last = layout_.atoms.back();
    Bytes size(4);
    source_.Read(last.at, size);
    if (std::ranges::any_of(size, std::identity())) return true;
    if (last.atom.size <= UINT32_MAX) {
      WriteAt(file_, last.at, Head(last.atom.type, last.atom.size));
      return true;
    }
    const std::size_t count = layout_.atoms.size();
    const TopLevelAtom* before = count < 2 ? nullptr : &layout_.atoms[count - 2];
    if (before == nullptr || before->atom.type != FourCC{"wide"} || before->atom.size != 8)
      return false;
    WriteAt(file_, before->at, Encoded([&](auto& io) {
              io("size", std::uint32_t{1});
              io("type", last.atom.type);
              io("size", last.atom.size + 8);
            }));
    return true;
  }

  // Puts the new movie into free room that fits; false where there is none.
  bool PutIntoRoom(const Bytes& movie) {
    const auto room = std::ranges::find_if(layout_.atoms, [&](const TopLevelAtom& candidate) {
      const AtomFrame& atom = candidate.atom;
      const bool isFree = atom.type == kFree || atom.type == FourCC{"skip"};
      return isFree && atom.headerSize == 8 &&
             (atom.size == movie.size() || atom.size >= movie.size() + 8) &&
             IsMereRoom(source_, candidate);
    });
    if (room == layout_.atoms.end()) return false;
    room_ = room->at;
    // All but the head first: until that is written, the room is still free.
    WriteAt(file_, room->at + 8, ByteSpan(movie).subspan(8));
    if (room->atom.size > movie.size()) {
      // Zeros, so that nobody takes the rest of an older header for something to be kept.
      Bytes rest(room->atom.size - movie.size());
      std::ranges::copy(Head(kFree, rest.size()), rest.begin());
      WriteAt(file_, room->at + movie.size(), rest);
    }
    Sync(file_);
    WriteAt(file_, room->at, ByteSpan(movie).first(8));
    Sync(file_);
    return true;
  }

  // Mostly from memory; a media that is held there in part comes along from its files too.
  void AppendRange(const CopyRange& range, std::uint64_t at) {
    constexpr std::uint64_t kStep = 1 << 20;
    const auto source = OpenSource(*range.from, movie_.file);
    Bytes bytes;
    for (std::uint64_t done = 0; done < range.length; done += bytes.size()) {
      bytes.resize(std::min(kStep, range.length - done));
      source->Read(range.at + done, bytes);
      WriteAt(file_, at + done, bytes);
    }
  }

  void Append(const FilePlan& plan) {
    try {
      std::uint64_t at = source_.Size();
      if (plan.dataSize != 0) {
        const Bytes head = DataHead(plan.dataSize);
        WriteAt(file_, at, head);
        at += head.size();
      }
      const std::uint64_t dataStart = at;
      plan.ForEachRange([&](const CopyRange& range) {
        AppendRange(range, at);
        at += range.length;
      });
      WriteAt(file_, at, MovieWriter(plan, path_).Encode(dataStart));
      Sync(file_);
    } catch (const Refused&) {
      // What was appended is no part of the movie.
      if (ftruncate(file_.Number(), static_cast<off_t>(source_.Size())) != 0)
        throw RefusedBy(errno);
      throw;
    }
  }

  struct Stretch {
    std::uint64_t from = 0, to = 0;  // bytes
  };

  // What a new file takes over behind its movie: all but the old movie and its fragments.
  std::vector<Stretch> Kept(std::uint64_t start, bool isFragmented) const {
    std::vector<Stretch> kept;
    const auto keep = [&kept](std::uint64_t from, std::uint64_t to) {
      if (from == to) return;
      if (kept.empty() || kept.back().to != from) {
        kept.push_back({from, to});
      } else {
        kept.back().to = to;
      }
    };
    for (const TopLevelAtom& atom : layout_.atoms) {
      const bool isDropped =
          atom.at == old_.at || (isFragmented && BelongsToFragments(atom.atom.type));
      if (atom.at >= start && !isDropped) keep(atom.at, atom.at + atom.atom.size);
    }
    if (!isFragmented || !EndsInsideFragment()) keep(layout_.end, source_.Size());
    return kept;
  }

  // Whether behind the last whole atom stands a piece of a fragment, as in a recording cut off.
  bool EndsInsideFragment() const {
    if (source_.Size() - layout_.end < 8) return false;
    Bytes type(4);
    source_.Read(layout_.end + 4, type);
    const FourCC cut(FromBigEndian<std::uint32_t>(type.data()));
    return cut == FourCC{"mdat"} || BelongsToFragments(cut);
  }

  // A new file: the first atom if it names the kind of file, the new movie, and all the rest.
  void Rewrite(FilePlan& plan, bool isFragmented) {
    if (LocatesItems(source_)) throw Refused{featureUnsupported};
    // The lock would stand in our own way; the new file is another one.
    flock(file_.Number(), LOCK_UN);
    OutputFile output(path_);
    const TopLevelAtom& first = layout_.atoms.front();
    const std::uint64_t start = first.atom.type == FourCC{"ftyp"} ? first.atom.size : 0;
    const std::uint64_t head = plan.dataSize == 0 ? 0 : kDataHead;
    const std::vector<Stretch> kept = Kept(start, isFragmented);
    std::uint64_t size = 0;
    for (std::uint64_t next = 1; next != size;) {
      size = next;
      plan.shifts.clear();
      std::uint64_t at = start + size + head + plan.dataSize;
      for (const Stretch& stretch : kept) {
        plan.shifts.push_back({stretch.from, static_cast<std::int64_t>(at - stretch.from)});
        at += stretch.to - stretch.from;
      }
      next = MovieWriter(plan, path_).SizeAt(start + size + head);
    }
    output.Copy(source_, 0, start);
    MovieWriter(plan, path_).Write(start + size + head, [&output](ByteSpan block) {
      output.Append(block);
    });
    if (plan.dataSize != 0) CopyMediaData(plan, output);
    for (const Stretch& stretch : kept) {
      output.Copy(source_, stretch.from, stretch.to - stretch.from);
    }
    output.Commit();
  }

  const MovieRecord& movie_;
  const boost::filesystem::path& path_;
  Descriptor& file_;
  const FileSource source_;
  TopLevelLayout layout_;
  TopLevelAtom old_;
  std::optional<std::uint64_t> room_;  // where the new movie was put, unless it was appended
};

}  // namespace

void UpdateFile(const MovieRecord& movie, const boost::filesystem::path& path, Descriptor& file) {
  Updater(movie, path, file).Update();
}

}  // namespace toolbox
