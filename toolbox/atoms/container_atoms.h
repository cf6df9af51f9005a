// The atoms that contain atoms. Each lists its children: which types, how many of each, and in
// which order new ones are written. children.h explains the lists.
#pragma once

#include <cstdint>
#include <optional>
#include <variant>
#include <vector>

#include "toolbox/atoms/auxiliary_atoms.h"
#include "toolbox/atoms/fields.h"
#include "toolbox/atoms/fragment_atoms.h"
#include "toolbox/atoms/group_atoms.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/sample_atoms.h"
#include "toolbox/atoms/text_atoms.h"

namespace toolbox {

// An atom that is found but not decoded. Its content is a view of the bytes that were read and must
// not outlive them.
template <FourCC kCode>
struct RawAtom {
  static constexpr FourCC kType = kCode;
  ByteSpan content;
  static void Fields(auto& io, auto& atom) { io.Rest("content", atom.content); }
};

// One item of user data. The payload is the content of its atom.
struct UserDataItem {
  FourCC type;
  Bytes payload;
  friend bool operator==(const UserDataItem&, const UserDataItem&) = default;
};

// 'udta', ISO/IEC 14496-12 8.10.1: items of any type. Four zero bytes may end them.
struct UserDataAtoms {
  static constexpr FourCC kType{"udta"};
  std::vector<UserDataItem> items;

  // QuickTime: a 'meta' item has no version and flags. It gets them here, so that the rest of the
  // program sees only the ISO form. Bytes after the last whole item are dropped.
  void Read(ByteSpan content);
  void Put(auto& io) const {
    for (const UserDataItem& item : items) {
      io.Atom(item.type, [&] { io.Append(item.payload); });
    }
  }
};

// 'tref', ISO/IEC 14496-12 8.3.3: a list of track ids for each type of reference.
struct TrackReferenceAtoms {
  static constexpr FourCC kType{"tref"};
  struct List {
    FourCC type;
    std::vector<std::uint32_t> tracks;  // ids; 0: no track
  };
  std::vector<List> lists;

  // A second list of a type continues the first.
  void Read(ByteSpan content);
  void Put(auto& io) const {
    for (const List& list : lists) {
      io.Atom(list.type, [&] {
        for (const std::uint32_t track : list.tracks) io("track", track);
      });
    }
  }
};

// Tables with several forms, of which a file has one.
using SampleSizeAtom = std::variant<ConstantSampleSize, SampleSizes, CompactSampleSizes>;
using ChunkOffsetAtom = std::variant<ChunkOffsets, WideChunkOffsets>;
// The atoms of sample groups. A sample table can have any number of each.
using SampleGroupAtom = std::variant<SampleGroupDescriptions, SampleToGroup, CompactSampleToGroup>;

struct SampleTableAtoms {  // 'stbl', ISO/IEC 14496-12 8.5.1
  static constexpr FourCC kType{"stbl"};
  std::optional<SampleDescriptions> descriptions;
  std::optional<TimeToSample> times;
  std::optional<CompositionOffsets> offsets;
  std::optional<SyncSamples> sync;
  std::optional<PartialSyncSamples> partialSync;
  std::optional<SampleToChunk> chunks;
  std::optional<ChunkOffsetAtom> chunkOffsets;
  std::optional<SampleSizeAtom> sizes;
  std::optional<SampleDependencies> dependencies;
  std::optional<DegradationPriorities> priorities;
  std::optional<PaddingBits> padding;
  std::vector<SampleGroupAtom> groups;
  Siblings others;

  static void Children(auto& io, auto& table) {
    io(table.descriptions, table.times, table.offsets, table.sync, table.partialSync, table.chunks,
       table.chunkOffsets, table.sizes, table.dependencies, table.priorities, table.padding,
       table.groups, table.others);
  }
};

struct DataInformation {  // 'dinf', ISO/IEC 14496-12 8.7.1
  static constexpr FourCC kType{"dinf"};
  std::optional<DataReferences> references;
  Siblings others;

