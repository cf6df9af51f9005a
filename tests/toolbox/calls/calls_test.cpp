// The contracts of the calls that no command can show: null arguments, the movies error, the hook,
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

class Calls : public InFolder {
 protected:
  Calls() { std::ignore = GetMoviesError(); }
  ~Calls() override { SetCallHook({}); }

  // The code for a path, and its data reference, which lives as long as the test.
  OSErr CodeOfPath(const std::string& path, Handle& handle, int style = kQTPOSIXPathStyle) {
    const CFStringRef text =
        CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    FourCC type;
    const OSErr code = QTNewDataReferenceFromFullPathCFString(text, style, 0, &handle, &type);
    CFRelease(text);
    handles_.emplace_back(handle, DisposeHandle);
    return code;
  }
  Handle To(const fs::path& path) {
    Handle handle = nullptr;
    EXPECT_EQ(CodeOfPath(path.native(), handle), noErr);
    return handle;
  }
  OSErr Open(const fs::path& path, Movie& movie, std::int16_t flags = newMovieActive) {
    return NewMovieFromDataRef(&movie, flags, nullptr, To(path), kAlias);
  }
  OSErr Create(const fs::path& path, std::uint32_t flags, DataHandler& handler) {
    return CreateMovieStorage(To(path), kAlias, kCreator, smSystemScript, flags, &handler, nullptr);
  }
  OSErr Flatten(Movie movie, const fs::path& path,
                std::uint32_t flags = createMovieFileDeleteCurFile) {
    EXPECT_EQ(FlattenMovieDataToDataRef(movie, flattenAddMovieToDataFork, To(path), kAlias,
                                        kCreator, smSystemScript, flags),
              nullptr);
    return GetMoviesError();
  }
  fs::path StoreMovie(const std::string& name) {
    return Store(
        name, Join(Atom("mdat", Zeros(60)), Atom("moov", MovieHeaderAtom(),
                                                 TrackAtom({.table = PlainTable(6, 300, 10, 8)}))));
  }

  std::vector<std::unique_ptr<HandleRecord, void (*)(Handle)>> handles_;
};

TEST_F(Calls, LeaveTheirResultAsTheMoviesErrorUntilItIsAskedFor) {
  EXPECT_EQ(GetMovieTimeScale(nullptr), 0);
  EXPECT_EQ(GetMoviesError(), invalidMovie);
  EXPECT_EQ(GetMoviesError(), noErr);
  EXPECT_EQ(GetMovieDuration(nullptr), 0);
  EXPECT_EQ(EnterMovies(), noErr);
  EXPECT_EQ(GetMoviesError(), noErr) << "every call overwrites it";
}

TEST_F(Calls, RefuseNullAndImpossibleArguments) {
  const Movie movie = NewMovie(0);
  const Handle handle = NewHandleClear(1);
  DataHandler handler = nullptr;
  Movie opened = nullptr;
  Handle made = nullptr;
  EXPECT_EQ(InsertMovieSegment(nullptr, movie, 0, 1, 0), invalidMovie);
  EXPECT_EQ(InsertMovieSegment(movie, nullptr, 0, 1, 0), invalidMovie);
  EXPECT_EQ(NewMovieFromDataRef(&opened, 0, nullptr, nullptr, kAlias), nilHandleErr);
  EXPECT_EQ(NewMovieFromDataRef(&opened, 0, nullptr, handle, FourCC{"url "}), noDataHandler);
  EXPECT_EQ(OpenMovieStorage(nullptr, kAlias, 0, &handler), nilHandleErr);
  EXPECT_EQ(AddMovieToStorage(movie, nullptr), fnOpnErr);
  EXPECT_EQ(CloseMovieStorage(nullptr), fnOpnErr);
  EXPECT_EQ(CloseComponent(DataHandler{}), invalidComponentID);
  EXPECT_EQ(Flatten(nullptr, folder_ / "out.mov"), invalidMovie);
  EXPECT_FALSE(fs::exists(folder_ / "out.mov"));
  EXPECT_EQ(CodeOfPath("", made), paramErr);
  EXPECT_EQ(CodeOfPath("a.mov", made), paramErr);
  EXPECT_EQ(CodeOfPath("/a.mov", made, 1), paramErr);
  EXPECT_EQ(CodeOfPath("/" + std::string(300, 'x'), made), bdNamErr);
  EXPECT_EQ(QTNewDataReferenceFromFullPathCFString(nullptr, kQTPOSIXPathStyle, 0, &made, nullptr),
            paramErr);
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(PtrAndHand("ab", nullptr, 2), nilHandleErr);
  EXPECT_EQ(PtrAndHand("ab", handle, -1), paramErr);
  EXPECT_EQ(PtrAndHand(nullptr, handle, 0), noErr);
  EXPECT_EQ(PtrAndHand("ab", handle, 2), noErr);
  EXPECT_EQ(handle->bytes, (Bytes{0, 'a', 'b'}));
  const auto errorOf = [](auto&& call) {
    call();
    return GetMoviesError();
  };
  EXPECT_EQ(errorOf([] { DisposeMovie(nullptr); }), invalidMovie);
  EXPECT_EQ(errorOf([] { SetMovieTimeScale(nullptr, 600); }), invalidMovie);
  EXPECT_EQ(errorOf([&] { SetMovieTimeScale(movie, 0); }), paramErr);
  EXPECT_EQ(errorOf([] { DisposeHandle(nullptr); }), noErr);
  EXPECT_EQ(errorOf([] { std::ignore = NewHandle(-1); }), paramErr);
  EXPECT_EQ(errorOf([] { std::ignore = CFStringCreateWithCString(nullptr, "x", 9); }), paramErr);
  EXPECT_EQ(errorOf([] { std::ignore = CFStringGetCString(nullptr, nullptr, 3, 0); }), paramErr);
  EXPECT_EQ(GetMovieTimeScale(movie), 600);
  DisposeMovie(movie), DisposeHandle(handle);
}

