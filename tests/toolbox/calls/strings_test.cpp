#include <gtest/gtest.h>

#include <string>

#include "toolbox/toolbox.h"

namespace toolbox {
namespace {

CFStringRef Make(const std::string& text, CFStringEncoding encoding = kCFStringEncodingUTF8) {
  return CFStringCreateWithBytes(nullptr, reinterpret_cast<const std::uint8_t*>(text.data()),
                                 static_cast<std::int64_t>(text.size()), encoding, true);
}

TEST(StringCalls, CountUnitsOfUtf16AndGivePartsOfThem) {
  const CFStringRef string = Make("a𝄞é日");
  EXPECT_EQ(CFStringGetLength(string), 5);
  std::uint8_t bytes[8] = {};
  std::int64_t used = -1;
  EXPECT_EQ(CFStringGetBytes(string, {3, 2}, 0, 0, false, bytes, 8, &used), 1);
  EXPECT_EQ(used, 1);
  EXPECT_EQ(bytes[0], 0x8E);
  EXPECT_EQ(CFStringGetBytes(string, {0, 5}, 0, '?', false, nullptr, 0, &used), 5);
  EXPECT_EQ(used, 4) << "only counted";
  EXPECT_EQ(CFStringGetBytes(string, {0, 5}, kCFStringEncodingUnicode, 0, false, bytes, 5, &used),
            1)
      << "what has two units is not split";
  EXPECT_EQ(used, 2);
  for (const CFRange outside : {CFRange{0, 6}, CFRange{-1, 1}, CFRange{2, -1}, CFRange{6, 0}}) {
    EXPECT_EQ(CFStringGetBytes(string, outside, 0, '?', false, bytes, 8, &used), 0);
    EXPECT_EQ(GetMoviesError(), paramErr);
  }
  CFRelease(string);
}

TEST(StringCalls, GiveAWholeTextOrNone) {
  const CFStringRef string = CFStringCreateWithCString(nullptr, "\x8E", kCFStringEncodingMacRoman);
  const CFStringRef path = CFStringCreateWithCString(nullptr, "/\xFF", kCFStringEncodingUTF8);
  char text[3] = "xx";
  EXPECT_FALSE(CFStringGetCString(string, text, 2, kCFStringEncodingUTF8));
  EXPECT_TRUE(CFStringGetCString(string, text, 3, kCFStringEncodingUTF8));
  EXPECT_STREQ(text, "é");
  EXPECT_FALSE(CFStringGetCString(string, text, 3, 1)) << "not in the encoding";
  EXPECT_TRUE(CFStringGetCString(path, text, 3, kCFStringEncodingUTF8));
  EXPECT_STREQ(text, "/\xFF") << "a path may have any bytes";
  EXPECT_EQ(Make("\xFF"), nullptr);
  EXPECT_EQ(Make("a", 9), nullptr);
  CFRelease(string), CFRelease(path);
}

}  // namespace
}  // namespace toolbox
