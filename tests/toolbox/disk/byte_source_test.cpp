#include "toolbox/disk/byte_source.h"

#include <gtest/gtest.h>

#include "tests/toolbox/bytes.h"

namespace toolbox {
namespace {

class ByteSourceTest : public InFolder {};

TEST_F(ByteSourceTest, IsReadWithinItsBoundsOnly) {
  const Bytes content = Text("0123456789");
  const FileSource file(Store("file", content));
  const MemorySource memory(content);
  for (const ByteSource* source :
       {static_cast<const ByteSource*>(&file), static_cast<const ByteSource*>(&memory)}) {
    EXPECT_EQ(source->Size(), 10u);
    Bytes three(3);
    source->Read(7, three);
    EXPECT_EQ(three, Text("789"));
    for (const std::uint64_t at : {std::uint64_t{8}, std::uint64_t{INT64_MAX}, UINT64_MAX - 1}) {
      EXPECT_EQ(CodeOf([&] { source->Read(at, three); }), eofErr) << at;
    }
  }
  EXPECT_EQ(CodeOf([&] { FileSource(folder_ / "none"); }), fnfErr);
  EXPECT_EQ(CodeOf([&] { FileSource{folder_}; }), notAFileErr);
}

TEST_F(ByteSourceTest, WhatIsOwnedOutlastsItsFile) {
  Bytes bytes(3 << 20);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(i * 7 >> 3);
  const HeldBytes held = FileSource(Store("file", bytes)).Load(5, bytes.size() - 5);
  const std::uint8_t* before = held.Span().data();
  held.Detach();
  Store("file", {});
  EXPECT_EQ(held.Span().data(), before);
  EXPECT_TRUE(std::ranges::equal(held.Span(), ByteSpan(bytes).subspan(5)));
}

}  // namespace
}  // namespace toolbox
