// Sample tables and data references through the calls.
#include <gtest/gtest.h>

#include <array>

#include "tests/toolbox/bytes.h"
#include "tests/toolbox/movies.h"
#include "toolbox/movie/sample_places.h"
#include "toolbox/references/aliases.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

constexpr FourCC kVideo{"vide"}, kAlias{"alis"};

// Two movies in two files, each with a track of six samples.
class SampleTables : public InFolder {
 protected:
  SampleTables() {
    for (MovieRecord* movie : {&one_, &two_}) {
      movie->file = OtherFile{folder_ / (movie == &one_ ? "one.mov" : "two.mov")};
      AddPlainTrack(*movie, kVideo, 600, PlainRows(6, 100, 10, 1000));
    }
  }
  ~SampleTables() override { QTSampleTableRelease(table_); }

  Media First(MovieRecord& movie) { return GetTrackMedia(movie.tracks[0].get()); }
  OSErr Copy(Media media, TimeValue start, std::int64_t samples = 0, TimeValue duration = 0) {
    QTSampleTableRelease(std::exchange(table_, nullptr));
    return CopyMediaMutableSampleTable(media, start, &start_, samples, duration, &table_);
  }
  OSErr Property(FourCC property, std::size_t room = 8,
                 FourCC propertyClass = kQTPropertyClass_SampleTable) {
    return QTSampleTableGetProperty(table_, propertyClass, property, room, &value_, nullptr);
  }

  MovieRecord one_, two_;
  QTMutableSampleTableRef table_ = nullptr;
  TimeValue start_ = -1, value_ = 0;
};

TEST_F(SampleTables, HoldTheSamplesFromATimeOnWithinTheirLimits) {
  for (const auto& [start, samples, duration, actual, count] :
       std::vector<std::array<TimeValue, 5>>{{0, 0, 0, 0, 6},
                                             {250, 0, 0, 200, 4},
                                             {599, 0, 0, 500, 1},
                                             {100, 2, 0, 100, 2},
                                             {100, 0, 350, 100, 3},
                                             {100, 0, 50, 100, 1},
                                             {100, 9, 9999, 100, 5}}) {
    ASSERT_EQ(Copy(First(one_), start, samples, duration), noErr);
    EXPECT_EQ(start_, actual);
    EXPECT_EQ(QTSampleTableGetNumberOfSamples(table_), count);
    EXPECT_EQ(Property(kQTSampleTablePropertyID_TotalDecodeDuration), noErr);
    EXPECT_EQ(value_, count * 100);
  }
}

TEST_F(SampleTables, GiveTheirSamplesWithTheFileTheyAreIn) {
  ASSERT_EQ(Copy(First(two_), 0), noErr);
  TimeValue time = -1;
  ASSERT_EQ(AddSampleTableToMedia(First(one_), table_, 2, 3, &time), noErr);
  EXPECT_EQ(time, 600);
  const MediaRecord& media = *First(one_);
  EXPECT_EQ(GetMediaDecodeDuration(First(one_)), 900);
  EXPECT_EQ(media.dataReferences, (std::vector<DataReference>{ThisFile{}, *two_.file}));
  ForEachPiece(media.samples, {6, 9}, [&](const SamplePiece& piece) {
    EXPECT_EQ(media.ReferenceOf(piece.description), DataReference(*two_.file));
    EXPECT_EQ(piece.offset, 1010U);
  });
  EXPECT_EQ(GetTrackDuration(one_.tracks[0].get()), 600) << "the track does not show them yet";
  // Into the movie they came from, then again into a movie that has the reference already.
  ASSERT_EQ(AddSampleTableToMedia(First(two_), table_, 1, 6, nullptr), noErr);
  EXPECT_EQ(First(two_)->dataReferences, (std::vector<DataReference>{ThisFile{}}));
  ASSERT_EQ(AddSampleTableToMedia(First(one_), table_, 1, 6, nullptr), noErr);
  EXPECT_EQ(media.dataReferences.size(), 2U);
  EXPECT_EQ(media.descriptions.size(), 2U);
}

