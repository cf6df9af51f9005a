#include "chapter/playback.h"

#include <boost/endian/arithmetic.hpp>
#include <cstring>
#include <tuple>

#include "utils/owned.h"

namespace chapter {
namespace {

using toolbox::FourCC;
using toolbox::Movie;
using toolbox::OSErr;

constexpr FourCC kPlay{"play"};  // one byte; 1: play when opened
constexpr FourCC kLoop{"LOOP"};  // 32 bits; 0: play over and over

using BigLong = boost::endian::big_int32_t;

// Replaces all items of the type by one with the bytes of the value.
template <class Value>
OSErr ReplaceItems(Movie movie, FourCC type, Value value) {
  if (const OSErr code = RemoveMovieUserData(movie, type)) return code;
  return toolbox::SetUserDataItem(toolbox::GetMovieUserData(movie), &value, sizeof value, type, 0);
}

// The value at the start of the first item of the type; `otherwise` if there is none or it is too
// short.
template <class Value>
Value FirstItem(Movie movie, FourCC type, Value otherwise) {
  const utils::OwnedHandle item;
  if (toolbox::GetUserData(toolbox::GetMovieUserData(movie), item, type, 1) == toolbox::noErr &&
      item->bytes.size() >= sizeof otherwise) {
    std::memcpy(&otherwise, item->bytes.data(), sizeof otherwise);
  }
  return otherwise;
}

}  // namespace

OSErr SetMovieUserDataByte(Movie movie, FourCC type, std::uint8_t value) {
  return ReplaceItems(movie, type, value);
}

OSErr SetMovieUserDataLong(Movie movie, FourCC type, std::int32_t value) {
  return ReplaceItems(movie, type, BigLong(value));
}

OSErr RemoveMovieUserData(Movie movie, FourCC type) {
  const toolbox::UserData data = toolbox::GetMovieUserData(movie);
  if (data == nullptr) return toolbox::paramErr;
  for (int left = toolbox::CountUserDataType(data, type); left > 0; --left) {
    std::ignore = toolbox::RemoveUserData(data, type, 1);
  }
  return toolbox::noErr;
}

bool GetMovieUserDataByte(Movie movie, FourCC type, bool otherwise) {
  return FirstItem(movie, type, static_cast<std::uint8_t>(otherwise)) != 0;
}

std::int32_t GetMovieUserDataLong(Movie movie, FourCC type, std::int32_t otherwise) {
  return FirstItem(movie, type, BigLong(otherwise));
}

void ApplyPlaybackFlags(Movie movie, const clipjoin::OutputOptions& options) {
  if (options.setAutoPlay) {
    std::ignore = SetMovieUserDataByte(movie, kPlay, 1);
  } else if (options.unsetAutoPlay) {
    std::ignore = RemoveMovieUserData(movie, kPlay);
  }
  if (options.setLooping) {
    std::ignore = SetMovieUserDataLong(movie, kLoop, 0);
  } else if (options.unsetLooping) {
    std::ignore = RemoveMovieUserData(movie, kLoop);
  }
}

}  // namespace chapter
