#include <gtest/gtest.h>

#include <string>

#include "kestrine/platform/core/exception.h"
#include "kestrine/platform/core/io.h"

namespace kestrine::platform::core::io {
namespace {

TEST(MemoryReader, HandsOutItsBytesInChunksAndStartsOverAtOpen) {
  const std::string bytes("with\0zero", 9);
  MemoryReader reader(bytes);
  char buffer[4];
  EXPECT_THROW(reader.read(buffer, 4), Exception);
  for (int pass = 0; pass < 2; ++pass) {
    ASSERT_TRUE(reader.open());
    std::string all;
    while (unsigned count = reader.read(buffer, 2))
      all.append(buffer, count);
    EXPECT_EQ(all, bytes);
  }
  reader.close();
  EXPECT_THROW(reader.read(buffer, 4), Exception);
}

TEST(MemoryWriter, KeepsBytesAfterCloseAndEmptiesAtOpen) {
  MemoryWriter writer;
  EXPECT_THROW(writer.write("x", 1), Exception);
  ASSERT_TRUE(writer.open());
  writer.write("ab", 2);
  writer.write(nullptr, 0);
  writer.write("\0c", 2);
  writer.close();
  EXPECT_EQ(writer.bytes(), std::string("ab\0c", 4));
  EXPECT_THROW(writer.write("x", 1), Exception);
  ASSERT_TRUE(writer.open());
  EXPECT_EQ(writer.bytes(), "");
}

}  // namespace
}  // namespace kestrine::platform::core::io
