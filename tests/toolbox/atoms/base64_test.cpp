#include "toolbox/atoms/base64.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

TEST(Base64, PadsToWholeGroups) {
  EXPECT_EQ(Base64({}), "");
  EXPECT_EQ(Base64(Text("foo")), "Zm9v");
  EXPECT_EQ(Base64(Text("foob")), "Zm9vYg==");
  EXPECT_EQ(Base64(Text("fooba")), "Zm9vYmE=");
  EXPECT_EQ(Base64({0xFB, 0xFF, 0xBF, 0}), "+/+/AA==");
}

}  // namespace
}  // namespace toolbox
