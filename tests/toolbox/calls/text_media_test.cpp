#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>

#include "tests/toolbox/bytes.h"
#include "toolbox/movie/movie.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

constexpr FourCC kText{"text"}, kMemory{"hndl"}, kAlias{"alis"}, kEncoding{"encd"}, kChap{"chap"};

class TextMedia : public testing::Test {
 protected:
  ~TextMedia() override { DisposeMovie(movie_); }

  Handle Made(const Bytes& bytes) {
    handles_.emplace_back(NewHandle(0), DisposeHandle);
    handles_.back()->bytes = bytes;
    return handles_.back().get();
  }
  Media NewText(Handle dataRef) {
    return NewTrackMedia(NewMovieTrack(movie_, 0, 0, 0), kText, 600, dataRef, kMemory);
  }
  OSErr Add(Media media, const std::string& text, TimeValue duration, TimeValue* time = nullptr) {
    return TextMediaAddTextSample(media, text.data(), static_cast<std::uint32_t>(text.size()), 0, 0,
                                  0, nullptr, nullptr, teJustCenter, nullptr, dfClipToTextBox, 0, 0,
                                  0, nullptr, duration, time);
  }
  void AddAll(Media media, const std::vector<std::string>& texts) {
    ASSERT_EQ(BeginMediaEdits(media), noErr);
    for (const std::string& text : texts) EXPECT_EQ(Add(media, text, 1), noErr);
    ASSERT_EQ(EndMediaEdits(media), noErr);
  }
  OSErr Read(Media media, TimeValue at, Bytes& bytes, std::int32_t maxGrow = 0) {
    const Handle out = Made({});
    const OSErr code = GetMediaSample(media, out, maxGrow, nullptr, at, nullptr, nullptr, nullptr,
                                      nullptr, 1, nullptr, nullptr);
    bytes = out->bytes;
    return code;
  }

  Movie movie_ = NewMovie(0);
  std::vector<std::unique_ptr<HandleRecord, void (*)(Handle)>> handles_;
};

TEST_F(TextMedia, HoldsSamplesOfACountATextAndAMark) {
  const Media media = NewText(Made(Zeros(4)));
  const std::uint32_t encoding = 256;
  TimeValue time = -1, start = 0, duration = 0;
  EXPECT_EQ(TextMediaSetTextSampleData(media, &encoding, kEncoding), noErr);
  ASSERT_EQ(BeginMediaEdits(media), noErr);
  EXPECT_EQ(Add(media, "first", 100), noErr);
  EXPECT_EQ(Add(media, "Intro \xC3\xA9", 50, &time), noErr);
  EXPECT_EQ(GetMediaDuration(media), 0) << "the media is still open";
  ASSERT_EQ(EndMediaEdits(media), noErr);
  EXPECT_EQ(GetMediaDuration(media), 150);

  const Handle out = Made({}), description = Made({});
  std::int32_t size = 0, number = 0, count = 0;
  std::int16_t flags = -1;
  ASSERT_EQ(GetMediaSample(media, out, 0, &size, 149, &start, &duration, description, &number, 0,
                           &count, &flags),
            noErr);
  EXPECT_EQ(out->bytes, Join(U16(8), Text("Intro \xC3\xA9"), Atom("encd", U32(256))));
  EXPECT_EQ(std::tuple(size, time, start, duration, number, count, flags),
            std::tuple(22, 100, 100, 50, 1, 1, 0));
  // Size, format, data reference 1, flags, justification; colours and box are zeros; no font.
  EXPECT_EQ(description->bytes,
            Join(U32(60), Text("text"), Zeros(6), U16(1), U32(4), U32(1), Zeros(36)));
  EXPECT_EQ(GetMediaSampleDescriptionCount(media), 1) << "both samples look alike";
}

