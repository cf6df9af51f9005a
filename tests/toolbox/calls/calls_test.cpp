// The contracts of the calls that no command can show: null arguments, the movies error, strings,
// files that change between two calls, samples and data references.
#include <new>

#include "tests/toolbox/movies.h"
#include "toolbox/calls/call.h"
#include "toolbox/references/aliases.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

constexpr FourCC kAlias{"alis"}, kCreator{"TVOD"};
using String = std::unique_ptr<const StringRecord, void (*)(CFStringRef)>;

String Made(const std::string& text, CFStringEncoding encoding = kCFStringEncodingUTF8) {
  return {CFStringCreateWithCString(nullptr, text.c_str(), encoding), CFRelease};
}

OSErr CodeOfPath(const std::string& path, Handle& handle, int style = kQTPOSIXPathStyle) {
  FourCC type;
  return QTNewDataReferenceFromFullPathCFString(Made(path).get(), style, 0, &handle, &type);
}

// The movies error after a call that returns no code.
OSErr ErrorOf(const std::function<void()>& call) {
  call();
  return GetMoviesError();
}

class Calls : public InFolder {
 protected:
  Calls() { std::ignore = GetMoviesError(); }
  ~Calls() override { DisposeMovie(movie_); }

  // A data reference, which lives as long as the test.
  Handle To(const fs::path& path) {
    Handle handle = nullptr;
    EXPECT_EQ(CodeOfPath(path.native(), handle), noErr);
    handles_.emplace_back(handle, DisposeHandle);
    return handle;
  }
  // Stores a movie and opens it.
  fs::path OpenMovie() {
    const fs::path path = StoreMovie("in.mov");
    EXPECT_EQ(NewMovieFromDataRef(&movie_, newMovieActive, nullptr, To(path), kAlias), noErr);
    return path;
  }
  fs::path StoreMovie(const std::string& name) {
    const Bytes track = TrackAtom({.table = PlainTable(6, 300, 10, 8)});
    return Store(name, toolbox::Made("mdat{ *60 } moov{ $ $ }", {MovieHeaderAtom(), track}));
  }

  Movie movie_ = nullptr;
  DataHandler handler_ = nullptr;
  std::vector<std::unique_ptr<HandleRecord, void (*)(Handle)>> handles_;
};

TEST_F(Calls, LeaveTheirResultAsTheMoviesErrorUntilItIsAskedFor) {
  EXPECT_EQ(GetMovieTimeScale(nullptr), 0);
  EXPECT_EQ(GetMoviesError(), invalidMovie);
  EXPECT_EQ(GetMoviesError(), noErr);
  EXPECT_EQ(GetMovieDuration(nullptr), 0);
  EXPECT_EQ(EnterMovies(), noErr);
  EXPECT_EQ(GetMoviesError(), noErr) << "every call overwrites it";
  const auto codeOf = [](auto fault) { return Call("Test", [&] { throw fault; }); };
  EXPECT_EQ(codeOf(Refused{eofErr}), eofErr);
  EXPECT_EQ(codeOf(Malformed("broken")), badPublicMovieAtom);
  EXPECT_EQ(codeOf(std::bad_alloc()), memFullErr);
  EXPECT_EQ(Call("Test", []() -> Movie { throw Refused{eofErr}; }), nullptr);
  EXPECT_EQ(GetMoviesError(), eofErr);
}

