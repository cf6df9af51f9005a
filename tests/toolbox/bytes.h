// Makes the bytes of tests from numbers, texts and atoms, up to whole movie files, and a folder for
// them.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <boost/filesystem/operations.hpp>
#include <boost/filesystem/path.hpp>
#include <concepts>
#include <cstdint>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string>

#include "toolbox/bytes.h"
#include "toolbox/refused.h"

namespace toolbox {

inline Bytes BigEndian(std::uint64_t value, int size) {
  Bytes bytes;
  while (size-- > 0) bytes.push_back(static_cast<std::uint8_t>(value >> 8 * size));
  return bytes;
}
inline Bytes U8(std::uint8_t value) { return {value}; }
inline Bytes U16(std::uint16_t value) { return BigEndian(value, 2); }
inline Bytes U32(std::uint32_t value) { return BigEndian(value, 4); }
inline Bytes U64(std::uint64_t value) { return BigEndian(value, 8); }
inline Bytes Zeros(std::size_t count) { return Bytes(count); }
inline Bytes Text(const std::string& text) { return {text.begin(), text.end()}; }

template <std::same_as<Bytes>... Parts>
Bytes Join(const Parts&... parts) {
  Bytes all;
  (all.insert(all.end(), parts.begin(), parts.end()), ...);
  return all;
}

// An atom with a size of 32 bits, or of 64.
template <std::same_as<Bytes>... Parts>
Bytes Atom(const std::string& type, const Parts&... parts) {
  const Bytes content = Join(parts...);
  return Join(U32(static_cast<std::uint32_t>(8 + content.size())), Text(type), content);
}
template <std::same_as<Bytes>... Parts>
Bytes WideAtom(const std::string& type, const Parts&... parts) {
  const Bytes content = Join(parts...);
  return Join(U32(1), Text(type), U64(16 + content.size()), content);
}

inline Bytes IdentityFields() {
  return Join(U32(0x10000), Zeros(12), U32(0x10000), Zeros(12), U32(0x40000000));
}

// The atoms of a sample table with `count` samples of `size` bytes in one chunk at `offset`.
inline Bytes PlainTable(std::uint32_t count, std::uint32_t delta, std::uint32_t size,
                        std::uint32_t offset) {
  return Join(Atom("stsd", U32(0), U32(1), Atom("test", Zeros(6), U16(1))),
              Atom("stts", U32(0), U32(1), U32(count), U32(delta)),
              Atom("stsc", U32(0), U32(1), U32(1), U32(count), U32(1)),
              Atom("stsz", U32(0), U32(size), U32(count)),
              Atom("stco", U32(0), U32(1), U32(offset)));
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
  const Bytes header =
      !track.header.empty()
          ? track.header
          : Atom("tkhd", U32(0xF), U32(1), U32(2), U32(track.id), Zeros(4), U32(track.duration),
                 Zeros(16), IdentityFields(), U32(320 << 16), U32(240 << 16));
  const Bytes mediaHeader =
      !track.mediaHeader.empty()
          ? track.mediaHeader
          : Atom("mdhd", U32(0), U32(1), U32(2), U32(track.scale), U32(0), U16(0x55C4), U16(0));
  return Atom(
      "trak", header, track.edits,
      Atom(
          "mdia", mediaHeader,
          Atom("hdlr", U32(0), Text("mhlr" + track.kind + "test"), Zeros(8), U8(1), Text("x")),
          Atom("minf", Atom("vmhd", U32(1), Zeros(8)), Atom("dinf", Atom("dref", track.references)),
               Atom("stbl", track.table), track.inInformation),
          track.inMedia),
      track.others);
}

inline Bytes MovieHeaderAtom(std::uint32_t scale = 600, std::uint32_t nextTrackId = 2) {
  return Atom("mvhd", U32(0), U32(1), U32(2), U32(scale), U32(0), U32(0x10000), U16(0x100),
              Zeros(10), IdentityFields(), Zeros(24), U32(nextTrackId));
}

// The code that `body` is refused with; noErr if it is not refused.
inline OSErr CodeOf(const std::function<void()>& body) try {
  body();
  return noErr;
} catch (const Refused& refused) {
  return refused.code;
}

// A test with its own folder.
class InFolder : public testing::Test {
 protected:
  InFolder() {
    std::string name = (boost::filesystem::temp_directory_path() / "reelwork_XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no folder for the test");
    folder_ = boost::filesystem::canonical(name);
  }
  ~InFolder() override { boost::filesystem::remove_all(folder_); }

  boost::filesystem::path Store(const std::string& name, const Bytes& bytes) const {
    std::ofstream((folder_ / name).string(), std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()),
               static_cast<std::streamsize>(bytes.size()));
    return folder_ / name;
  }
  static Bytes Stored(const boost::filesystem::path& path) {
    std::ifstream file(path.string(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  boost::filesystem::path folder_;
};

}  // namespace toolbox