TEST_F(SampleTables, SayWhatTheyCannotDo) {
  const Media media = First(one_);
  QTMutableSampleTableRef made = nullptr;
  EXPECT_EQ(QTSampleTableCreateMutable(nullptr, 0, nullptr, &made), paramErr);
  EXPECT_EQ(made, nullptr);
  ASSERT_EQ(QTSampleTableCreateMutable(nullptr, 1000, nullptr, &made), noErr);
  EXPECT_EQ(QTSampleTableGetNumberOfSamples(made), 0);
  EXPECT_EQ(AddSampleTableToMedia(media, made, 1, 0, nullptr), paramErr) << "another scale";
  QTSampleTableRelease(made);
  EXPECT_EQ(Copy(nullptr, 0), invalidMedia);
  EXPECT_EQ(Copy(media, -1), invalidTime);
  EXPECT_EQ(Copy(media, 600), invalidTime);
  ASSERT_EQ(Copy(media, 0), noErr);
  EXPECT_EQ(Property(FourCC{"tded"}, 7), paramErr);
  EXPECT_EQ(Property(FourCC{"nope"}), featureUnsupported);
  EXPECT_EQ(Property(FourCC{"tded"}, 8, FourCC{"nope"}), featureUnsupported);
  const auto add = [&](std::int64_t first, std::int64_t count) {
    return AddSampleTableToMedia(media, table_, first, count, nullptr);
  };
  EXPECT_EQ(add(0, 1), invalidSampleNum);
  EXPECT_EQ(add(1, 7), invalidSampleNum);
  EXPECT_EQ(add(8, 0), invalidSampleNum);
  EXPECT_EQ(add(1, -1), paramErr);
  EXPECT_EQ(add(7, 0), noErr);
  EXPECT_EQ(AddSampleTableToMedia(nullptr, table_, 1, 1, nullptr), invalidMedia);
  EXPECT_EQ(AddSampleTableToMedia(media, nullptr, 1, 1, nullptr), paramErr);
  EXPECT_EQ(GetMediaDecodeDuration(media), 600) << "nothing has changed";
  const Media secret = First(two_);
  secret->descriptions = {Described(FourCC{"encv"})};
  EXPECT_EQ(AddSampleTableToMedia(secret, table_, 1, 6, nullptr), featureUnsupported);
  EXPECT_EQ(Copy(secret, 0), featureUnsupported);
  EXPECT_EQ(GetMediaDecodeDuration(secret), 600);
  secret->descriptions = media->descriptions;
  two_.file.reset();
  EXPECT_EQ(Copy(First(two_), 0), couldNotResolveDataRef);
}

TEST_F(SampleTables, DataReferencesAreCopiedAndAppended) {
  const Media media = First(one_);
  std::int16_t count = 0, number = 0;
  Handle handle = nullptr;
  FourCC type;
  std::int32_t attributes = -1;
  media->dataReferences.push_back(InMemory{std::make_shared<Bytes>(Text("abc"))});
  media->dataReferences.push_back(Unresolved{FourCC{"rsrc"}, 0, Text("?")});
  ASSERT_EQ(GetMediaDataRefCount(media, &count), noErr);
  ASSERT_EQ(count, 3);
  const std::int32_t expected[] = {dataRefSelfReference, 0, dataRefWasNotResolved};
  for (std::int16_t i = 1; i <= count; ++i) {
    ASSERT_EQ(GetMediaDataRef(media, i, &handle, &type, &attributes), noErr);
    EXPECT_EQ(attributes, expected[i - 1]);
    ASSERT_EQ(AddMediaDataRef(First(two_), &number, handle, type), noErr);
    EXPECT_EQ(number, i + 1);
    DisposeHandle(handle);
  }
  const auto& added = First(two_)->dataReferences;
  EXPECT_EQ(added[1], DataReference(*one_.file)) << "what was its own file is another's";
  EXPECT_EQ(*std::get<InMemory>(added[2]).data, Text("abc"));
  EXPECT_EQ(added[3], media->dataReferences[2]);
  // Any path to the other movie's file means that movie's own file.
  HandleRecord own{AliasRecord(two_.file->path, {})};
  ASSERT_EQ(AddMediaDataRef(First(two_), nullptr, &own, kAlias), noErr);
  EXPECT_EQ(added[4], DataReference(ThisFile{}));

  EXPECT_EQ(GetMediaDataRefCount(nullptr, &count), invalidMedia);
  EXPECT_EQ(GetMediaDataRef(media, 0, &handle, &type, nullptr), badDataRefIndex);
  EXPECT_EQ(GetMediaDataRef(media, 4, &handle, &type, nullptr), badDataRefIndex);
  EXPECT_EQ(AddMediaDataRef(media, &number, nullptr, kAlias), nilHandleErr);
  HandleRecord broken{Text("no alias")};
  EXPECT_EQ(AddMediaDataRef(media, &number, &broken, kAlias), invalidDataRef);
}

}  // namespace
}  // namespace toolbox