TEST_F(Calls, RefuseNullAndImpossibleArguments) {
  const Movie movie = movie_ = NewMovie(0);
  const Handle handle = handles_.emplace_back(NewHandleClear(1), DisposeHandle).get();
  Movie opened = nullptr;
  Handle made = nullptr;
  EXPECT_EQ(InsertMovieSegment(nullptr, movie, 0, 1, 0), invalidMovie);
  EXPECT_EQ(NewMovieFromDataRef(&opened, 0, nullptr, nullptr, kAlias), nilHandleErr);
  EXPECT_EQ(NewMovieFromDataRef(&opened, 0, nullptr, handle, FourCC{"url "}), noDataHandler);
  EXPECT_EQ(OpenMovieStorage(nullptr, kAlias, 0, &handler_), nilHandleErr);
  EXPECT_EQ(AddMovieToStorage(movie, nullptr), fnOpnErr);
  EXPECT_EQ(CloseMovieStorage(nullptr), fnOpnErr);
  EXPECT_EQ(CloseComponent(DataHandler{}), invalidComponentID);
  EXPECT_EQ(CodeOfPath("a.mov", made), paramErr);
  EXPECT_EQ(CodeOfPath("/a.mov", made, 1), paramErr);
  EXPECT_EQ(CodeOfPath("/" + std::string(256, 'x'), made), bdNamErr);
  EXPECT_EQ(QTNewDataReferenceFromFullPathCFString(nullptr, kQTPOSIXPathStyle, 0, &made, nullptr),
            paramErr);
  EXPECT_EQ(PtrAndHand("ab", nullptr, 2), nilHandleErr);
  EXPECT_EQ(PtrAndHand("ab", handle, -1), paramErr);
  EXPECT_EQ(PtrAndHand("ab", handle, 2), noErr);
  EXPECT_EQ(handle->bytes, (Bytes{0, 'a', 'b'}));
  EXPECT_EQ(ErrorOf([] { DisposeMovie(nullptr); }), invalidMovie);
  EXPECT_EQ(ErrorOf([] { SetMovieTimeScale(nullptr, 600); }), invalidMovie);
  EXPECT_EQ(ErrorOf([&] { SetMovieTimeScale(movie, 0); }), paramErr);
  EXPECT_EQ(GetMovieTimeScale(movie), 600);
  EXPECT_EQ(ErrorOf([] { std::ignore = NewHandle(-1); }), paramErr);
  EXPECT_EQ(ErrorOf([] { std::ignore = CFStringGetCString(nullptr, nullptr, 3, 0); }), paramErr);
}

TEST_F(Calls, NeverWriteAMovieOverAnotherFile) {
  OpenMovie();
  const Handle there = To(StoreMovie("there.mov"));
  EXPECT_EQ(CreateMovieStorage(there, kAlias, kCreator, smSystemScript, 0, &handler_, nullptr),
            dupFNErr);
  EXPECT_EQ(FlattenMovieDataToDataRef(movie_, flattenAddMovieToDataFork, there, kAlias, kCreator,
                                      smSystemScript, 0),
            nullptr);
  EXPECT_EQ(GetMoviesError(), dupFNErr);
  ASSERT_EQ(OpenMovieStorage(there, kAlias, kDataHCanRead, &handler_), noErr);
  EXPECT_EQ(AddMovieToStorage(movie_, handler_), dataNotOpenForWrite);
  EXPECT_EQ(UpdateMovieInStorage(movie_, handler_), dataNotOpenForWrite);
  EXPECT_EQ(CloseComponent(handler_), noErr);
}

TEST_F(Calls, NeverUpdateAFileThatSomebodyHasReplaced) {
  const fs::path path = OpenMovie();
  ASSERT_EQ(OpenMovieStorage(To(path), kAlias, kDataHCanRead | kDataHCanWrite, &handler_), noErr);
  const Bytes before = Stored(path);
  fs::rename(StoreMovie("other.mov"), path);
  EXPECT_EQ(UpdateMovieInStorage(movie_, handler_), fBsyErr);
  EXPECT_EQ(Stored(path), before);
  EXPECT_EQ(CloseMovieStorage(handler_), noErr);
  EXPECT_EQ(CloseMovieStorage(handler_), fnOpnErr);
}

