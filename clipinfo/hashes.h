// Hashes of samples. The bytes are read in the order of their files, on all cores.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "toolbox/disk/byte_source.h"
#include "toolbox/movie/movie.h"

namespace clipinfo {

// 128 bits. Samples with equal hashes have equal bytes.
struct Hash {
  std::uint64_t low = 0, high = 0;
  friend bool operator==(const Hash&, const Hash&) = default;
};

// Bytes in one of the Files.
struct Piece {
  std::uint32_t file = 0;
  std::uint64_t at = 0, size = 0;
  friend auto operator<=>(const Piece&, const Piece&) = default;
};

// The files and blocks of memory that hold the media of several movies. Each has a number, and a
// file that two movies use has only one.
class Files {
 public:
  // The number for a data reference of `movie`. Both must outlive this object.
  std::uint32_t NumberOf(const toolbox::DataReference& reference,
                         const toolbox::MovieRecord& movie);
  // Opens the file. Throws as toolbox::OpenSource.
  std::unique_ptr<toolbox::ByteSource> Open(std::uint32_t file) const;

 private:
  struct File {
    const toolbox::DataReference* reference;
    const std::optional<toolbox::OtherFile>* own;
  };

  std::vector<File> files_;
  std::map<const toolbox::DataReference*, std::uint32_t> byReference_;
  std::map<std::string, std::uint32_t> byName_;  // a path, or the identity of a file
};

// Collects bytes to be hashed, and hashes them together.
class Hasher {
 public:
  explicit Hasher(const Files& files) : files_(files) {}

  // The hash of the bytes is in `hash` after Run. `hash` must live until then.
  void Add(const Piece& piece, Hash& hash) { Add(&piece, 1, hash); }
  // The same for pieces that follow one another.
  void Add(const std::vector<Piece>& pieces, Hash& hash) {
    Add(pieces.data(), pieces.size(), hash);
  }
  // Hashes everything that was added. Throws what reading throws.
  void Run();
  // An open file. It is valid until the next call of a function of this object.
  const toolbox::ByteSource& Source(std::uint32_t file);

 private:
  // What one hash is made of: the pieces [first, first + count).
  struct Job {
    std::size_t first = 0, count = 0;
    Hash* hash = nullptr;
  };
  // Jobs whose bytes are read together.
  struct Task {
    std::size_t first = 0, count = 0;
    bool isOneRead = false;  // each has one piece, and they are close to each other in one file
  };

  void Add(const Piece* pieces, std::size_t count, Hash& hash);
  const Piece& FirstPiece(const Job& job) const { return pieces_[job.first]; }
  // Hashes the sorted jobs [from, to), whose files are open.
  void RunTasks(std::size_t from, std::size_t to);
  void Do(const Task& task, toolbox::Bytes& block) const;
  Hash HashOf(const Job& job, toolbox::Bytes& block) const;

  const Files& files_;
  std::vector<Piece> pieces_;
  std::vector<Job> jobs_;
  std::map<std::uint32_t, std::unique_ptr<toolbox::ByteSource>> open_;
};

// The hash of a sequence of hashes.
class HashOfHashes {
 public:
  HashOfHashes();
  void Add(const Hash& hash);
  Hash Value() const;

 private:
  struct State;
  struct Delete {
    void operator()(State* state) const;
  };
  std::unique_ptr<State, Delete> state_;
};

// 32 hexadecimal digits.
std::string Text(const Hash& hash);

}  // namespace clipinfo