TEST_F(Calls, AnswerWithACodeWhateverIsThrown) {
  const auto codeOf = [](auto fault) { return Call("Test", [&] { throw fault; }); };
  EXPECT_EQ(codeOf(Refused{eofErr}), eofErr);
  EXPECT_EQ(codeOf(Malformed("broken")), badPublicMovieAtom);
  EXPECT_EQ(codeOf(std::bad_alloc()), memFullErr);
  EXPECT_EQ(Call("Test", []() -> Movie { throw Refused{eofErr}; }), nullptr);
  EXPECT_EQ(GetMoviesError(), eofErr);
}

TEST_F(Calls, DoNothingIfTheHookRefusesThem) {
  const Movie movie = NewMovie(0);
  SetCallHook([](std::string_view name) { return name == "SetMovieTimeScale" ? ioErr : noErr; });
  SetMovieTimeScale(movie, 1000);
  EXPECT_EQ(GetMoviesError(), ioErr);
  EXPECT_EQ(GetMovieTimeScale(movie), 600);
  DisposeMovie(movie);
}

TEST_F(Calls, WriteAndOpenAReferenceMovie) {
  Movie movie = nullptr;
  DataHandler handler = nullptr;
  const fs::path ref = folder_ / "ref.mov", in = StoreMovie("in.mov");
  ASSERT_EQ(Open(in, movie), noErr);
  ASSERT_EQ(Create(ref, 0, handler), noErr);
  EXPECT_EQ(AddMovieToStorage(movie, handler), noErr);
  EXPECT_FALSE(fs::exists(ref)) << "it takes its name when it is closed";
  EXPECT_EQ(CloseMovieStorage(handler), noErr);
  EXPECT_EQ(CloseMovieStorage(handler), fnOpnErr);
  DisposeMovie(movie);
  std::int16_t resource = 0;
  ASSERT_EQ(NewMovieFromDataRef(&movie, 0, &resource, To(ref), kAlias), noErr);
  EXPECT_EQ(resource, -1);
  EXPECT_EQ(GetMovieDuration(movie), 1800);
  DisposeMovie(movie);
  fs::remove(in);
  EXPECT_EQ(Open(ref, movie), couldNotResolveDataRef);
  EXPECT_EQ(Open(ref, movie, newMovieDontResolveDataRefs), noErr);
  EXPECT_EQ(Flatten(movie, folder_ / "again.mov"), couldNotResolveDataRef);
  DisposeMovie(movie);
}

TEST_F(Calls, NeverWriteAMovieOverItsOwnMediaOrOverAnotherFile) {
  Movie movie = nullptr;
  DataHandler handler = nullptr;
  const fs::path in = StoreMovie("in.mov"), there = StoreMovie("there.mov");
  ASSERT_EQ(Open(in, movie), noErr);
  const Bytes before = Stored(in);
  fs::create_symlink(in, folder_ / "link.mov");
  for (const char* name : {"in.mov", "link.mov"}) {
    EXPECT_EQ(Create(folder_ / name, createMovieFileDeleteCurFile, handler), fBsyErr);
    EXPECT_EQ(Flatten(movie, folder_ / name), fBsyErr);
    EXPECT_EQ(Stored(in), before) << "written by way of " << name;
  }
  EXPECT_EQ(Create(there, 0, handler), dupFNErr);
  EXPECT_EQ(Flatten(movie, there, 0), dupFNErr);
  EXPECT_EQ(OpenMovieStorage(To(folder_ / "none"), kAlias, kDataHCanWrite, &handler), fnfErr);
  EXPECT_EQ(handler, nullptr);
  ASSERT_EQ(OpenMovieStorage(To(there), kAlias, kDataHCanRead, &handler), noErr);
  EXPECT_EQ(AddMovieToStorage(movie, handler), dataNotOpenForWrite);
  EXPECT_EQ(UpdateMovieInStorage(movie, handler), dataNotOpenForWrite);
  EXPECT_EQ(CloseComponent(handler), noErr);
  DisposeMovie(movie);
}

TEST_F(Calls, NeverUpdateAFileThatSomebodyHasReplaced) {
  const fs::path path = StoreMovie("in.mov");
  Movie movie = nullptr;
  DataHandler handler = nullptr;
  ASSERT_EQ(Open(path, movie), noErr);
  ASSERT_EQ(OpenMovieStorage(To(path), kAlias, kDataHCanRead | kDataHCanWrite, &handler), noErr);
  const Bytes before = Stored(path);
  fs::rename(StoreMovie("other.mov"), path);
  EXPECT_EQ(UpdateMovieInStorage(movie, handler), fBsyErr);
  EXPECT_EQ(Stored(path), before);
  EXPECT_EQ(CloseMovieStorage(handler), noErr);
  DisposeMovie(movie);
}

}  // namespace
}  // namespace toolbox
