// A media: samples of one kind, what describes them and where they lie.
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

struct MovieRecord;

// Samples on their way from one media to another, with all it takes to find and to read them.
struct SampleTableRecord {
  std::int32_t scale = 600;
  std::vector<DataReference> dataReferences;  // none of them ThisFile
  std::vector<SampleDescription> descriptions;
  SampleTable samples;
};

// What a new media of the same kind takes over.
struct MediaSettings {
  // The new media has its own dates. Duration and date of modification are those of the file that
  // was read; writing computes both.
  MediaHeader header;
  Handler handler;
  UserDataRecord userData;
  // What else is in 'mdia', 'minf' and 'dinf': the header of the kind of media among them.
  Siblings siblings, infoSiblings, dataSiblings;
};

// Samples on their way into a media. Their data are held in memory until a movie file is written.
struct NewSamples {
  InMemory block;
  std::uint32_t dataReference = 0;  // that of the media for `block`
  SampleRows rows;
};

struct TrackRecord;

struct MediaRecord : MediaSettings {
  TrackRecord* track = nullptr;  // the track that owns the media; null for one that stands alone
  std::vector<DataReference> dataReferences;
  std::vector<SampleDescription> descriptions;
  SampleTable samples;
  std::optional<NewSamples> newSamples;  // there while the media is open for them
  std::optional<std::uint32_t> textEncoding;  // that further text samples are marked with

  FourCC Type() const { return handler.subtype; }
  // Whether any of its samples are encrypted: those can be copied whole, but not cut or joined.
  bool IsProtected() const;
  // The description used by samples whose description index is `index`.
  const DataReference& ReferenceOf(std::uint32_t description) const {
    return dataReferences[descriptions[description].dataReference];
  }

  // The index of an equal reference, added when there is none.
  std::uint32_t FindOrAdd(const DataReference& reference);
  // The index of a description with equal bytes and the same reference, from `first` on; added when
  // there is none.
  std::uint32_t FindOrAdd(const SampleDescription& description, std::size_t first = 0);

  // Opens the media for samples: behind those in the block of memory that its first data reference
  // is, else in a block of its own. Throws Refused: dataAlreadyOpenForWrite, noDefaultDataRef (no
  // reference), dataNotOpenForWrite (one that leads nowhere).
  void BeginEdits();
  // Adds one; returns the media time at which it will stand. Throws Refused: dataNotOpenForWrite,
  // invalidDuration (one that has no room in a file).
  MediaTime AddSample(ByteSpan bytes, SampleDescription description, std::int64_t duration);
  // Closes it: what was added are samples now. Throws Refused: dataAlreadyClosed.
  void EndEdits();

  // Re-expresses all times of the samples in `newScale`. Throws Refused (invalidDuration).
  void SetScale(std::int32_t newScale);
  // Appends all samples of `source`, by reference: they stay where they are. Returns the media time
  // at which the first of them now stands. A source that was joined before, and is unchanged since,
  // is not joined twice. Throws Refused (couldNotResolveDataRef).
  MediaTime Join(const MediaRecord& source);

  // The samples [from, to), for any other media. Throws Refused: couldNotResolveDataRef,
  // invalidSampleTable (some lie nowhere), featureUnsupported (encrypted samples).
  SampleTableRecord Copy(std::uint64_t from, std::uint64_t to) const;
  // Appends the samples [from, to) of `table`, whose scale is that of the media, by reference and
  // as SampleTable::AppendInStep does. Throws Refused: mediaTypesDontMatch (a description cannot
  // say which file its samples lie in), featureUnsupported (encrypted samples here).
  MediaTime Append(const SampleTableRecord& table, std::uint64_t from, std::uint64_t to);

  // The file that ThisFile means; nothing for a media that stands alone or was made in memory.
  std::optional<OtherFile> OwnFile() const;
  // What a reference of this media is called in a movie that lies elsewhere, and the other way
  // round. The first throws Refused (couldNotResolveDataRef).
  DataReference SeenFromElsewhere(const DataReference& reference) const;
  DataReference SeenFromHere(const DataReference& reference) const;

 private:
  // An index here for each of `strangers`, which name `references`; added where there is none. The
  // movie then holds more than its own file did.
  std::vector<std::uint32_t> Adopt(const std::vector<SampleDescription>& strangers,
                                   const std::vector<DataReference>& references);

  struct Joined {
    std::weak_ptr<const void> identity;
    std::uint64_t samples = 0;
    MediaTime base;
  };
  std::unordered_map<const void*, Joined> joined_;
  // Tells one media's samples from another's for as long as a join may want to know.
  std::shared_ptr<const void> identity_ = std::make_shared<const int>();
  // Where the references to other files stand, so that joining a thousand of them takes no search
  // each.
  std::unordered_map<std::string, std::uint32_t> fileIndex_;
  std::uint32_t indexed_ = 0;  // references looked at so far
};

}  // namespace toolbox
