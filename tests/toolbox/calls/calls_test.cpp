// The contracts of the calls that no command can show: null arguments, the movies error, strings,
// and files that change between two calls.
#include <gtest/gtest.h>

#include <memory>
#include <new>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/calls/call.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

constexpr FourCC kAlias{"alis"}, kCreator{"TVOD"};
using String = std::unique_ptr<const StringRecord, void (*)(CFStringRef)>;

String Made(const std::string& text, CFStringEncoding encoding = kCFStringEncodingUTF8) {
  return {CFStringCreateWithCString(nullptr, text.c_str(), encoding), CFRelease};
}

OSErr CodeOfPath(const std::string& path, Handle& handle, int style = kQTPOSIXPathStyle) {
  FourCC type;
  return QTNewDataReferenceFromFullPathCFString(Made(path).get(), style, 0, &handle, &type);
}

// The code that a call without a code leaves.
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
  EXPECT_EQ(OpenMovieStorage(To(folder_ / "none"), kAlias, kDataHCanWrite, &handler_), fnfErr);
  EXPECT_EQ(handler_, nullptr);
  EXPECT_EQ(AddMovieToStorage(movie, nullptr), fnOpnErr);
  EXPECT_EQ(CloseMovieStorage(nullptr), fnOpnErr);
  EXPECT_EQ(CloseComponent(DataHandler{}), invalidComponentID);
  EXPECT_EQ(CodeOfPath("", made), paramErr);
  EXPECT_EQ(CodeOfPath("a.mov", made), paramErr);
  EXPECT_EQ(CodeOfPath("/a.mov", made, 1), paramErr);
  EXPECT_EQ(CodeOfPath("/" + std::string(256, 'x'), made), bdNamErr);
  EXPECT_EQ(QTNewDataReferenceFromFullPathCFString(nullptr, kQTPOSIXPathStyle, 0, &made, nullptr),
            paramErr);
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(PtrAndHand("ab", nullptr, 2), nilHandleErr);
  EXPECT_EQ(PtrAndHand("ab", handle, -1), paramErr);
  EXPECT_EQ(PtrAndHand("ab", handle, 2), noErr);
  EXPECT_EQ(handle->bytes, (Bytes{0, 'a', 'b'}));
  EXPECT_EQ(ErrorOf([] { DisposeMovie(nullptr); }), invalidMovie);
  EXPECT_EQ(ErrorOf([] { SetMovieTimeScale(nullptr, 600); }), invalidMovie);
  EXPECT_EQ(ErrorOf([&] { SetMovieTimeScale(movie, 0); }), paramErr);
  EXPECT_EQ(GetMovieTimeScale(movie), 600);
  EXPECT_EQ(ErrorOf([] { DisposeHandle(nullptr); }), noErr);
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

}  // namespace
}  // namespace toolbox
