#include <gtest/gtest.h>
#include <sys/file.h>

#include <memory>
#include <new>

#include "tests/toolbox/bytes.h"
#include "toolbox/atoms/malformed.h"
#include "toolbox/calls/call.h"
#include "toolbox/disk/descriptor.h"
#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

namespace fs = boost::filesystem;

constexpr FourCC kAlias{"alis"}, kCreator{"TVOD"};

class Calls : public InFolder {
 protected:
  Calls() { std::ignore = GetMoviesError(); }
  ~Calls() override { SetCallHook({}); }

  // Data references live as long as the test.
  Handle To(const fs::path& path) {
    const CFStringRef text =
        CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    Handle handle = nullptr;
    FourCC type;
    EXPECT_EQ(QTNewDataReferenceFromFullPathCFString(text, kQTPOSIXPathStyle, 0, &handle, &type),
              noErr);
    EXPECT_EQ(type, kAlias);
    CFRelease(text);
    handles_.emplace_back(handle, DisposeHandle);
    return handle;
  }
  OSErr Open(const fs::path& path, Movie& movie) {
    return NewMovieFromDataRef(&movie, newMovieActive, nullptr, To(path), kAlias);
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

TEST_F(Calls, AnswerNullReferencesWithTheirCodes) {
  const Movie movie = NewMovie(0);
  DataHandler handler = nullptr;
  Movie opened = nullptr;
  EXPECT_EQ(InsertMovieSegment(nullptr, movie, 0, 1, 0), invalidMovie);
  EXPECT_EQ(InsertMovieSegment(movie, nullptr, 0, 1, 0), invalidMovie);
  EXPECT_EQ(NewMovieFromDataRef(&opened, 0, nullptr, nullptr, kAlias), nilHandleErr);
  EXPECT_EQ(OpenMovieStorage(nullptr, kAlias, 0, &handler), nilHandleErr);
  EXPECT_EQ(AddMovieToStorage(movie, nullptr), fnOpnErr);
  EXPECT_EQ(CloseMovieStorage(nullptr), fnOpnErr);
  EXPECT_EQ(CloseComponent(DataHandler{}), invalidComponentID);
  EXPECT_EQ(Flatten(nullptr, folder_ / "out.mov"), invalidMovie);
  EXPECT_FALSE(fs::exists(folder_ / "out.mov"));
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
  EXPECT_EQ(GetMovieTimeScale(movie), 600);
  DisposeMovie(movie);
}

TEST_F(Calls, AnswerWithACodeWhateverIsThrown) {
  const auto codeOf = [](auto fault) { return Call("Test", [&] { throw fault; }); };
  EXPECT_EQ(codeOf(Refused{eofErr}), eofErr);
  EXPECT_EQ(codeOf(Malformed("broken")), badPublicMovieAtom);
  EXPECT_EQ(codeOf(std::bad_alloc()), memFullErr);
  EXPECT_EQ(Call("Test", []() -> Movie { throw Refused{eofErr}; }), nullptr);
  EXPECT_EQ(GetMoviesError(), eofErr);
}

TEST_F(Calls, FailAsTheHookSays) {
  int count = 0;
  SetCallHook([&](std::string_view name) {
    return name == "NewMovie" && ++count == 2 ? OSErr{memFullErr} : OSErr{noErr};
  });
  const Movie first = NewMovie(0), second = NewMovie(0);
  EXPECT_NE(first, nullptr);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(GetMoviesError(), memFullErr);
  SetCallHook([](std::string_view name) { return name == "SetMovieTimeScale" ? ioErr : noErr; });
  SetMovieTimeScale(first, 1000);
  EXPECT_EQ(GetMoviesError(), ioErr);
  EXPECT_EQ(GetMovieTimeScale(first), 600) << "a call that fails does nothing";
  DisposeMovie(first);
}

TEST_F(Calls, TakeOnlyAbsolutePathsOfPossibleNames) {
  Handle handle = nullptr;
  FourCC type;
  const auto codeOf = [&](const std::string& path, int style = kQTPOSIXPathStyle) {
    const CFStringRef text =
        CFStringCreateWithCString(nullptr, path.c_str(), kCFStringEncodingUTF8);
    const OSErr code = QTNewDataReferenceFromFullPathCFString(text, style, 0, &handle, &type);
    CFRelease(text);
    return code;
  };
  EXPECT_EQ(codeOf(""), paramErr);
  EXPECT_EQ(codeOf("a.mov"), paramErr);
  EXPECT_EQ(codeOf("/a.mov", 1), paramErr);
  EXPECT_EQ(codeOf("/" + std::string(300, 'x')), bdNamErr);
  EXPECT_EQ(QTNewDataReferenceFromFullPathCFString(nullptr, kQTPOSIXPathStyle, 0, &handle, &type),
            paramErr);
  EXPECT_EQ(handle, nullptr);
}

TEST_F(Calls, SayWhyAMovieDoesNotOpen) {
  Movie movie = nullptr;
  EXPECT_EQ(Open(folder_ / "none.mov", movie), couldNotResolveDataRef);
  EXPECT_EQ(Open(Store("empty", {}), movie), noMovieFound);
  EXPECT_EQ(Open(Store("broken", Atom("moov", Zeros(3))), movie), badPublicMovieAtom);
  EXPECT_EQ(Open(folder_, movie), notAFileErr);
  EXPECT_EQ(NewMovieFromDataRef(&movie, 0, nullptr, To(folder_), FourCC{"url "}), noDataHandler);
  EXPECT_EQ(movie, nullptr);
}

TEST_F(Calls, WriteAndOpenBothFormsOfAMovie) {
  Movie movie = nullptr;
  DataHandler handler = nullptr;
  ASSERT_EQ(Open(StoreMovie("in.mov"), movie), noErr);
  EXPECT_EQ(Flatten(movie, folder_ / "flat.mov"), noErr);
  ASSERT_EQ(Create(folder_ / "ref.mov", 0, handler), noErr);
  EXPECT_EQ(AddMovieToStorage(movie, handler), noErr);
  EXPECT_FALSE(fs::exists(folder_ / "ref.mov")) << "it takes its name when it is closed";
  EXPECT_EQ(CloseMovieStorage(handler), noErr);
  DisposeMovie(movie);
  for (const char* name : {"flat.mov", "ref.mov"}) {
    std::int16_t resource = 0;
    ASSERT_EQ(NewMovieFromDataRef(&movie, 0, &resource, To(folder_ / name), kAlias), noErr);
    EXPECT_EQ(resource, -1);
    EXPECT_EQ(GetMovieDuration(movie), 1800);
    DisposeMovie(movie);
  }
  fs::remove(folder_ / "in.mov");
  EXPECT_EQ(Open(folder_ / "ref.mov", movie), couldNotResolveDataRef);
  EXPECT_EQ(NewMovieFromDataRef(&movie, newMovieDontResolveDataRefs, nullptr,
                                To(folder_ / "ref.mov"), kAlias),
            noErr);
  EXPECT_EQ(Flatten(movie, folder_ / "again.mov"), couldNotResolveDataRef);
  DisposeMovie(movie);
}

TEST_F(Calls, NeverWriteAMovieOverItsOwnMedia) {
  Movie movie = nullptr;
  DataHandler handler = nullptr;
  ASSERT_EQ(Open(StoreMovie("in.mov"), movie), noErr);
  const Bytes before = Stored(folder_ / "in.mov");
  fs::create_symlink(folder_ / "in.mov", folder_ / "link.mov");
  for (const char* name : {"in.mov", "link.mov"}) {
    EXPECT_EQ(Create(folder_ / name, createMovieFileDeleteCurFile, handler), fBsyErr);
    EXPECT_EQ(Flatten(movie, folder_ / name), fBsyErr);
    EXPECT_EQ(Stored(folder_ / "in.mov"), before) << "written by way of " << name;
  }
  DisposeMovie(movie);
}

TEST_F(Calls, NeverUpdateAFileThatSomebodyHasChanged) {
  const fs::path path = StoreMovie("in.mov");
  for (const bool isReplaced : {false, true}) {
    Movie movie = nullptr;
    DataHandler handler = nullptr;
    ASSERT_EQ(Open(path, movie), noErr);
    ASSERT_EQ(OpenMovieStorage(To(path), kAlias, kDataHCanRead | kDataHCanWrite, &handler), noErr);
    if (isReplaced) {
      StoreMovie("other.mov");
      fs::rename(folder_ / "other.mov", path);
    } else {
      Bytes longer = Stored(path);
      longer.resize(longer.size() + 8);
      Store("in.mov", longer);
    }
    const Bytes before = Stored(path);
    EXPECT_EQ(UpdateMovieInStorage(movie, handler), fBsyErr);
    EXPECT_EQ(Stored(path), before);
    EXPECT_EQ(CloseMovieStorage(handler), noErr);
    DisposeMovie(movie);
  }
}

TEST_F(Calls, SayWhyAFileCannotBeWritten) {
  const Movie movie = NewMovie(0);
  DataHandler handler = nullptr;
  const fs::path there = StoreMovie("there.mov");
  EXPECT_EQ(Create(there, 0, handler), dupFNErr);
  EXPECT_EQ(Create(folder_ / "no" / "out.mov", 0, handler), dirNFErr);
  EXPECT_EQ(Create(folder_, createMovieFileDeleteCurFile, handler), notAFileErr);
  EXPECT_EQ(OpenMovieStorage(To(folder_ / "none"), kAlias, kDataHCanWrite, &handler), fnfErr);
  EXPECT_EQ(handler, nullptr);
  EXPECT_EQ(Flatten(movie, there, 0), dupFNErr);
  ASSERT_EQ(OpenMovieStorage(To(there), kAlias, kDataHCanRead, &handler), noErr);
  EXPECT_EQ(AddMovieToStorage(movie, handler), dataNotOpenForWrite);
  EXPECT_EQ(CloseComponent(handler), noErr);
  {
    const Descriptor locked(there, 0);
    ASSERT_EQ(flock(locked.Number(), LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(OpenMovieStorage(To(there), kAlias, kDataHCanWrite, &handler), fBsyErr);
    EXPECT_EQ(Flatten(movie, there), fBsyErr);
  }
  DisposeMovie(movie);
}

}  // namespace
}  // namespace toolbox
