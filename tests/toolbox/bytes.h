// Helpers for tests: bytes that are made from numbers, texts and atoms, up to whole movie files,
// and a fixture with a folder of its own. GoogleTest and the containers are included.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <cctype>
#include <concepts>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "toolbox/atoms/malformed.h"
#include "toolbox/bytes.h"
#include "toolbox/refused.h"

namespace toolbox {

namespace fs = boost::filesystem;

// Numbers that look random and are the same in every run.
class Random {
 public:
  explicit Random(std::uint32_t seed) : engine_(seed) {}

  // A number from 0 to limit - 1.
  std::uint32_t Below(std::uint64_t limit) { return static_cast<std::uint32_t>(engine_() % limit); }
  bool Flip() { return Below(2) == 0; }

 private:
  std::mt19937 engine_;
};

inline Bytes BigEndian(std::uint64_t value, int size) {
  Bytes bytes;
  while (size-- > 0) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * size));
  return bytes;
}
inline Bytes U16(std::uint16_t value) { return BigEndian(value, 2); }
inline Bytes U32(std::uint32_t value) { return BigEndian(value, 4); }
inline Bytes U64(std::uint64_t value) { return BigEndian(value, 8); }
inline Bytes Zeros(std::size_t count) { return Bytes(count); }
inline Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }
inline Bytes Noise(std::size_t size, std::uint32_t seed = 1) {
  Random random(seed);
  Bytes bytes(size);
  std::ranges::generate(bytes, [&] { return static_cast<std::uint8_t>(random.Below(256)); });
  return bytes;
}

template <std::same_as<Bytes>... Parts>
Bytes Join(const Parts&... parts) {
  Bytes all;
  (all.insert(all.end(), parts.begin(), parts.end()), ...);
  return all;
}

inline Bytes First(const Bytes& bytes, std::size_t count) {
  return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(count)};
}
inline bool Contains(const Bytes& bytes, const Bytes& part) {
  return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

// The words of `text`, which are separated by blanks or line ends. Quoted parts may have blanks.
inline std::vector<std::string> Words(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word, rest; in >> word;) {
    const auto quote = word.find_first_of("'\"");
    if (quote != word.npos && word.find(word[quote], quote + 1) == word.npos) {
      std::getline(in, rest, word[quote]);
      word += rest + word[quote];
    }
    words.push_back(word);
  }
  return words;
}

// The bytes that a text describes in words:
//
//   12  -1  0xFF     numbers of 32 bits       'text' "text"  its letters
//   12/2             a number of two bytes    *7             seven zeros
//   size=12          the same, with a name    x01A2          bytes in hexadecimal digits
//   stts{ 0 12 }     an atom                  $              the next of `parts`
//
// The type of an atom has blanks added to it.
inline Bytes Made(const std::string& text, const std::vector<Bytes>& parts = {}) {
  Bytes bytes;
  std::vector<std::size_t> open;  // where the atoms that are open start
  auto part = parts.begin();
  const auto add = [&](const Bytes& more) { bytes.insert(bytes.end(), more.begin(), more.end()); };
  for (std::string word : Words(text)) {
    const auto name = word.find('=');
    if (name != word.npos && std::isalpha(word[0])) word.erase(0, name + 1);
    if (word.back() == '{') {
      open.push_back(bytes.size());
      word.back() = ' ';
      word.resize(4, ' ');
      add(Join(Zeros(4), Text(word)));
    } else if (word == "}") {
      const Bytes size = U32(static_cast<std::uint32_t>(bytes.size() - open.back()));
      std::ranges::copy(size, bytes.begin() + static_cast<std::ptrdiff_t>(open.back()));
      open.pop_back();
    } else if (word == "$") {
      add(*part++);
    } else if (word[0] == '\'' || word[0] == '"') {
      add(Text(word.substr(1, word.size() - 2)));
    } else if (word[0] == '*') {
      add(Zeros(std::stoul(word.substr(1))));
    } else if (word[0] == 'x') {
      for (std::size_t i = 1; i < word.size(); i += 2) {
        add(BigEndian(std::stoul(word.substr(i, 2), nullptr, 16), 1));
      }
    } else {
      const auto slash = word.find('/');
      const int width = slash == word.npos ? 4 : std::stoi(word.substr(slash + 1));
      add(BigEndian(std::stoull(word, nullptr, 0), width));
    }
  }
  return bytes;
}