TEST_F(TextMedia, TakesWhatItHasRoomFor) {
  const Media media = NewText(Made(Zeros(4)));
  ASSERT_EQ(BeginMediaEdits(media), noErr);
  EXPECT_EQ(Add(media, std::string(65534, 'a') + "\xC3\xA9z", 1), noErr);
  EXPECT_EQ(Add(media, "no time", 0), noErr);
  EXPECT_EQ(Add(media, "", UINT32_MAX), noErr);
  EXPECT_EQ(Add(media, "", std::int64_t{UINT32_MAX} + 1), invalidDuration);
  EXPECT_EQ(Add(media, "", -1), invalidDuration);
  ASSERT_EQ(EndMediaEdits(media), noErr);
  Bytes bytes;
  EXPECT_EQ(Read(media, 0, bytes), noErr);
  EXPECT_EQ(bytes.size(), 2U + 65534) << "cut in front of the character that is cut";
  EXPECT_EQ(Read(media, 0, bytes, 65535), maxSizeToGrowTooSmall);
  EXPECT_EQ(Read(media, 1, bytes), noErr);
  EXPECT_EQ(bytes, Zeros(2)) << "a sample without length is never on show";
  EXPECT_EQ(Read(media, -1, bytes), invalidTime);
  EXPECT_EQ(Read(media, GetMediaDuration(media), bytes), invalidTime);
}

TEST_F(TextMedia, IsOpenedBeforeItIsAddedToAndClosedOnce) {
  const Media media = NewText(Made(Zeros(4)));
  EXPECT_EQ(Add(media, "a", 1), dataNotOpenForWrite);
  EXPECT_EQ(EndMediaEdits(media), dataAlreadyClosed);
  EXPECT_EQ(BeginMediaEdits(media), noErr);
  EXPECT_EQ(BeginMediaEdits(media), dataAlreadyOpenForWrite);
  EXPECT_EQ(EndMediaEdits(media), noErr);
  EXPECT_EQ(BeginMediaEdits(nullptr), invalidMedia);
  EXPECT_EQ(TextMediaSetTextSampleData(media, "\0\1", FourCC{"drpt"}), paramErr);
  media->dataReferences.clear();
  EXPECT_EQ(BeginMediaEdits(media), noDefaultDataRef);
  media->dataReferences = {Unresolved{kAlias, 0, {}}};
  EXPECT_EQ(BeginMediaEdits(media), dataNotOpenForWrite);
}

TEST_F(TextMedia, IsKeptInOneBlockByAllWhoCarryTheReference) {
  Handle stated = nullptr;
  FourCC type;
  EXPECT_EQ(GetMovieDefaultDataRef(movie_, &stated, &type), noDefaultDataRef);
  EXPECT_EQ(NewText(nullptr), nullptr);
  EXPECT_EQ(GetMoviesError(), noDefaultDataRef);

  const Handle place = Made(Join(Zeros(5), U32(10), Text("dataxy")));
  EXPECT_EQ(SetMovieDefaultDataRef(movie_, place, kMemory), noErr);
  ASSERT_EQ(GetMovieDefaultDataRef(movie_, &stated, &type), noErr);
  EXPECT_EQ(type, kMemory);
  for (const Media media : {NewText(nullptr), NewText(stated), NewText(place)}) {
    AddAll(media, {"abc"});
    EXPECT_EQ(media->dataReferences.size(), 1U);
    Bytes bytes;
    EXPECT_EQ(Read(media, 0, bytes), noErr);
    EXPECT_EQ(bytes, Join(U16(3), Text("abc")));
  }
  EXPECT_EQ(place->block->size(), 2U + 3 * 5) << "the bytes it came with, and three samples";
  EXPECT_NE(NewText(Made(Zeros(4)))->dataReferences, NewText(Made(Zeros(4)))->dataReferences);
  DisposeHandle(stated);

  EXPECT_EQ(SetMovieDefaultDataRef(movie_, Made(Text("abcdef")), kMemory), invalidDataRef);
  EXPECT_EQ(SetMovieDefaultDataRef(movie_, Made({}), kText), noDataHandler);
  EXPECT_EQ(SetMovieDefaultDataRef(movie_, nullptr, kMemory), nilHandleErr);
}