TEST(StringCalls, GiveAWholeTextOrNone) {
  const String string = Made("\x8E", kCFStringEncodingMacRoman), path = Made("/\xFF");
  char text[3] = "xx";
  EXPECT_FALSE(CFStringGetCString(string.get(), text, 2, kCFStringEncodingUTF8));
  EXPECT_TRUE(CFStringGetCString(string.get(), text, 3, kCFStringEncodingUTF8));
  EXPECT_STREQ(text, "é");
  EXPECT_FALSE(CFStringGetCString(string.get(), text, 3, 1)) << "not in the encoding";
  EXPECT_TRUE(CFStringGetCString(path.get(), text, 3, kCFStringEncodingUTF8));
  EXPECT_STREQ(text, "/\xFF") << "a path may have any bytes";
  EXPECT_EQ(Made("a", 9), nullptr);
}

// --- Samples, text samples, sample tables and data references

constexpr FourCC kVideo{"vide"}, kText{"text"}, kMemory{"hndl"}, kEncoding{"encd"};

class TextMedia : public Calls {
 protected:
  TextMedia() { movie_ = NewMovie(0); }

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
  void AddAbc(Media media) {
    ASSERT_EQ(BeginMediaEdits(media), noErr);
    EXPECT_EQ(Add(media, "abc", 1), noErr);
    ASSERT_EQ(EndMediaEdits(media), noErr);
  }
  // The bytes of the sample at a time, or the code of a failure in two bytes.
  Bytes Read(Media media, TimeValue at, std::int32_t maxGrow = 0) {
    const Handle out = Made({});
    const OSErr code = GetMediaSample(media, out, maxGrow, nullptr, at, nullptr, nullptr, nullptr,
                                      nullptr, 1, nullptr, nullptr);
    return code == noErr ? out->bytes : Failed(code);
  }
  static Bytes Failed(OSErr code) { return U16(static_cast<std::uint16_t>(code)); }
};

TEST_F(TextMedia, SamplesHaveALengthATextAndAnEncoding) {
  const Media media = NewText(Made(Zeros(4)));
  const std::uint32_t encoding = 256;
  TimeValue start = 0, duration = 0;
  EXPECT_EQ(TextMediaSetTextSampleData(media, &encoding, kEncoding), noErr);
  ASSERT_EQ(BeginMediaEdits(media), noErr);
  EXPECT_EQ(Add(media, "first", 100), noErr);
  EXPECT_EQ(Add(media, "Intro", 50), noErr);
  EXPECT_EQ(GetMediaDuration(media), 0) << "the media is still open";
  ASSERT_EQ(EndMediaEdits(media), noErr);
  const Handle out = Made({}), description = Made({});
  std::int32_t size = 0, number = 0, count = 0;
  std::int16_t flags = -1;
  ASSERT_EQ(GetMediaSample(media, out, 0, &size, 149, &start, &duration, description, &number, 0,
                           &count, &flags),
            noErr);
  EXPECT_EQ(out->bytes, toolbox::Made("5/2 'Intro' encd{ 256 }"));
  EXPECT_EQ(std::tuple(size, start, duration, number, count, flags),
            std::tuple(19, 100, 50, 1, 1, 0));
  // Format, data reference 1, flags, justification; colours and box are zeros; no font.
  EXPECT_EQ(description->bytes, toolbox::Made("text{ *6 1/2 4 1 *36 }"));
}

