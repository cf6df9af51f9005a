#include "toolbox/atoms/header_atoms.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

using namespace std::string_literals;

TEST(HandleReference, HasTheFirstBytesOfItsBlockInAnAtom) {
  const auto block = [](const std::string& data) { return InitialData(Text(data)); };
  const std::string noName(5, '\0');
  EXPECT_EQ(block(noName + "\0\0\0\ndataxy"s), Text("xy"));
  EXPECT_EQ(block("abcd\3a.m\0\0\0\fftypMooV\0\0\0\bdata"s), Bytes());
  EXPECT_EQ(block(noName + "\0\0\0\vdataxy"s), std::nullopt);  // the atom ends too soon
  EXPECT_EQ(block(noName + "\0\0\0\adata"s), std::nullopt);
  EXPECT_EQ(block("\0\0\0\0\xFF"s), std::nullopt);
  EXPECT_EQ(block(""), std::nullopt);
}

}  // namespace
}  // namespace toolbox
