#include "chapter/playback.h"

#include <array>
#include <boost/endian/conversion.hpp>
#include <span>
#include <tuple>

#include "utils/owned_handle.h"

namespace chapter {
namespace {

using toolbox::FourCC;
using toolbox::Movie;
using toolbox::OSErr;

constexpr FourCC kPlay{"play"};  // one byte; 1: play when opened
constexpr FourCC kLoop{"LOOP"};  // 32 bits; 0: play over and over

// Replaces all items of the type by one.
OSErr ReplaceItems(Movie movie, FourCC type, std::span<const std::uint8_t> bytes) {
  if (const OSErr code = RemoveMovieUserData(movie, type)) return code;
  return toolbox::SetUserDataItem(toolbox::GetMovieUserData(movie), bytes.data(),
                                  static_cast<std::int32_t>(bytes.size()), type, 0);
}

// The payload of the first item of the type. Empty if there is none or it has less than `size`
// bytes.
toolbox::Bytes FirstItem(Movie movie, FourCC type, std::size_t size) {
  const toolbox::UserData data = toolbox::GetMovieUserData(movie);
  const utils::OwnedHandle item;
  if (data == nullptr || toolbox::GetUserData(data, item, type, 1) != toolbox::noErr ||
      item->bytes.size() < size) {
    return {};
  }
  return item->bytes;
}

}  // namespace

OSErr SetMovieUserDataByte(Movie movie, FourCC type, std::uint8_t value) {
  return ReplaceItems(movie, type, std::array{value});
}

OSErr SetMovieUserDataLong(Movie movie, FourCC type, std::int32_t value) {
  std::array<std::uint8_t, 4> bytes{};
  boost::endian::store_big_s32(bytes.data(), value);
  return ReplaceItems(movie, type, bytes);
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
  const toolbox::Bytes bytes = FirstItem(movie, type, 1);
  return bytes.empty() ? otherwise : bytes[0] != 0;
}

std::int32_t GetMovieUserDataLong(Movie movie, FourCC type, std::int32_t otherwise) {
  const toolbox::Bytes bytes = FirstItem(movie, type, 4);
  return bytes.empty() ? otherwise : boost::endian::load_big_s32(bytes.data());
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