TEST_F(TextMedia, LimitsTextLengthAndDuration) {
  const Media media = NewText(Made(Zeros(4)));
  ASSERT_EQ(BeginMediaEdits(media), noErr);
  EXPECT_EQ(Add(media, std::string(65534, 'a') + "\xC3\xA9z", 1), noErr);
  EXPECT_EQ(Add(media, "no time", 0), noErr);
  EXPECT_EQ(Add(media, "", UINT32_MAX), noErr);
  EXPECT_EQ(Add(media, "", std::int64_t{UINT32_MAX} + 1), invalidDuration);
  EXPECT_EQ(Add(media, "", -1), invalidDuration);
  ASSERT_EQ(EndMediaEdits(media), noErr);
  EXPECT_EQ(Read(media, 0).size(), 2U + 65534) << "a character that does not fit whole is left out";
  EXPECT_EQ(Read(media, 0, 65535), Failed(maxSizeToGrowTooSmall));
  EXPECT_EQ(Read(media, 1), Zeros(2)) << "a sample that lasts no time is never shown";
  EXPECT_EQ(Read(media, -1), Failed(invalidTime));
  EXPECT_EQ(Read(media, GetMediaDuration(media)), Failed(invalidTime));
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

TEST_F(TextMedia, WithOneDataReferenceSharesOneBlock) {
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
    AddAbc(media);
    EXPECT_EQ(media->dataReferences.size(), 1U);
    EXPECT_EQ(Read(media, 0), Join(U16(3), Text("abc")));
  }
  EXPECT_EQ(place->block->size(), 2U + 3 * 5) << "the bytes it came with, and three samples";
  EXPECT_NE(NewText(Made(Zeros(4)))->dataReferences, NewText(Made(Zeros(4)))->dataReferences);
  DisposeHandle(stated);

  EXPECT_EQ(SetMovieDefaultDataRef(movie_, Made(Text("abcdef")), kMemory), invalidDataRef);
  EXPECT_EQ(SetMovieDefaultDataRef(movie_, Made({}), kText), noDataHandler);
  EXPECT_EQ(SetMovieDefaultDataRef(movie_, nullptr, kMemory), nilHandleErr);
}

TEST_F(TextMedia, StaysInMemoryUntilTheFileIsWritten) {
  movie_->file = OtherFile{"/a.mov"};
  movie_->defaultDataReference = movie_->file;
  Handle stated = nullptr;
  FourCC type;
  ASSERT_EQ(GetMovieDefaultDataRef(movie_, &stated, &type), noErr);
  const Media media = NewTrackMedia(NewMovieTrack(movie_, 0, 0, 0), kText, 600, stated, type);
  DisposeHandle(stated);
  EXPECT_EQ(media->dataReferences, (std::vector<DataReference>{ThisFile{}}));
  AddAbc(media);
  EXPECT_EQ(Read(media, 0), Join(U16(3), Text("abc")));
  std::get<InMemory>(media->dataReferences[1]).data->resize(4);
  EXPECT_EQ(Read(media, 0), Failed(eofErr));
  media->dataReferences[1] = OtherFile{"/nowhere"};
  EXPECT_EQ(Read(media, 0), Failed(fnfErr));
  media->dataReferences[1] = Unresolved{kAlias, 0, {}};
  EXPECT_EQ(Read(media, 0), Failed(couldNotResolveDataRef));
}

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

TEST_F(SampleTables, HaveTheSamplesFromATimeUpToACountOrDuration) {
  constexpr TimeValue kRows[][5] = {
      {0, 0, 0, 0, 6},       {250, 0, 0, 200, 4},  {599, 0, 0, 500, 1},   {100, 2, 0, 100, 2},
      {100, 0, 350, 100, 3}, {100, 0, 50, 100, 1}, {100, 9, 9999, 100, 5}};
  for (const auto& [start, samples, duration, actual, count] : kRows) {
    ASSERT_EQ(Copy(First(one_), start, samples, duration), noErr);
    EXPECT_EQ(start_, actual);
    EXPECT_EQ(QTSampleTableGetNumberOfSamples(table_), count);
    EXPECT_EQ(Property(kQTSampleTablePropertyID_TotalDecodeDuration), noErr);
    EXPECT_EQ(value_, count * 100);
  }
}