template <std::same_as<Bytes>... Parts>
Bytes Atom(const std::string& type, const Parts&... parts) {
  return Made("$ $ $", {U32(static_cast<std::uint32_t>((8 + ... + parts.size()))), Text(type),
                        Join(parts...)});
}

inline Bytes IdentityFields() { return Made("0x10000 *12 0x10000 *12 0x40000000"); }

// The atoms of a sample table with `count` samples of `size` bytes in one chunk at `offset`.
inline Bytes PlainTable(std::uint32_t count, std::uint32_t delta, std::uint32_t size,
                        std::uint32_t offset) {
  return Made(
      "stsd{ 0 1 test{ *6 1/2 } } stts{ 0 1 $ $ } stsc{ 0 1 1 $ 1 } stsz{ 0 $ $ } stco{ 0 1 $ }",
      {U32(count), U32(delta), U32(count), U32(size), U32(count), U32(offset)});
}

// The properties of a track that a test can choose.
struct TrackInFile {
  std::uint32_t id = 1, scale = 600;
  std::uint32_t duration = 0;  // as 'tkhd' states it
  std::string kind = "vide";
  Bytes table;  // content of 'stbl'
  Bytes edits;  // whole atoms: 'edts'
  Bytes others;  // whole atoms that follow the media
  Bytes references = Join(U32(0), U32(1), Atom("url ", U32(1)));  // content of 'dref'
  Bytes inMedia, inInformation;  // whole atoms at the end of 'mdia' and 'minf'
  Bytes header;  // the whole 'tkhd' or 'mdhd' where they are not the usual ones
  Bytes mediaHeader;
};

inline Bytes TrackAtom(const TrackInFile& track) {
  const auto orUsual = [](const Bytes& given, const Bytes& usual) {
    return given.empty() ? usual : given;
  };
  const Bytes header = Made("tkhd{ 15 1 2 $ 0 $ *16 $ 0x1400000 0xF00000 }",
                            {U32(track.id), U32(track.duration), IdentityFields()});
  const Bytes mediaHeader = Made("mdhd{ 0 1 2 $ 0 0x55C4/2 0/2 }", {U32(track.scale)});
  return Made(
      "trak{ $ $ mdia{ $ hdlr{ 0 'mhlr' $ 'test' *8 1/1 'x' }"
      " minf{ vmhd{ 1 *8 } dinf{ dref{ $ } } stbl{ $ } $ } $ } $ }",
      {orUsual(track.header, header), track.edits, orUsual(track.mediaHeader, mediaHeader),
       Text(track.kind), track.references, track.table, track.inInformation, track.inMedia,
       track.others});
}

inline Bytes MovieHeaderAtom(std::uint32_t scale = 600, std::uint32_t nextTrackId = 2) {
  return Made("mvhd{ 0 1 2 $ 0 0x10000 0x100/2 *10 $ *24 $ }",
              {U32(scale), IdentityFields(), U32(nextTrackId)});
}

// The code that `body` is refused with; noErr if it is not refused.
inline OSErr CodeOf(const std::function<void()>& body) try {
  body();
  return noErr;
} catch (const Refused& refused) {
  return refused.code;
} catch (const Malformed&) {
  return badPublicMovieAtom;
}

// A test with its own folder.
class InFolder : public testing::Test {
 protected:
  InFolder() {
    const fs::path name = fs::temp_directory_path() / fs::unique_path("reelwork-%%%%%%%%%%%%%%%%");
    fs::create_directory(name);
    folder_ = fs::canonical(name);
  }
  ~InFolder() override { fs::remove_all(folder_); }

  fs::path Store(const std::string& name, const Bytes& bytes) const {
    std::ofstream((folder_ / name).string(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return folder_ / name;
  }
  static Bytes Stored(const fs::path& path) {
    std::ifstream file(path.string(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  fs::path folder_;
};

}  // namespace toolbox