TEST_F(TextMedia, OfAFileIsHeldInMemoryUntilTheFileIsWritten) {
  movie_->file = OtherFile{"/a.mov"};
  movie_->defaultDataReference = movie_->file;
  Handle stated = nullptr;
  FourCC type;
  ASSERT_EQ(GetMovieDefaultDataRef(movie_, &stated, &type), noErr);
  const Media media = NewTrackMedia(NewMovieTrack(movie_, 0, 0, 0), kText, 600, stated, type);
  DisposeHandle(stated);
  EXPECT_EQ(media->dataReferences, (std::vector<DataReference>{ThisFile{}}));
  Bytes bytes;
  AddAll(media, {"abc"});
  EXPECT_EQ(Read(media, 0, bytes), noErr);
  EXPECT_EQ(bytes, Join(U16(3), Text("abc")));
  std::get<InMemory>(media->dataReferences[1]).data->resize(4);
  EXPECT_EQ(Read(media, 0, bytes), eofErr);
  media->dataReferences[1] = OtherFile{"/nowhere"};
  EXPECT_EQ(Read(media, 0, bytes), fnfErr);
  media->dataReferences[1] = Unresolved{kAlias, 0, {}};
  EXPECT_EQ(Read(media, 0, bytes), couldNotResolveDataRef);
}

TEST_F(TextMedia, IsAskedForTheNextSampleOneWay) {
  TimeValue time = 7;
  const Track track = NewMovieTrack(movie_, 0, 0, 0);
  const auto codeOf = [&](int flags, Fixed rate) {
    GetTrackNextInterestingTime(track, static_cast<std::int16_t>(flags), 0, rate, &time, nullptr);
    EXPECT_EQ(time, -1);
    return GetMoviesError();
  };
  EXPECT_EQ(codeOf(nextTimeMediaSample, fixedOne), noErr);
  EXPECT_EQ(codeOf(nextTimeMediaSample, -fixedOne), featureUnsupported);
  EXPECT_EQ(codeOf(nextTimeMediaSample | 2, fixedOne), paramErr);
  EXPECT_EQ(codeOf(nextTimeEdgeOK, fixedOne), paramErr);
  EXPECT_EQ(codeOf(4, fixedOne), featureUnsupported);
  EXPECT_EQ(TrackTimeToMediaTime(0, nullptr), -1);
  EXPECT_EQ(GetMoviesError(), invalidTrack);
}

TEST_F(TextMedia, IsNamedByTrackReferences) {
  const Track a = NewMovieTrack(movie_, 0, 0, 0), b = NewMovieTrack(movie_, 0, 0, 0);
  std::int32_t number = 0;
  for (const auto& [target, type] : {std::pair{b, kChap}, {b, kText}, {a, kChap}, {b, kChap}}) {
    EXPECT_EQ(AddTrackReference(a, target, type, &number), noErr);
  }
  EXPECT_EQ(number, 3);
  EXPECT_EQ(GetNextTrackReferenceType(a, FourCC()), kChap);
  EXPECT_EQ(GetNextTrackReferenceType(a, kChap), kText);
  EXPECT_EQ(GetNextTrackReferenceType(a, kText), FourCC());
  for (const int i : {-1, 0, 4}) {
    EXPECT_EQ(GetTrackReference(a, kChap, i), nullptr);
    EXPECT_EQ(DeleteTrackReference(a, kChap, i), badTrackIndex);
  }
  EXPECT_EQ(DeleteTrackReference(a, kChap, 1), noErr);
  EXPECT_EQ(GetTrackReferenceCount(a, kChap), 2);
  EXPECT_EQ(GetTrackReference(a, kChap, 1), a);
  EXPECT_EQ(GetTrackReference(a, kChap, 2), b);
  const Movie other = NewMovie(0);
  EXPECT_EQ(AddTrackReference(a, NewMovieTrack(other, 0, 0, 0), kChap, nullptr), trackNotInMovie);
  EXPECT_EQ(AddTrackReference(a, nullptr, kChap, nullptr), invalidTrack);
  DisposeMovie(other);
}

}  // namespace
}  // namespace toolbox