TEST_F(SampleTables, RefuseWhatTheyCannotDo) {
  const Media media = First(one_), secret = First(two_);
  secret->descriptions = {Described(FourCC{"encv"})};
  EXPECT_EQ(QTSampleTableCreateMutable(nullptr, 0, nullptr, &table_), paramErr);
  ASSERT_EQ(QTSampleTableCreateMutable(nullptr, 1000, nullptr, &table_), noErr);
  EXPECT_EQ(QTSampleTableGetNumberOfSamples(table_), 0);
  EXPECT_EQ(AddSampleTableToMedia(media, table_, 1, 0, nullptr), paramErr) << "another scale";
  EXPECT_EQ(Copy(nullptr, 0), invalidMedia);
  EXPECT_EQ(Copy(media, -1), invalidTime);
  EXPECT_EQ(Copy(media, 600), invalidTime);
  EXPECT_EQ(Copy(secret, 0), featureUnsupported);
  ASSERT_EQ(Copy(media, 0), noErr);
  EXPECT_EQ(Property(FourCC{"tded"}, 7), paramErr);
  EXPECT_EQ(Property(FourCC{"nope"}), featureUnsupported);
  EXPECT_EQ(Property(FourCC{"tded"}, 8, FourCC{"nope"}), featureUnsupported);
  for (const auto& [into, first, count, code] : {std::tuple{media, 0, 1, invalidSampleNum},
                                                 {media, 1, 7, invalidSampleNum},
                                                 {media, 8, 0, invalidSampleNum},
                                                 {media, 1, -1, paramErr},
                                                 {media, 7, 0, noErr},
                                                 {Media{}, 1, 1, invalidMedia},
                                                 {secret, 1, 6, featureUnsupported}}) {
    EXPECT_EQ(AddSampleTableToMedia(into, table_, first, count, nullptr), code) << first;
  }
  EXPECT_EQ(AddSampleTableToMedia(media, nullptr, 1, 1, nullptr), paramErr);
  for (const Media unchanged : {media, secret}) EXPECT_EQ(GetMediaDecodeDuration(unchanged), 600);
  one_.file.reset();
  EXPECT_EQ(Copy(media, 0), couldNotResolveDataRef);
}

TEST_F(SampleTables, DataReferencesAreCopiedAndAppended) {
  const Media media = First(one_), other = First(two_);
  std::int16_t count = 0, number = 0;
  FourCC type;
  std::int32_t attributes = -1;
  media->dataReferences.push_back(InMemory{std::make_shared<Bytes>(Text("abc"))});
  media->dataReferences.push_back(Unresolved{FourCC{"rsrc"}, 0, Text("?")});
  ASSERT_EQ(GetMediaDataRefCount(media, &count), noErr);
  ASSERT_EQ(count, 3);
  const std::int32_t expected[] = {dataRefSelfReference, 0, dataRefWasNotResolved};
  for (std::int16_t i = 1; i <= count; ++i) {
    Handle handle = nullptr;
    ASSERT_EQ(GetMediaDataRef(media, i, &handle, &type, &attributes), noErr);
    EXPECT_EQ(attributes, expected[i - 1]);
    ASSERT_EQ(AddMediaDataRef(other, &number, handle, type), noErr);
    EXPECT_EQ(number, i + 1);
    DisposeHandle(handle);
  }
  const auto& added = other->dataReferences;
  EXPECT_EQ(added[1], DataReference(*one_.file))
      << "this movie's own file is another file to the other movie";
  EXPECT_EQ(*std::get<InMemory>(added[2]).data, Text("abc"));
  EXPECT_EQ(added[3], media->dataReferences[2]);
  // Any path to the other movie's file means that movie's own file.
  HandleRecord own{AliasRecord(two_.file->path, {})}, broken{Text("no alias")};
  ASSERT_EQ(AddMediaDataRef(other, nullptr, &own, kAlias), noErr);
  EXPECT_EQ(added[4], DataReference(ThisFile{}));

  Handle none = nullptr;
  EXPECT_EQ(GetMediaDataRefCount(nullptr, &count), invalidMedia);
  EXPECT_EQ(GetMediaDataRef(media, 0, &none, &type, nullptr), badDataRefIndex);
  EXPECT_EQ(GetMediaDataRef(media, 4, &none, &type, nullptr), badDataRefIndex);
  EXPECT_EQ(AddMediaDataRef(media, &number, nullptr, kAlias), nilHandleErr);
  EXPECT_EQ(AddMediaDataRef(media, &number, &broken, kAlias), invalidDataRef);
}

}  // namespace
}  // namespace toolbox
