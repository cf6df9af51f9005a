#include "clipinfo/hashes.h"

#include <algorithm>
#include <iomanip>
#include <set>
#include <span>
#include <sstream>
#include <variant>

#include "toolbox/disk/side_by_side.h"
#include "toolbox/references/sources.h"

#define XXH_INLINE_ALL
#include <xxhash.h>

namespace clipinfo {
namespace {

using toolbox::Bytes;
using toolbox::ByteSource;
using toolbox::DataReference;
using toolbox::OtherFile;

// Bytes that are read at once. They stay in the cache of a core until they are hashed.
constexpr std::uint64_t kBlock = 128 << 10;
// Files that are open at the same time, and half of them at most for one group of tasks.
constexpr std::size_t kMaxOpen = 64;

Hash FromState(const XXH3_state_t& state) {
  const XXH128_hash_t digest = XXH3_128bits_digest(&state);
  return {digest.low64, digest.high64};
}

// A name that is the same for all references to one file; empty if there is none.
std::string NameOf(const DataReference& reference, const std::optional<OtherFile>& own) {
  const auto* file = std::get_if<OtherFile>(&reference);
  if (std::holds_alternative<toolbox::ThisFile>(reference) && own) file = &*own;
  if (file == nullptr) return {};
  if (!file->state) return file->path.native();
  const auto& [device, number] = file->state->identity;
  return "//" + std::to_string(device) + "/" + std::to_string(number);
}

}  // namespace

std::uint32_t Files::NumberOf(const DataReference& reference, const toolbox::MovieRecord& movie) {
  const auto next = static_cast<std::uint32_t>(files_.size());
  const auto [known, isNew] = byReference_.try_emplace(&reference, next);
  if (!isNew) return known->second;
  const std::string name = NameOf(reference, movie.file);
  if (!name.empty()) known->second = byName_.try_emplace(name, next).first->second;
  if (known->second == next) files_.push_back({&reference, &movie.file});
  return known->second;
}

std::unique_ptr<ByteSource> Files::Open(std::uint32_t file) const {
  return toolbox::OpenSource(*files_[file].reference, *files_[file].own);
}

void Hasher::Add(const Piece* pieces, std::size_t count, Hash& hash) {
  jobs_.push_back({pieces_.size(), count, &hash});
  pieces_.insert(pieces_.end(), pieces, pieces + count);
}

const ByteSource& Hasher::Source(std::uint32_t file) {
  auto found = open_.find(file);
  if (found == open_.end()) {
    if (open_.size() == kMaxOpen) open_.clear();
    found = open_.emplace(file, files_.Open(file)).first;
  }
  return *found->second;
}

void Hasher::Run() {
  std::erase_if(jobs_, [](const Job& job) { return job.count == 0; });
  std::ranges::sort(jobs_, {}, [this](const Job& job) { return FirstPiece(job); });
  std::set<std::uint32_t> needed;
  std::size_t from = 0;
  const auto runTo = [&](std::size_t to) {
    if (needed.size() + open_.size() > kMaxOpen) open_.clear();
    for (const std::uint32_t file : needed) Source(file);
    RunTasks(from, to);
    needed.clear();
    from = to;
  };
  for (std::size_t i = 0; i < jobs_.size(); ++i) {
    if (needed.size() >= kMaxOpen / 2) runTo(i);
    for (const Piece& piece : std::span(&FirstPiece(jobs_[i]), jobs_[i].count)) {
      needed.insert(piece.file);
    }
  }
  runTo(jobs_.size());
  jobs_.clear();
  pieces_.clear();
}

void Hasher::RunTasks(std::size_t from, std::size_t to) {
  std::vector<Task> tasks;
  for (std::size_t i = from; i < to; ++i) {
    const Piece& piece = FirstPiece(jobs_[i]);
    const bool isSmall = jobs_[i].count == 1 && piece.size <= kBlock;
    if (!tasks.empty() && tasks.back().isOneRead && isSmall) {
      const Piece& first = FirstPiece(jobs_[tasks.back().first]);
      if (piece.file == first.file && piece.at - first.at <= kBlock - piece.size) {
        ++tasks.back().count;
        continue;
      }
    }
    tasks.push_back({i, 1, isSmall});
  }

  // A thread takes as long to start as a few reads.
  constexpr std::uint64_t kFewestTasks = 4;
  toolbox::SideBySide(tasks.size(), toolbox::ThreadsFor(tasks.size(), kFewestTasks),
                      [&](std::uint64_t index, Bytes& block) { Do(tasks[index], block); });
}

void Hasher::Do(const Task& task, Bytes& block) const {
  const std::span jobs(&jobs_[task.first], task.count);
  if (!task.isOneRead) {
    *jobs.front().hash = HashOf(jobs.front(), block);
    return;
  }
  const Piece& first = FirstPiece(jobs.front());
  std::uint64_t end = first.at;
  for (const Job& job : jobs) end = std::max(end, FirstPiece(job).at + FirstPiece(job).size);
  if (block.size() < end - first.at) block.resize(end - first.at);
  open_.at(first.file)->Read(first.at, std::span(block).first(end - first.at));
  for (const Job& job : jobs) {
    const Piece& piece = FirstPiece(job);
    // Two movies can show the same bytes of one file.
    if (&job != &jobs.front() && piece == FirstPiece(*(&job - 1))) {
      *job.hash = *(&job - 1)->hash;
      continue;
    }
    const XXH128_hash_t hash = XXH3_128bits(block.data() + (piece.at - first.at), piece.size);
    *job.hash = {hash.low64, hash.high64};
  }
}

Hash Hasher::HashOf(const Job& job, Bytes& block) const {
  XXH3_state_t state;
  XXH3_128bits_reset(&state);
  for (const Piece& piece : std::span(&FirstPiece(job), job.count)) {
    const ByteSource& source = *open_.at(piece.file);
    for (std::uint64_t done = 0; done < piece.size;) {
      const std::uint64_t now = std::min(kBlock, piece.size - done);
      if (block.size() < now) block.resize(now);
      source.Read(piece.at + done, std::span(block).first(now));
      XXH3_128bits_update(&state, block.data(), now);
      done += now;
    }
  }
  return FromState(state);
}

struct HashOfHashes::State : XXH3_state_t {};
void HashOfHashes::Delete::operator()(State* state) const { delete state; }
HashOfHashes::HashOfHashes() : state_(new State) { XXH3_128bits_reset(state_.get()); }
void HashOfHashes::Add(const Hash& hash) { XXH3_128bits_update(state_.get(), &hash, sizeof(hash)); }
Hash HashOfHashes::Value() const { return FromState(*state_); }

std::string Text(const Hash& hash) {
  std::ostringstream text;
  text << std::hex << std::setfill('0') << std::setw(16) << hash.high << std::setw(16) << hash.low;
  return text.str();
}

}  // namespace clipinfo
