// A media: samples of one kind, their descriptions and the files they are in.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "toolbox/atoms/fourcc.h"
#include "toolbox/atoms/header_atoms.h"
#include "toolbox/atoms/siblings.h"
#include "toolbox/bytes.h"
#include "toolbox/movie/data_reference.h"
#include "toolbox/movie/sample_description.h"
#include "toolbox/movie/sample_table.h"
#include "toolbox/movie/time.h"
#include "toolbox/movie/user_data.h"

namespace toolbox {

// The language of a media if nobody knows it: 'und' of ISO 639-2, packed.
inline constexpr std::uint16_t kUndeterminedLanguage = 0x55C4;

// Samples that are copied from one media to be added to another, with everything needed to read
// them.
struct SampleTableRecord {
  std::int32_t scale = 600;
  std::vector<DataReference> dataReferences;  // none of them ThisFile
  std::vector<SampleDescription> descriptions;
  SampleTable samples;
};

// The settings that a new media of the same kind copies from another.
struct MediaSettings {
  // The new media has its own dates. Duration and date of modification are those of the file that
  // was read; writing computes both.
  MediaHeader header;
  Handler handler;
  UserDataRecord userData;
  // The other children of 'mdia', 'minf' and 'dinf'. One is the header of the kind of media.
  Siblings siblings, infoSiblings, dataSiblings;
};

// Samples that are being added to a media. Their data is in memory until a movie file is written.
struct NewSamples {
  InMemory block;
  std::uint32_t dataReference = 0;  // index of `block` in the media
  SampleRows rows;
};

struct TrackRecord;

struct MediaRecord : MediaSettings {
  TrackRecord* track = nullptr;  // the track that owns the media; null for a media without a track
  std::vector<DataReference> dataReferences;
  std::vector<SampleDescription> descriptions;
  SampleTable samples;
  // One between BeginEdits and EndEdits, otherwise none. An optional would take half a kilobyte.
  std::vector<NewSamples> newSamples;
  std::optional<std::uint32_t> textEncoding;  // of text samples to be added

  FourCC Type() const { return handler.subtype; }
  // Whether samples are encrypted. Such a media can be copied whole, but not cut or joined.
  bool IsProtected() const;
  // The data reference of samples with that description.
  const DataReference& ReferenceOf(std::uint32_t description) const {
    return dataReferences[descriptions[description].dataReference];
  }

  // The index of an equal reference, which is added if there is none.
  std::uint32_t FindOrAdd(const DataReference& reference);
  // The index, at least `first`, of a description with the same reference that decodes alike (see
  // DecodeAlike), which is added if there is none.
  std::uint32_t FindOrAdd(const SampleDescription& description, std::size_t first = 0);

  // Opens the media for new samples. Their data goes to the end of the block of memory that is the
  // first data reference, or else to a new block. Throws Refused: dataAlreadyOpenForWrite,
  // noDefaultDataRef (there is no reference), dataNotOpenForWrite (the first one is unresolved).
  void BeginEdits();
  // Adds a sample and returns its decode time. The description gets the data reference of the new
  // samples. Throws Refused: dataNotOpenForWrite, invalidDuration (it does not fit into 32 bits),
  // paramErr (too many bytes or samples for a file).
  MediaTime AddSample(ByteSpan bytes, SampleDescription description, MediaTime duration);
  // Appends the new samples to `samples`. Throws Refused: dataAlreadyClosed.
  void EndEdits();

  // Converts all times of the samples to `newScale`. Throws Refused (invalidDuration).
  void SetScale(std::int32_t newScale);
  // Appends all samples of `source` by reference: their data stays in its file. Returns the decode
  // time of the first one here. A source that was joined before and has not changed since is not
  // joined again. Throws Refused (couldNotResolveDataRef).
  MediaTime Join(const MediaRecord& source);

  // The samples [from, to), to be added to any media. Throws Refused: couldNotResolveDataRef,
  // invalidSampleTable (some are in no chunk), featureUnsupported (encrypted samples).
  SampleTableRecord Copy(std::uint64_t from, std::uint64_t to) const;
  // Appends the samples [from, to) of `table` by reference, as SampleTable::AppendWithoutDelay
  // does. The table has the scale of the media. Returns the decode time of the first one here.
  // Throws Refused: mediaTypesDontMatch (a description cannot name the file of its samples),
  // featureUnsupported (encrypted samples here).
  MediaTime Append(const SampleTableRecord& table, std::uint64_t from, std::uint64_t to);

  // The file that ThisFile means; nothing for a media without a track or of a movie without a file.
  std::optional<OtherFile> MovieFile() const;

 private:
  // The data references of this media, made valid for a movie in another file: ThisFile becomes
  // MovieFile(). Throws Refused (couldNotResolveDataRef) if that is needed and there is none.
  std::vector<DataReference> ReferencesForOthers() const;
  // The reverse: makes such references valid for this media. MovieFile() becomes ThisFile.
  std::vector<DataReference> ReferencesForThis(std::vector<DataReference> references) const;
  // Returns the index in this media for each description of `others`, whose data references are
  // `references`. Adds descriptions and references that this media does not have yet. If a
  // reference is to another file, the movie loses its trailer, which describes only its own file.
  std::vector<std::uint32_t> AddDescriptions(const std::vector<SampleDescription>& others,
                                             const std::vector<DataReference>& references);

  // A source that has been joined. Its samples start at `base`, so it need not be joined again.
  struct Joined {
    std::weak_ptr<const void> identity;
    std::uint64_t samples = 0;
    MediaTime base;
  };
  std::unordered_map<const void*, Joined> joined_;
  // Identifies the media; joined_ of another media may outlive it.
  std::shared_ptr<const void> identity_ = std::make_shared<const int>();
  // Indexes of the references to other files by their names, so that joining a thousand files needs
  // no search for each.
  std::unordered_map<std::string, std::uint32_t> fileIndex_;
  std::uint32_t indexed_ = 0;  // how many references have been put into fileIndex_
};

}  // namespace toolbox