  static void Children(auto& io, auto& information) {
    io(information.references, information.others);
  }
};

struct MediaInformation {  // 'minf', ISO/IEC 14496-12 8.4.4
  static constexpr FourCC kType{"minf"};
  std::optional<DataInformation> data;
  SampleTableAtoms table;
  Siblings others;  // include the header of the media type, such as 'vmhd'

  static void Children(auto& io, auto& information) {
    io(information.data, information.table, information.others);
  }
};

// 'mdia', ISO/IEC 14496-12 8.4.1. QuickTime: it can have user data.
struct MediaAtoms {
  static constexpr FourCC kType{"mdia"};
  MediaHeader header;
  Handler handler;
  MediaInformation information;
  std::optional<UserDataAtoms> userData;
  Siblings others;

  static void Children(auto& io, auto& media) {
    io(media.header, media.handler, media.information, media.userData, media.others);
  }
};

struct EditAtoms {  // 'edts', ISO/IEC 14496-12 8.6.5
  static constexpr FourCC kType{"edts"};
  std::optional<EditEntries> entries;
  Siblings others;

  static void Children(auto& io, auto& edits) { io(edits.entries, edits.others); }
};

struct TrackAtoms {  // 'trak', ISO/IEC 14496-12 8.3.1
  static constexpr FourCC kType{"trak"};
  TrackHeader header;
  std::optional<EditAtoms> edits;
  std::optional<TrackReferenceAtoms> references;
  std::optional<MediaAtoms> media;
  std::optional<UserDataAtoms> userData;
  Siblings others;

  static void Children(auto& io, auto& track) {
    io(track.header, track.edits, track.references, track.media, track.userData, track.others);
  }
};

struct MovieExtends {  // 'mvex', ISO/IEC 14496-12 8.8.1
  static constexpr FourCC kType{"mvex"};
  std::vector<TrackDefaults> tracks;

  static void Children(auto& io, auto& extends) { io(extends.tracks); }
};

template <class Tracks>
struct MovieAtomsWith {  // 'moov', ISO/IEC 14496-12 8.2.1
  static constexpr FourCC kType{"moov"};
  MovieHeader header;
  Tracks tracks;
  std::optional<UserDataAtoms> userData;
  std::optional<MovieExtends> extends;
  Siblings others;

  static void Children(auto& io, auto& movie) {
    io(movie.header, movie.tracks, movie.userData, movie.extends, movie.others);
  }
};
using MovieAtoms = MovieAtomsWith<std::vector<TrackAtoms>>;
using MovieToWrite = MovieAtomsWith<AtomsToMake<TrackAtoms>>;

// 'traf', ISO/IEC 14496-12 8.8.6. Fragments are read but never written, so other children are not
// kept.
struct TrackFragment {
  static constexpr FourCC kType{"traf"};
  TrackFragmentHeader header;
  std::optional<FragmentDecodeTime> time;
  std::vector<TrackRun> runs;
  std::vector<SampleGroupAtom> groups;
  std::optional<AuxiliarySizes> auxiliarySizes;
  std::optional<AuxiliaryOffsets> auxiliaryOffsets;
  std::optional<RawAtom<FourCC{"senc"}>> encryption;
  std::vector<RawAtom<FourCC{"uuid"}>> extensions;

  static void Children(auto& io, auto& fragment) {
    io(fragment.header, fragment.time, fragment.runs, fragment.groups, fragment.auxiliarySizes,
       fragment.auxiliaryOffsets, fragment.encryption, fragment.extensions);
  }
};

struct MovieFragment {  // 'moof', ISO/IEC 14496-12 8.8.4
  static constexpr FourCC kType{"moof"};
  std::vector<TrackFragment> tracks;
  std::optional<RawAtom<FourCC{"pssh"}>> protection;

  static void Children(auto& io, auto& fragment) { io(fragment.tracks, fragment.protection); }
};

// 'gmhd', QuickTime: the header of a media that is neither video nor sound.
struct GenericMediaHeader {
  static constexpr FourCC kType{"gmhd"};
  GenericMediaInformation information;
  std::optional<TextMediaInformation> text;

  static void Children(auto& io, auto& header) { io(header.information, header.text); }
};

}  // namespace toolbox
